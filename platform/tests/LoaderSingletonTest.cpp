#include "platform/loader/Singleton.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace Ancillary::Core::Loader {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

/// A singleton with plug-ins; `number` tells those of several tests apart, as each loads its own only once.
template <int number>
class Brings final : public Singleton {
 public:
   static Pelm::String prefix() { return "Plugins"; }
   static Pelm::String suffix() { return "Of" + std::to_string(number); }
   static Pelm::String fullName() { return "Test::Brings" + std::to_string(number); }

   Pelm::String prefixPath() const override { return prefix(); }
   Pelm::String suffixPath() const override { return suffix(); }
};

class LoaderSingletonTest : public testing::Test {
 protected:
   LoaderSingletonTest() {
      auto name = (fs::temp_directory_path() / "loader-singleton-test-XXXXXX").string();
      if (!mkdtemp(name.data())) {
         throw std::runtime_error("no temporary folder");
      }
      root = name;
      Plugin::searchPathIs({root.string()});
   }
   ~LoaderSingletonTest() override {
      Plugin::searchPathIs(before);
      fs::remove_all(root);
   }

   /// Asks for the singleton and returns what was said on standard error.
   template <int number>
   static Pelm::String saidBy() {
      testing::internal::CaptureStderr();
      auto singleton = Singleton::instantiate<Brings<number>>();
      auto said = testing::internal::GetCapturedStderr();
      EXPECT_TRUE(singleton);
      EXPECT_EQ(Singleton::instantiate<Brings<number>>(), singleton);
      return said;
   }

   std::vector<Pelm::String> const before = Plugin::searchPath();
   fs::path root;
};

TEST_F(LoaderSingletonTest, IsThereWithoutItsFolderWhichItNamesWithTheReason) {
   auto said = saidBy<1>();
   EXPECT_THAT(said, HasSubstr((root / "Plugins/Of1").string() + ": No such file or directory"));
   EXPECT_THAT(saidBy<1>(), IsEmpty()) << "plug-ins are loaded once";
}

TEST_F(LoaderSingletonTest, IsThereWithAFileThatIsNoLibraryWhichItNamesWithTheReason) {
   fs::create_directories(root / "Plugins/Of2");
   std::ofstream(root / "Plugins/Of2/broken.so") << "no library";
   fs::create_symlink(fs::path(before.front()) / "libZandorPlatform.so", root / "Plugins/Of2/good.so");
   auto said = saidBy<2>();
   EXPECT_THAT(said, HasSubstr((root / "Plugins/Of2/broken.so").string() + ": "));
   EXPECT_THAT(said, HasSubstr("file too short"));
   EXPECT_THAT(said, testing::Not(HasSubstr("good.so")));
}

} // namespace
} // namespace Ancillary::Core::Loader
