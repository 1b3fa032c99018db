#include "tables/L3NextHop2Table.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3NextHop2TableUserImpl");

} // namespace

// Index 0 stays unused: a row that points nowhere in particular must not hit somebody's next hop.
void
L3NextHop2Table::doReserveIndicesAtTableInit() {
   indexAllocator()->reserveIndices(0, 1);
}

} // namespace ZandorL3Tunnel
