#include "types/SwFieldTypes.h"

#include "platform/nuv/Module.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("SwFieldTypes");

} // namespace

U13::U13(std::uint32_t value) : value_(std::uint16_t(value)) {
   if (value > max) {
      throw Nuv::RangeException("U13::value < 0 or > 0x1fff not allowed");
   }
}

} // namespace ZandorL3Tunnel
