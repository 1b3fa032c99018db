#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Module.h"
#include "platform/nuv/NuvType.h"
#include "platform/nuv/Ptr.h"
#include "platform/nuv/TextRange.h"

#include <tuple>
#include <vector>

namespace Nuv {

/// One published attribute of a type.
struct ZANDOR_EXPORT AttributeInfo {
   Pelm::String name;

   /// The text form of the attribute of `object`, which must be of the type.
   Pelm::String (*text)(void const* object);

   /// Sets the attribute from its text form; a `RangeException` says why it cannot. Null when it is only
   /// published.
   void (*textIs)(void* object, Pelm::StringView text);
};

/// What the type system knows of one type: found by its full name while the type's library is loaded.
class ZANDOR_EXPORT TypeInfo {
 public:
   enum class Kind : std::uint8_t { valueType, classType, enumeration };

   TypeInfo(TypeInfo const&) = delete;
   TypeInfo& operator=(TypeInfo const&) = delete;

   Pelm::String const& name() const { return name_; }
   Module const& module() const { return module_; }
   Kind kind() const { return kind_; }

   /// The attributes; the position of one is its id.
   std::vector<AttributeInfo> const& attributes() const { return attributes_; }
   /// The attribute of that name, or null.
   AttributeInfo const* attribute(Pelm::StringView name) const;

   /// Hash, order, copy and text of values; null for a class.
   NuvType const* valueType() const { return valueType_; }

   /// A new object of a class that is made from a name alone; null for any other type.
   Ptr<Object> make(Pelm::String const& objectName) const { return make_ ? make_(objectName) : nullptr; }

   /// The type of that full name, or null.
   static TypeInfo const* find(Pelm::StringView name);
   /// Every type that is registered now, in the order of registration.
   static std::vector<TypeInfo const*> registered();

 protected:
   using Make = Ptr<Object> (*)(Pelm::String const& objectName);

   TypeInfo(Pelm::String name, Module const& module, Kind kind);
   ~TypeInfo();

   std::vector<AttributeInfo> attributes_;
   NuvType const* valueType_{};
   Make make_{};

 private:
   Pelm::String name_;
   Module const& module_;
   Kind kind_;
};

/// Registers record `R`, from its list of fields, as long as it exists.
template <class R>
class ZANDOR_EXPORT RegisteredValue final : public TypeInfo {
 public:
   explicit RegisteredValue(Module const& module) : TypeInfo(R::typeName(), module, Kind::valueType) {
      valueType_ = &nuvType<R>();
      fieldsAre(std::make_index_sequence<std::tuple_size_v<decltype(R::fieldList().fields)>>());
   }

 private:
   template <std::size_t... at>
   void fieldsAre(std::index_sequence<at...>) {
      (attributes_.push_back(fieldAt<at>()), ...);
   }

   template <std::size_t at>
   static AttributeInfo fieldAt() {
      static constexpr auto field = std::get<at>(R::fieldList().fields);
      return {field.name,
              [](void const* record) { return Nuv::text(static_cast<R const*>(record)->*field.member); },
              [](void* record, Pelm::StringView from) {
                 auto value = static_cast<R*>(record)->*field.member;
                 TextRange range(from);
                 parseText(range, value);
                 range.requireEnd();
                 static_cast<R*>(record)->*field.member = value;
              }};
   }
};

/// One attribute in the list of a class: its name and the member function that reads it.
template <class Getter>
struct ZANDOR_EXPORT Attribute {
   char const* name;
   Getter getter;
};

template <class Getter>
constexpr Attribute<Getter>
attribute(char const* name, Getter getter) {
   return {name, getter};
}

/// What a class returns for a collection that it publishes: there is one, and it has no text of its own.
struct ZANDOR_EXPORT PublishedCollection {
   friend void appendText(Pelm::String& out, PublishedCollection) { out.append("None"); }
};

/// Registers class `T`, from its `attributeList()`, a tuple of `attribute`s, as long as it exists. `make`
/// makes an object from a name, for classes that need nothing else.
template <class T>
class ZANDOR_EXPORT RegisteredClass final : public TypeInfo {
 public:
   explicit RegisteredClass(Module const& module, Make makeNamed = nullptr)
       : TypeInfo(T::typeName(), module, Kind::classType) {
      make_ = makeNamed;
      attributesAre(std::make_index_sequence<std::tuple_size_v<decltype(T::attributeList())>>());
   }

 private:
   template <std::size_t... at>
   void attributesAre(std::index_sequence<at...>) {
      (attributes_.push_back(attributeAt<at>()), ...);
   }

   // Classes guard what they hold; whoever wants to change it calls them.
   template <std::size_t at>
   static AttributeInfo attributeAt() {
      static constexpr auto published = std::get<at>(T::attributeList());
      return {published.name,
              [](void const* object) {
                 return Nuv::text((static_cast<T const*>(object)->*published.getter)());
              },
              nullptr};
   }
};

} // namespace Nuv
