#include "chip/model/testing/ChipTest.h"
#include "platform/asic/DontCareHandle.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3EcmpMember0Table.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {
namespace {

class EntryTextTest : public ModelChip::ChipTest {
 protected:
   template <class Entry>
   static void expectRoundTrip(Entry const& entry, Pelm::String const& text) {
      EXPECT_EQ(valueToStrep(entry), text);
      auto read = Nuv::valueFromText<Entry>(text);
      EXPECT_EQ(read, entry);
      EXPECT_EQ(valueToStrep(read), text);
   }

   static Pelm::String addressOf(Handle const& handle) { return Nuv::text(handle); }
};

TEST_F(EntryTextTest, InterfaceEntry) {
   EgrL3Oif2::Entry entry;
   entry.isUnderlayL2HdrTagged = true;
   entry.srcMacAddress = {{2, 0, 0, 0, 0, 1}};
   entry.tnlVlanTag = 4095;
   Pelm::String const text = "Value('ZandorL3Tunnel::EgrL3Oif2::Entry', ** {'isUnderlayL2HdrTagged': True, "
                             "'srcMacAddress': 02:00:00:00:00:01, 'tnlVlanTag': 4095})";
   expectRoundTrip(entry, text);
   // Blanks behind a key do not count here.
   EXPECT_EQ(Nuv::valueFromText<EgrL3Oif2::Entry>(
                   "Value('ZandorL3Tunnel::EgrL3Oif2::Entry', ** {'isUnderlayL2HdrTagged':True, "
                   "'srcMacAddress':   02:00:00:00:00:01, 'tnlVlanTag':4095})"),
             entry);
}

TEST_F(EntryTextTest, IngressNextHopEntry) {
   IngL3NextHop2Table::Entry entry;
   entry.destinationId = 65535;
   entry.destinationType = 4;
   entry.strengthProfileIndex = 255;
   expectRoundTrip(entry, "Value('ZandorL3Tunnel::IngL3NextHop2Table::Entry', ** {'destinationId': 65535, "
                          "'destinationType': 4, 'strengthProfileIndex': 255})");
}

TEST_F(EntryTextTest, EgressNextHopEntryWithAHandleThatIsAlive) {
   auto interfaces = egrL3Oif2Factory("EgrL3Oif2");
   EgrL3NextHop2::Entry entry;
   entry.l3Oif2Handle = interfaces->entryRef(5, EgrL3Oif2::Entry());
   entry.l3Oif2 = U13(5);
   auto text = "Value('ZandorL3Tunnel::EgrL3NextHop2::Entry', ** {'l3Oif2Handle': " +
               addressOf(entry.l3Oif2Handle) +
               ", 'l3Oif2': 5, 'dstMacAddress': 00:00:00:00:00:00, 'strengthProfileIndex': 0})";
   expectRoundTrip(entry, text);
   entry = {};
   try {
      Nuv::valueFromText<EgrL3NextHop2::Entry>(text);
      FAIL() << "a pointer was made from text alone";
   } catch (Nuv::DeserializeException const& error) {
      EXPECT_EQ(error.field(), "l3Oif2Handle");
   }
}

TEST_F(EntryTextTest, HandlesOfTextAreNullOrDoNotCareOrAlive) {
   EXPECT_FALSE(Nuv::valueFromText<Handle>("0x0"));
   auto any = SwTableWorkaround::dontCareHandle(3);
   EXPECT_EQ(Nuv::valueFromText<Handle>(addressOf(any)), any);
   EXPECT_THROW(Nuv::valueFromText<Handle>("0x10"), Nuv::RangeException);
   EXPECT_THROW(Nuv::valueFromText<Handle>("10"), Nuv::RangeException);
   EXPECT_THROW(Nuv::valueFromText<Handle>("0x"), Nuv::RangeException);
   EXPECT_THROW(Nuv::valueFromText<Handle>("0x" + Pelm::String(17, 'f')), Nuv::RangeException);
}

TEST_F(EntryTextTest, GroupEntry) {
   L3EcmpGroup0Table::Entry entry;
   entry.ecmpBlockPtr = 7;
   entry.lbMode = 4294967295;
   entry.numPaths = 3;
   expectRoundTrip(entry, "Value('ZandorL3Tunnel::L3EcmpGroup0Table::Entry', ** {'ecmpBlockPtrHandle': 0x0, "
                          "'ecmpBlockPtr': 7, 'lbMode': 4294967295, 'numPaths': 3})");
}

TEST_F(EntryTextTest, MemberEntries) {
   L3EcmpMember0Table::Entry member0;
   member0.underlayDestinationHandle = SwTableWorkaround::dontCareHandle(2);
   member0.underlayDestination = 2;
   expectRoundTrip(member0,
                   "Value('ZandorL3Tunnel::L3EcmpMember0Table::Entry', ** {'nextHopEntryHandle': 0x0, "
                   "'underlayDestinationHandle': " +
                         addressOf(member0.underlayDestinationHandle) +
                         ", 'nextHopEntry': 0, 'underlayDestination': 2})");
   L3UnderlayEcmpMember1Table::Entry member1;
   member1.strengthProfile = 200;
   expectRoundTrip(member1, "Value('ZandorL3Tunnel::L3UnderlayEcmpMember1Table::Entry', ** "
                            "{'underlayEcmpNextHopIndexHandle': 0x0, 'strengthProfile': 200, "
                            "'underlayEcmpNextHopIndex': 0})");
}

TEST_F(EntryTextTest, Level0MemberNamesANextHopAndADestination) {
   auto interfaces = egrL3Oif2Factory("EgrL3Oif2");
   interfaces->doInit(unit, stateDatabase, chip->chipInfo());
   auto members = l3EcmpMember0TableFactory();
   members->doInit(unit, stateDatabase, chip->chipInfo());
   L3EcmpMember0Table::Entry member;
   member.nextHopEntryHandle = interfaces->entryRef(5, EgrL3Oif2::Entry());
   member.underlayDestinationHandle = interfaces->entryRef(6, EgrL3Oif2::Entry());
   L3EcmpMember0Table::EntryBlock block;
   block.entryIs(0, member);
   member = {};
   auto handle = members->entryBlockRef(block);
   block = {};
   EXPECT_EQ(handle->entryState(), State::unresolved);
   loop.runUntilIdle();
   EXPECT_TRUE(handle->isHwIndexValid());
   auto row = chip->table("L3EcmpMember0Table")->row(0);
   EXPECT_EQ(ModelChip::L3EcmpMember0Table::nextHop.unpack(row), 5u);
   EXPECT_EQ(ModelChip::L3EcmpMember0Table::destination.unpack(row), 6u);
   rowsApplied.clear();
   handle = nullptr;
   loop.runUntilIdle();
   ASSERT_EQ(rowsApplied.size(), 3u);
   EXPECT_EQ(rowsApplied.front(), "L3EcmpMember0Table cleared 0");
   EXPECT_EQ(interfaces->handles().size(), 0u);
}

TEST(TableTypesTest, TablesAreMadeByTheNameOfTheirType) {
   for (auto const* name : {"EgrL3Oif2", "L3EcmpGroup0Table", "L3EcmpMember0Table",
                            "L3UnderlayEcmpMember1Table", "IngL3NextHop2Table", "EgrL3NextHop2",
                            "L3NextHop2Table", "L3EcmpMember0SharedAllocator", "L3NextHop2SharedAllocator"}) {
      auto const* type = Nuv::TypeInfo::find(Pelm::String("ZandorL3Tunnel::") + name);
      ASSERT_TRUE(type) << name;
      auto object = type->make("made");
      ASSERT_TRUE(object) << name;
      EXPECT_EQ(object->fwkType().module, &type->module()) << name;
      EXPECT_EQ(object->fwkType().kind, 4u);
      EXPECT_TRUE(object->hasNotificationActive());
   }
}

} // namespace
} // namespace ZandorL3Tunnel
