#include "agent/views/Audit.h"
#include "agent/tests/FabricDriver.h"
#include "agent/tests/PlayedAgent.h"
#include "chip/model/Layouts.h"
#include "platform/asic/testing/TinyTable.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using Kind = AuditFinding::Kind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

/// A fabric with three destinations: two over one set of two vias, one to the CPU. A test damages its chip.
class AuditTest : public testing::Test {
 protected:
   AuditTest() {
      fabric.destinationIs(destination(1, {unicastVia(1, 11), unicastVia(2, 12, 2, 100)}));
      fabric.destinationIs(destination(2, {unicastVia(1, 11), unicastVia(2, 12, 2, 100)}));
      fabric.destinationIs(destination(3, {otherVia(ViaKind::cpu)}));
      fabric.settle();
   }

   ModelChip::Table& table(ModelChip::RowLayout const& layout) { return *fabric.chip().table(layout.table); }

   /// Changes a field of a row behind everybody's back.
   void fieldIs(ModelChip::RowLayout const& layout, ModelChip::BitField const& field, Asic::Index index,
                std::uint64_t value) {
      auto const row = table(layout).row(index);
      field.pack({const_cast<std::uint32_t*>(row.data()), row.size()}, value);
   }

   Asic::Index groupOf(std::uint32_t number) {
      return fabric.destinations().at(address(number)).group->hwEntryIndex();
   }
   Asic::Index blockOf(std::uint32_t number) {
      return fabric.destinations().at(address(number)).current->block->hwEntryIndex();
   }

   AuditFinding onlyFinding() {
      auto const result = audit(fabric);
      EXPECT_THAT(result.findings, SizeIs(1)) << text(result, Paint());
      return result.findings.empty() ? AuditFinding() : result.findings.front();
   }

   // Small, since some tests go through all of it often.
   Fabric fabric{{.sizes = {{"EgrL3Oif2", 16},
                            {"IngL3NextHop2Table", 16},
                            {"EgrL3NextHop2", 16},
                            {"L3EcmpMember0Table", 16},
                            {"L3UnderlayEcmpMember1Table", 16},
                            {"L3EcmpGroup0Table", 16}}}};
   Nuv::Ptr<Asic::TinyTable> strange = Nuv::make<Asic::TinyTable>();
   Nuv::Ptr<Asic::TinyHandle> stranger = Nuv::make<Asic::TinyHandle>(strange.get());
};

TEST_F(AuditTest, FindsNothingWhereNothingIsWrong) {
   auto const result = audit(fabric);
   EXPECT_THAT(result.findings, IsEmpty());
   // Interfaces, both halves of three next hops, members, groups.
   EXPECT_EQ(result.compared, 2U + 2 * 3 + 3 + 3);
   EXPECT_EQ(result.passedOver, 0U);
   EXPECT_EQ(text(result, Paint()), "14 rows compared: none differs from the software tables.\n");
}

TEST_F(AuditTest, FindsNothingInAnyRecordedFabric) {
   for (auto const* name : {"small", "mixed", "mixed-inline", "big"}) {
      auto const agent = playedAgent(name);
      auto const result = audit(agent->fabric());
      EXPECT_THAT(result.findings, IsEmpty()) << name << "\n" << text(result, Paint());
      std::size_t rows = 0;
      for (auto const& each : agent->fabric().chip().tables()) {
         rows += each->rowsPresent();
      }
      EXPECT_EQ(result.compared, rows) << name;
   }
}

TEST_F(AuditTest, WrongFieldIsNamedWithItsOwnerAndWhoUsesIt) {
   namespace Row = ModelChip::L3EcmpGroup0Table;
   fieldIs(Row::layout, Row::numPaths, groupOf(2), 9);
   auto const found = onlyFinding();
   EXPECT_EQ(found.kind, Kind::differs);
   EXPECT_EQ(found.table, "L3EcmpGroup0Table");
   EXPECT_EQ(found.index, groupOf(2));
   EXPECT_EQ(found.owner, "group of adjacency 2");
   EXPECT_THAT(found.destinations, ElementsAre(address(2)));
   ASSERT_THAT(found.differences, SizeIs(1));
   EXPECT_EQ(found.differences[0].field, "numPaths");
   EXPECT_EQ(found.differences[0].expected, "2");
   EXPECT_EQ(found.differences[0].found, "9");
   EXPECT_THAT(text(audit(fabric), Paint()),
               HasSubstr("row differs; it is group of adjacency 2 for 10.0.0.2\n  numPaths is 9, not 2\n"));
   fieldIs(Row::layout, Row::numPaths, groupOf(2), 2);
   EXPECT_THAT(audit(fabric).findings, IsEmpty());
}

TEST_F(AuditTest, EveryBitOfEveryRowIsCompared) {
   for (auto const& each : fabric.chip().tables()) {
      for (Asic::Index index = 0; index < each->numEntries(); ++index) {
         if (!each->hasRow(index)) {
            continue;
         }
         auto const row = each->row(index);
         for (std::size_t bit = 0; bit < row.size() * 32; ++bit) {
            auto& word = const_cast<std::uint32_t&>(row[bit / 32]);
            word ^= 1U << bit % 32;
            EXPECT_EQ(onlyFinding().index, index) << each->shape().name << " bit " << bit;
            word ^= 1U << bit % 32;
         }
      }
   }
   EXPECT_THAT(audit(fabric).findings, IsEmpty());
}

TEST_F(AuditTest, SharedRowsNameAllTheirUsers) {
   namespace Member = ModelChip::L3UnderlayEcmpMember1Table;
   fieldIs(Member::layout, Member::nextHop, blockOf(1) + 1, 77);
   auto found = onlyFinding();
   EXPECT_EQ(found.owner, "member 1 of the block of 2 at " + std::to_string(blockOf(1)));
   EXPECT_THAT(found.destinations, ElementsAre(address(1), address(2)));
   fieldIs(Member::layout, Member::nextHop, blockOf(1) + 1,
           Member::nextHop.unpack(table(Member::layout).row(blockOf(1))));
   EXPECT_THAT(audit(fabric).findings, SizeIs(1));
}

TEST_F(AuditTest, NextHopAndInterfaceRowsAreComparedFieldByField) {
   namespace Interface = ModelChip::EgrL3Oif2;
   namespace Ingress = ModelChip::IngL3NextHop2Table;
   namespace Egress = ModelChip::EgrL3NextHop2;
   fieldIs(Interface::layout, Interface::srcMac, 1, 0x020000000009);
   fieldIs(Ingress::layout, Ingress::destinationId, 1, 99);
   fieldIs(Egress::layout, Egress::l3Oif, 1, 5);
   auto const shown = text(audit(fabric), Paint());
   EXPECT_THAT(shown, HasSubstr("EgrL3Oif2 row 1: row differs; it is interface 1 for 10.0.0.1, 10.0.0.2\n"
                                "  srcMac is 02:00:00:00:00:09, not 02:01:00:00:00:0"));
   EXPECT_THAT(shown, HasSubstr("destinationId is 99, not "));
   EXPECT_THAT(shown, HasSubstr("l3Oif is 5, not "));
   EXPECT_THAT(shown, HasSubstr("3 differ from the software tables"));
}

TEST_F(AuditTest, MissingRowIsFound) {
   auto const index = groupOf(3);
   // Whoever owns the row can have it cleared; its entry hears nothing of it.
   auto* const handle =
         dynamic_cast<Asic::SwTable::EntryHandle const*>(fabric.destinations().at(address(3)).group.get());
   ASSERT_TRUE(handle);
   table(ModelChip::L3EcmpGroup0Table::layout).rowDel(index, *handle, handle->swTable());
   fabric.settle();
   auto const found = onlyFinding();
   EXPECT_EQ(found.kind, Kind::missing);
   EXPECT_EQ(found.index, index);
   EXPECT_THAT(found.destinations, ElementsAre(address(3)));
   EXPECT_THAT(text(audit(fabric), Paint()),
               HasSubstr("row is missing; it is group of adjacency 3 for 10.0.0.3"));
}

TEST_F(AuditTest, RowsOfNoEntryAreFoundInEveryTable) {
   for (auto const& each : fabric.chip().tables()) {
      Asic::Index const index = each->numEntries() - 1;
      std::vector<std::uint32_t> words(each->layout().wordsPerRow);
      each->layout().fields.front().pack(words, 1);
      each->rowIs(index, words, *stranger, nullptr);
      fabric.settle();
      auto const found = onlyFinding();
      EXPECT_EQ(found.kind, Kind::foreign);
      EXPECT_EQ(found.table, each->shape().name);
      EXPECT_EQ(found.index, index);
      EXPECT_THAT(text(audit(fabric), Paint()), HasSubstr("row of no entry\n  valid is 1\n"));
      each->rowDel(index, *stranger, strange.get());
      fabric.settle();
   }
   EXPECT_THAT(audit(fabric).findings, IsEmpty());
}

TEST_F(AuditTest, RowsOfEntriesInProgressArePassedOver) {
   auto const faults = Nuv::make<ModelChip::Faults>();
   fabric.chip().faultsIs(faults);
   faults->lose({"L3EcmpGroup0Table", {}, {}});
   fabric.destinationIs(destination(4, {unicastVia(1, 11)}));
   fabric.settle();
   auto const result = audit(fabric);
   EXPECT_THAT(result.findings, IsEmpty());
   EXPECT_EQ(result.passedOver, 1U);
   EXPECT_THAT(text(result, Paint()), HasSubstr("1 row of entries that are not complete passed over."));
}

} // namespace
} // namespace L3TunnelAgent
