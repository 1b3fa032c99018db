#include "platform/nuv/EnumType.h"

#include <algorithm>

namespace Nuv {

EnumType::EnumType(Pelm::String name, Module const& module, std::vector<Value> const& values)
    : TypeInfo(std::move(name), module, Kind::enumeration) {
   for (auto const& value : values) {
      instances_.push_back({this, value.number, value.name});
   }
}

EnumInstance const&
EnumType::instance(unsigned number) const {
   auto found = std::find_if(instances_.begin(), instances_.end(),
                             [number](EnumInstance const& value) { return value.number == number; });
   if (found == instances_.end()) {
      throw RangeException(text(name(), " has no value ", number));
   }
   return *found;
}

EnumInstance const&
EnumType::instance(Pelm::String const& valueName) const {
   auto found = std::find_if(instances_.begin(), instances_.end(),
                             [&](EnumInstance const& value) { return value.name == valueName; });
   if (found == instances_.end()) {
      // The name may be anything, of any length: the range shows what can be shown.
      throw RangeException(TextRange(valueName).expected("a value of " + name()));
   }
   return *found;
}

Pelm::String
EnumType::stringValue(unsigned number) const {
   auto found = std::find_if(instances_.begin(), instances_.end(),
                             [number](EnumInstance const& value) { return value.number == number; });
   return found == instances_.end() ? text(number) : found->name;
}

EnumInstance const&
EnumType::parse(TextRange& range) const {
   auto after = range;
   auto const& found = instance(Pelm::String(after.word()));
   range = after;
   return found;
}

std::vector<EnumType::Value>
EnumType::numbered(unsigned from, unsigned to) {
   std::vector<Value> values;
   for (unsigned number = from; number <= to; ++number) {
      values.push_back({number, text(number)});
   }
   return values;
}

} // namespace Nuv
