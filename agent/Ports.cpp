#include "agent/Ports.h"

namespace L3TunnelAgent {

std::optional<std::uint16_t>
Ports::numberIs(int device) {
   if (auto const standing = number(device)) {
      return standing;
   }
   std::uint16_t number = 0;
   if (!free_.empty()) {
      number = free_.back();
      free_.pop_back();
      devices_[number - 1U] = device;
   } else if (devices_.size() < most) {
      devices_.push_back(device);
      number = std::uint16_t(devices_.size());
   } else {
      return std::nullopt;
   }
   numbers_.emplace(device, number);
   return number;
}

std::optional<std::uint16_t>
Ports::number(int device) const {
   auto const found = numbers_.find(device);
   return found == numbers_.end() ? std::nullopt : std::optional(found->second);
}

int
Ports::device(std::uint16_t number) const {
   return number >= 1 && number <= devices_.size() ? devices_[number - 1U] : 0;
}

void
Ports::keepOnly(std::set<std::uint16_t> const& numbers) {
   for (std::size_t number = devices_.size(); number >= 1; --number) {
      int& device = devices_[number - 1];
      if (device != 0 && !numbers.contains(std::uint16_t(number))) {
         numbers_.erase(device);
         device = 0;
         free_.push_back(std::uint16_t(number));
      }
   }
}

} // namespace L3TunnelAgent
