#include "tables/testing/NextHopTest.h"

#include <algorithm>

namespace ZandorL3Tunnel {
namespace {

/// What is done to an interface and to a next hop over it.
enum class Act : std::uint8_t { interfaceIsThere, interfaceGoes, isWritten, isRewritten, isDropped };

/// What the chip does meanwhile.
enum class Trouble : std::uint8_t {
   none,
   ingressFirst,
   egressFirst,
   interfaceRefused,
   ingressRefused,
   egressRefused,
   interfaceLost,
   ingressLost,
   egressLost,
   deletesRefused,
   troubles
};

// A next hop's story in every order of its acts, and with every trouble: after each row nothing points at
// what is not there, and in the end it is as if nothing had been.
class NextHopOrdersTest : public NextHopTest {
 protected:
   void begin(Trouble trouble) {
      auto const* interfaceTable = "EgrL3Oif2";
      auto const* ingress = "IngL3NextHop2Table";
      auto const* egress = "EgrL3NextHop2";
      switch (trouble) {
      case Trouble::ingressFirst:
         faults->delay({egress, {}, {}}, 5);
         break;
      case Trouble::egressFirst:
         faults->delay({ingress, {}, {}}, 5);
         break;
      case Trouble::interfaceRefused:
      case Trouble::ingressRefused:
      case Trouble::egressRefused:
         faults->refuse({trouble == Trouble::interfaceRefused ? interfaceTable
                         : trouble == Trouble::ingressRefused ? ingress
                                                              : egress,
                         {},
                         true},
                        1);
         break;
      case Trouble::interfaceLost:
      case Trouble::ingressLost:
      case Trouble::egressLost:
         faults->lose({trouble == Trouble::interfaceLost ? interfaceTable
                       : trouble == Trouble::ingressLost ? ingress
                                                         : egress,
                       {},
                       {}},
                      1);
         break;
      case Trouble::deletesRefused:
         faults->refuse({{}, {}, false}, 2);
         break;
      default:
         break;
      }
   }

   // A next hop can only be over an interface that there is; it keeps the one that it has.
   void act(Act what) {
      switch (what) {
      case Act::interfaceIsThere:
         interface(1, ++vlan);
         break;
      case Act::interfaceGoes:
         interfaces->entryRemove(1);
         break;
      case Act::isWritten:
      case Act::isRewritten:
         if (interfaces->entryHas(1)) {
            handle = write(7, what == Act::isWritten ? 1 : 2, 1);
         }
         break;
      default:
         handle = nullptr;
         break;
      }
   }

   void run(std::vector<Act> const& acts, Trouble trouble, unsigned turns) {
      begin(trouble);
      for (auto what : acts) {
         act(what);
         for (unsigned turn = 0; turn < turns; ++turn) {
            loop.runOne();
         }
      }
      faults->stop();
      loop.runUntilIdle();
      // Whatever went wrong is made up for by writing anew.
      interface(1, ++vlan);
      handle = write(7, 3, 1);
      loop.runUntilIdle();
      ASSERT_EQ(handle->entryState(), State::success);
      ASSERT_TRUE(handle->isHwIndexValid());
      ASSERT_EQ(rowsPresent(), 3u);
      handle = nullptr;
      expectNothingLeft();
   }

   std::uint16_t vlan{};
   Handle handle;
};

TEST_F(NextHopOrdersTest, EveryOrderOfActsUnderEveryTroubleEndsWell) {
   for (auto trouble = Trouble::none; trouble < Trouble::troubles; trouble = Trouble(unsigned(trouble) + 1)) {
      for (unsigned turns : {0u, 1u, 100u}) {
         std::vector<Act> acts{Act::interfaceIsThere, Act::interfaceIsThere, Act::interfaceGoes,
                               Act::isWritten,        Act::isRewritten,      Act::isDropped};
         do {
            SCOPED_TRACE(testing::Message() << "trouble " << unsigned(trouble) << ", turns " << turns
                                            << ", acts " << testing::PrintToString(acts));
            run(acts, trouble, turns);
            if (HasFailure()) {
               return;
            }
         } while (std::next_permutation(acts.begin(), acts.end()));
      }
   }
}

} // namespace
} // namespace ZandorL3Tunnel
