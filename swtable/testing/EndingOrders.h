#pragma once

#include <algorithm>
#include <numeric>
#include <vector>

namespace ZandorL3Tunnel {

/// Lets the parts of something go in every order: `make()` returns a new something for each order, whose
/// `end(part)` lets a part go, from 0 to `parts` - 1. Whatever may still happen then happens in its `turn()`.
template <class Make>
void
endInEveryOrder(unsigned parts, Make&& make) {
   std::vector<unsigned> order(parts);
   std::iota(order.begin(), order.end(), 0u);
   do {
      auto something = make();
      for (auto part : order) {
         something->end(part);
         something->turn();
      }
   } while (std::next_permutation(order.begin(), order.end()));
}

} // namespace ZandorL3Tunnel
