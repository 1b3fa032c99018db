#pragma once

#include "chip/model/RowLayout.h"

namespace ModelChip {

/// Egress interface: 3 words.
namespace EgrL3Oif2 {

inline constexpr BitField valid{"valid", 0, 1};
inline constexpr BitField tagged{"tagged", 1, 1};
inline constexpr BitField vlanTag{"vlanTag", 16, 16};
inline constexpr BitField srcMac{"srcMac", 32, 48};
inline constexpr BitField fields[] = {valid, tagged, vlanTag, srcMac};
inline constexpr RowLayout layout{"EgrL3Oif2", "model/EgrL3Oif2", 3, 8192, fields};

} // namespace EgrL3Oif2

/// Ingress next hop: 2 words.
namespace IngL3NextHop2Table {

inline constexpr BitField valid{"valid", 0, 1};
inline constexpr BitField destinationType{"destinationType", 8, 8};
inline constexpr BitField destinationId{"destinationId", 16, 16};
inline constexpr BitField strengthProfile{"strengthProfile", 32, 8};
inline constexpr BitField fields[] = {valid, destinationType, destinationId, strengthProfile};
inline constexpr RowLayout layout{"IngL3NextHop2Table", "model/IngL3NextHop2Table", 2, 65536, fields};

} // namespace IngL3NextHop2Table

/// Egress next hop: 3 words.
namespace EgrL3NextHop2 {

inline constexpr BitField valid{"valid", 0, 1};
inline constexpr BitField strengthProfile{"strengthProfile", 8, 8};
inline constexpr BitField l3Oif{"l3Oif", 16, 13};
inline constexpr BitField dstMac{"dstMac", 32, 48};
inline constexpr BitField fields[] = {valid, strengthProfile, l3Oif, dstMac};
inline constexpr RowLayout layout{"EgrL3NextHop2", "model/EgrL3NextHop2", 3, 65536, fields};

} // namespace EgrL3NextHop2

/// First-level ECMP member: 2 words.
namespace L3UnderlayEcmpMember1Table {

inline constexpr BitField valid{"valid", 0, 1};
inline constexpr BitField strengthProfile{"strengthProfile", 8, 8};
inline constexpr BitField nextHop{"nextHop", 32, 32};
inline constexpr BitField fields[] = {valid, strengthProfile, nextHop};
inline constexpr RowLayout layout{"L3UnderlayEcmpMember1Table", "model/L3UnderlayEcmpMember1Table", 2, 65536,
                                  fields};

} // namespace L3UnderlayEcmpMember1Table

/// Level-0 ECMP member: 3 words.
namespace L3EcmpMember0Table {

inline constexpr BitField valid{"valid", 0, 1};
inline constexpr BitField hasNextHop{"hasNextHop", 1, 1};
inline constexpr BitField hasDestination{"hasDestination", 2, 1};
inline constexpr BitField nextHop{"nextHop", 32, 32};
inline constexpr BitField destination{"destination", 64, 32};
inline constexpr BitField fields[] = {valid, hasNextHop, hasDestination, nextHop, destination};
inline constexpr RowLayout layout{"L3EcmpMember0Table", "model/L3EcmpMember0Table", 3, 65536, fields};

} // namespace L3EcmpMember0Table

/// ECMP group: 3 words.
namespace L3EcmpGroup0Table {

inline constexpr BitField valid{"valid", 0, 1};
inline constexpr BitField ecmpBlock{"ecmpBlock", 16, 16};
inline constexpr BitField numPaths{"numPaths", 32, 16};
inline constexpr BitField lbMode{"lbMode", 64, 32};
inline constexpr BitField fields[] = {valid, ecmpBlock, numPaths, lbMode};
inline constexpr RowLayout layout{"L3EcmpGroup0Table", "model/L3EcmpGroup0Table", 3, 16384, fields};

} // namespace L3EcmpGroup0Table

/// Every table of the chip.
inline constexpr RowLayout const* layouts[] = {
      &EgrL3Oif2::layout,          &IngL3NextHop2Table::layout,         &EgrL3NextHop2::layout,
      &L3EcmpMember0Table::layout, &L3UnderlayEcmpMember1Table::layout, &L3EcmpGroup0Table::layout};

} // namespace ModelChip
