#include "platform/nuv/EnumType.h"
#include "platform/nuv/Record.h"

#include <gmock/gmock.h>

namespace Nuv {
namespace {

struct Point : Record<Point> {
   std::uint16_t x{};
   bool isFilled{};

   static constexpr auto fieldList() {
      return Nuv::fieldList("Test::Point", field("x", &Point::x), filledField("isFilled", &Point::isFilled));
   }
};

class Named final : public Object {
 public:
   explicit Named(Pelm::String name) : name_(std::move(name)) {}

   static constexpr char const* typeName() { return "Test::Named"; }
   static constexpr auto attributeList() { return std::tuple(attribute("name", &Named::name)); }

   Pelm::String const& name() const { return name_; }

 private:
   Pelm::String name_;
};

Module const&
testModule() {
   static Module const module("TypeInfoTest");
   return module;
}

TEST(TypeInfoTest, TypeIsFoundByNameWhileItIsRegistered) {
   EXPECT_EQ(TypeInfo::find("Test::Point"), nullptr);
   {
      RegisteredValue<Point> const type(testModule());
      EXPECT_EQ(TypeInfo::find("Test::Point"), &type);
      EXPECT_EQ(type.kind(), TypeInfo::Kind::valueType);
      EXPECT_EQ(type.module().name(), "TypeInfoTest");
   }
   EXPECT_EQ(TypeInfo::find("Test::Point"), nullptr);
}

TEST(TypeInfoTest, FieldsAreReadAndSetByName) {
   RegisteredValue<Point> const type(testModule());
   Point point;
   point.x = 7;
   ASSERT_EQ(type.attributes().size(), 2u);
   EXPECT_EQ(type.attributes()[0].name, "x");
   EXPECT_EQ(type.attribute("x")->text(&point), "7");
   type.attribute("x")->textIs(&point, "65535");
   EXPECT_EQ(point.x, 65535);
   EXPECT_THROW(type.attribute("x")->textIs(&point, "65536"), RangeException);
   EXPECT_THROW(type.attribute("x")->textIs(&point, "1x"), RangeException);
   EXPECT_EQ(point.x, 65535);
   EXPECT_EQ(type.attribute("y"), nullptr);
}

TEST(TypeInfoTest, ValuesAreHandledWithoutTheirType) {
   RegisteredValue<Point> const type(testModule());
   auto const& values = *type.valueType();
   Point point;
   point.x = 7;
   void* copy = values.copy(&point);
   EXPECT_TRUE(values.equal(&point, copy));
   EXPECT_EQ(values.hash(&point, 5), values.hash(copy, 5));
   static_cast<Point*>(copy)->x = 8;
   EXPECT_FALSE(values.equal(&point, copy));
   EXPECT_TRUE(values.less(&point, copy));
   values.destroy(copy);
}

TEST(TypeInfoTest, ObjectsAreMadeByTheNameOfTheirClass) {
   RegisteredClass<Named> const type(
         testModule(), [](Pelm::String const& name) { return Ptr<Object>(Nuv::make<Named>(name)); });
   auto object = TypeInfo::find("Test::Named")->make("me");
   ASSERT_TRUE(object);
   auto const* published = type.attribute("name");
   EXPECT_EQ(published->text(static_cast<Named const*>(object.get())), "me");
   EXPECT_EQ(published->textIs, nullptr);
   RegisteredClass<Named> const withoutFactory(testModule());
   EXPECT_FALSE(withoutFactory.make("me"));
}

TEST(EnumTypeTest, FindsValuesByNumberAndByName) {
   EnumType const type("Test::Colour", testModule(), {{1, "red"}, {4, "blue"}});
   EXPECT_EQ(type.instance(4).name, "blue");
   EXPECT_EQ(type.instance("red").number, 1u);
   EXPECT_EQ(type.instance("red").type, &type);
   EXPECT_THROW(type.instance(2), RangeException);
   EXPECT_THROW(type.instance("green"), RangeException);
   EXPECT_EQ(type.stringValue(1), "red");
   EXPECT_EQ(type.stringValue(2), "2");
}

TEST(EnumTypeTest, ParsesNamesAndLeavesTheRangeWhereItFailed) {
   EnumType const type("Test::Colour", testModule(), {{1, "red"}, {4, "blue"}});
   TextRange range("blue!");
   EXPECT_EQ(type.parse(range).number, 4u);
   EXPECT_EQ(range.rest(), "!");
   EXPECT_THROW(type.parse(range), RangeException);
   EXPECT_EQ(range.rest(), "!");
}

} // namespace
} // namespace Nuv
