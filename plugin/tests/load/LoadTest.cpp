#include "platform/nuv/TypeInfo.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

// A process that is not linked with the library: what it knows of the library's types comes from loading it.
class Library {
 public:
   Library() : handle_(dlopen(L3TUNNEL_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
   ~Library() {
      if (handle_) {
         dlclose(handle_);
      }
   }
   Library(Library const&) = delete;
   Library& operator=(Library const&) = delete;

   bool isLoaded() const { return handle_ != nullptr; }

 private:
   void* handle_;
};

constexpr char const* modules[] = {"EgrL3Oif2",
                                   "L3EcmpGroup0Table",
                                   "L3EcmpMember0SharedAllocator",
                                   "L3EcmpMember0Table",
                                   "L3NextHop2SharedAllocator",
                                   "L3NextHop2Table",
                                   "L3NextHop2TableUserImpl",
                                   "L3UnderlayEcmpMember1Table",
                                   "L3UnderlayEcmpProgrammer",
                                   "L3UnderlayNextHopExternalKey",
                                   "SwFieldTypes"};

constexpr char const* types[] = {"L3ViaEntry",
                                 "L3UnderlayNextHopKey",
                                 "L3Via",
                                 "DestinationType",
                                 "L3UnderlayIngNextHopStrengthProfileIndex",
                                 "L3UnderlayEgrNextHopStrengthProfileIndex",
                                 "EgrL3Oif2",
                                 "EgrL3Oif2::Entry",
                                 "L3EcmpGroup0Table",
                                 "L3EcmpGroup0Table::Entry",
                                 "L3EcmpMember0Table",
                                 "L3EcmpMember0Table::Entry",
                                 "L3UnderlayEcmpMember1Table",
                                 "L3UnderlayEcmpMember1Table::Entry",
                                 "IngL3NextHop2Table",
                                 "IngL3NextHop2Table::Entry",
                                 "EgrL3NextHop2",
                                 "EgrL3NextHop2::Entry",
                                 "L3NextHop2Table",
                                 "L3NextHop2SharedAllocator",
                                 "L3EcmpMember0SharedAllocator",
                                 "L3UnderlayEcmpProgrammer"};

void
expectRegistered(bool isRegistered) {
   for (auto const* name : modules) {
      EXPECT_EQ(Nuv::Module::find(name) != nullptr, isRegistered) << name;
   }
   for (auto const* name : types) {
      EXPECT_EQ(Nuv::TypeInfo::find(Pelm::String("ZandorL3Tunnel::") + name) != nullptr, isRegistered)
            << name;
   }
}

TEST(LoadTest, LoadingRegistersEveryTypeAndUnloadingTakesThemAway) {
   expectRegistered(false);
   for (int round = 0; round < 3; ++round) {
      {
         Library library;
         ASSERT_TRUE(library.isLoaded()) << dlerror();
         expectRegistered(true);
      }
      expectRegistered(false);
   }
}

TEST(LoadTest, TypesOfALoadedLibraryCanBeUsedByName) {
   Library library;
   ASSERT_TRUE(library.isLoaded()) << dlerror();
   auto vias = Nuv::TypeInfo::find("ZandorL3Tunnel::L3Via")->make("");
   ASSERT_TRUE(vias);
   EXPECT_EQ(vias->fwkType().module->name(), "L3UnderlayNextHopExternalKey");
   EXPECT_EQ(vias->fwkType().kind, 4u);
   // It has to go before the library that its code lies in.
   vias = nullptr;
}

} // namespace
