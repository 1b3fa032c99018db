#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/TypeInfo.h"

namespace Nuv {

class EnumType;

/// One value of an enumeration: what its two `...Instance` functions find.
struct ZANDOR_EXPORT EnumInstance {
   EnumType const* type;
   unsigned number;
   Pelm::String name;
};

/// An enumeration, known to the type system from construction to destruction: its values by number and by
/// name.
class ZANDOR_EXPORT EnumType final : public TypeInfo {
 public:
   struct Value {
      unsigned number;
      Pelm::String name;
   };

   EnumType(Pelm::String name, Module const& module, std::vector<Value> const& values);

   std::vector<EnumInstance> const& instances() const { return instances_; }

   /// The value; a `RangeException` names the enumeration when it has none of that number or name.
   EnumInstance const& instance(unsigned number) const;
   EnumInstance const& instance(Pelm::String const& name) const;

   /// The value's name, or its number in decimal where the enumeration has none.
   Pelm::String stringValue(unsigned number) const;

   /// Reads a value's name.
   EnumInstance const& parse(TextRange& range) const;

   /// The values `from` to `to`, each named by its number.
   static std::vector<Value> numbered(unsigned from, unsigned to);

 private:
   std::vector<EnumInstance> instances_;
};

} // namespace Nuv
