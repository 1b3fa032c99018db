#include "platform/loader/Loader.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <stdlib.h>

namespace Plugin {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class TestLoader final : public LoaderBase {};

/// Looks for plug-ins in an empty folder of its own.
class LoaderTest : public testing::Test {
 protected:
   LoaderTest() {
      auto name = (fs::temp_directory_path() / "loader-test-XXXXXX").string();
      if (!mkdtemp(name.data())) {
         throw std::runtime_error("no temporary folder");
      }
      root = name;
      fs::create_directories(root / "plugins");
      searchPathIs({root.string()});
   }
   ~LoaderTest() override {
      searchPathIs(before);
      fs::remove_all(root);
   }

   fs::path platformLibrary() const { return fs::path(before.front()) / "libZandorPlatform.so"; }
   void libraryIs(fs::path const& path) { fs::create_symlink(platformLibrary(), root / path); }
   void brokenLibraryIs(fs::path const& path) { std::ofstream(root / path) << "no library"; }

   auto failureAt(fs::path const& path, char const* reason) const {
      return AllOf(Field(&LoadFailure::path, (root / path).string()),
                   Field(&LoadFailure::reason, HasSubstr(reason)));
   }

   std::vector<Pelm::String> const before = searchPath();
   fs::path root;
   TestLoader loader;
};

TEST_F(LoaderTest, LooksBesideThePlatformLibraryAtFirst) {
   ASSERT_EQ(before.size(), 1u);
   EXPECT_TRUE(fs::exists(platformLibrary())) << platformLibrary();
}

TEST_F(LoaderTest, LoadsEveryLibraryOfTheFolder) {
   libraryIs("plugins/one.so");
   libraryIs("plugins/two.so");
   EXPECT_EQ(loader.loadPlugins("plugins", "Test"), 2u);
   EXPECT_THAT(loader.failures(), IsEmpty());
}

TEST_F(LoaderTest, AnEmptyFolderIsNoFailure) {
   EXPECT_EQ(loader.loadPlugins("plugins", "Test"), 0u);
   EXPECT_THAT(loader.failures(), IsEmpty());
}

TEST_F(LoaderTest, NamesAFolderThatIsMissing) {
   EXPECT_EQ(loader.loadPlugins("nowhere", "Test"), 0u);
   EXPECT_THAT(loader.failures(), ElementsAre(failureAt("nowhere", "No such file or directory")));
}

TEST_F(LoaderTest, NamesAFolderThatIsNone) {
   brokenLibraryIs("file");
   EXPECT_EQ(loader.loadPlugins("file", "Test"), 0u);
   EXPECT_THAT(loader.failures(), ElementsAre(failureAt("file", "Not a directory")));
}

TEST_F(LoaderTest, NamesAFileThatIsNoLibraryAndGoesOn) {
   brokenLibraryIs("plugins/a-broken.so");
   libraryIs("plugins/b.so");
   brokenLibraryIs("plugins/c-broken.so");
   EXPECT_EQ(loader.loadPlugins("plugins", "Test"), 1u);
   EXPECT_THAT(loader.failures(), ElementsAre(failureAt("plugins/a-broken.so", "a-broken.so"),
                                              failureAt("plugins/c-broken.so", "c-broken.so")));
}

TEST_F(LoaderTest, LeavesOtherFilesAlone) {
   brokenLibraryIs("plugins/notes.txt");
   brokenLibraryIs("plugins/so");
   EXPECT_EQ(loader.loadPlugins("plugins", "Test"), 0u);
   EXPECT_THAT(loader.failures(), IsEmpty());
}

TEST_F(LoaderTest, GoesThroughTheSearchPathInOrder) {
   fs::create_directories(root / "first/plugins");
   fs::create_directories(root / "third/plugins");
   libraryIs("first/plugins/one.so");
   libraryIs("third/plugins/two.so");
   brokenLibraryIs("third/plugins/broken.so");
   searchPathIs({(root / "first").string(), (root / "second").string(), (root / "third").string()});
   EXPECT_EQ(loader.loadPlugins("plugins", "Test"), 2u);
   EXPECT_THAT(loader.failures(), ElementsAre(failureAt("second/plugins", "No such file"),
                                              failureAt("third/plugins/broken.so", "")));
}

TEST_F(LoaderTest, KeepsTheFailuresOfEveryCall) {
   loader.loadPlugins("nowhere", "Test");
   loader.loadPlugins("elsewhere", "Test");
   EXPECT_THAT(loader.failures(), ElementsAre(failureAt("nowhere", ""), failureAt("elsewhere", "")));
}

TEST_F(LoaderTest, SaysOnStandardErrorWhatWasNotLoaded) {
   brokenLibraryIs("plugins/broken.so");
   libraryIs("plugins/good.so");
   testing::internal::CaptureStderr();
   loader.loadPlugins("plugins", "Thing");
   auto said = testing::internal::GetCapturedStderr();
   EXPECT_THAT(said,
               AllOf(HasSubstr("Thing not loaded: "), HasSubstr("broken.so"), Not(HasSubstr("good.so"))));
}

} // namespace
} // namespace Plugin
