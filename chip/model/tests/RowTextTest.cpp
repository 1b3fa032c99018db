#include "chip/model/RowText.h"

#include "chip/model/Layouts.h"
#include "chip/model/testing/RowsTest.h"

namespace ModelChip {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RowTextTest : public RowsTest {
 protected:
   /// An interface row with VLAN tag `vlan`.
   void interfaceIs(Asic::Index index, std::uint64_t vlan) {
      Words words(3);
      EgrL3Oif2::valid.pack(words, 1);
      EgrL3Oif2::tagged.pack(words, 1);
      EgrL3Oif2::vlanTag.pack(words, vlan);
      EgrL3Oif2::srcMac.pack(words, 0x020000000001);
      interfaces().rowIs(index, words, *owner, nullptr);
      loop.runUntilIdle();
   }
};

TEST_F(RowTextTest, ARowIsItsWordsAndItsFields) {
   interfaceIs(5, 100);
   EXPECT_EQ(rowText(interfaces(), 5), "EgrL3Oif2 row 5: 00640003 00000001 00000200 "
                                       "valid=1 tagged=1 vlanTag=100 srcMac=0x020000000001");
}

TEST_F(RowTextTest, WhereThereIsNoRowItSaysSo) {
   EXPECT_EQ(rowText(interfaces(), 299), "EgrL3Oif2 row 299: none");
   EXPECT_EQ(rowText(interfaces(), 300), "EgrL3Oif2 row 300: none");
   EXPECT_THAT(rowTexts(interfaces()), IsEmpty());
}

TEST_F(RowTextTest, AllRowsOfATableComeInTheOrderOfTheirIndices) {
   interfaceIs(299, 3);
   interfaceIs(0, 1);
   interfaceIs(7, 2);
   EXPECT_THAT(rowTexts(interfaces()),
               ElementsAre(rowText(interfaces(), 0), rowText(interfaces(), 7), rowText(interfaces(), 299)));
}

// Each field appears once, with the value that was packed and no other.
TEST_F(RowTextTest, ShowsEveryFieldOfEveryLayout) {
   for (auto const* layout : layouts) {
      SCOPED_TRACE(layout->name);
      for (auto const& field : layout->fields) {
         Words words(layout->wordsPerRow);
         field.pack(words, 1);
         auto text = ' ' + fieldsText(*layout, words) + ' ';
         for (auto const& shown : layout->fields) {
            Pelm::String value(shown.name == field.name ? "1" : "0");
            if (shown.width > 32) {
               value = "0x" + Pelm::String((shown.width + 3) / 4 - 1, '0') + value;
            }
            EXPECT_THAT(text, testing::HasSubstr(Nuv::text(" ", shown.name, "=", value, " ")));
         }
      }
   }
}

} // namespace
} // namespace ModelChip
