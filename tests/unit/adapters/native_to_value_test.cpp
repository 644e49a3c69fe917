#include "runtime/data/native_to_value.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bindings/com/orbane/test.h"
#include "runtime/data/adapt.h"
#include "test_values.h"

namespace {

namespace T = Com::Orbane::Test;
using namespace TestValues;
using Lumo::MessageList;
using Lumo::Data::As;
using Lumo::Data::CompoundValue;
using Lumo::Data::DataValue;
using Lumo::Data::DynamicStructure;
using Lumo::Data::Kind;
using Lumo::Data::ListValue;
using Lumo::Data::OptionalValue;
using Lumo::Data::StructValue;
using Lumo::Data::ToValue;

std::shared_ptr<T::Leaf const> MakeLeaf(std::string const& name) {
  auto leaf = std::make_shared<T::Leaf>();
  leaf->name = name;
  return leaf;
}

T::Containers FullContainers() {
  T::Containers record;
  record.leaf = MakeLeaf("one");
  record.leaves = {MakeLeaf("a"), MakeLeaf("b")};
  record.names = {"z", "a"};
  record.tags = {"z", "a"};
  record.colours = {T::Colour::GREEN, T::Colour::RED};
  record.numbers = {3, 1};
  record.byName = {{"k", MakeLeaf("v")}};
  record.grid = {{"row", {1, 2}}};
  return record;
}

template <typename N>
void ExpectValue(N const& native, DataValuePtr const& expected) {
  MessageList errors;
  DataValuePtr const value = ToValue(native, errors);
  ASSERT_TRUE(errors.empty()) << errors.front().defaultMessage();
  ASSERT_TRUE(value);
  EXPECT_TRUE(DataValue::Equals(*value, *expected)) << value->ToString() << "\n" << expected->ToString();
}

template <typename N>
void ExpectFault(N const& native, std::string const& id, std::list<std::string> const& args) {
  MessageList errors;
  DataValuePtr const value = ToValue(native, errors);
  EXPECT_FALSE(value);
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors.front().id(), id);
  EXPECT_EQ(errors.front().args(), args);
}

DataValuePtr LeafValue(std::string const& name) {
  return Struct("com.orbane.test.leaf", {{"name", Text(name)}, {"size", Unset()}});
}

TEST(NativeToValue, ScalarsAreWrapped) {
  ExpectValue(true, Flag(true));
  ExpectValue(-7LL, Int(-7));
  ExpectValue(1.5, Real(1.5));
  ExpectValue(std::string("a"), Text("a"));
  ExpectValue(Lumo::Secret("s"), Lumo::Data::SecretValue::GetInstance("s"));
  ExpectValue(Lumo::DateTime(), Text("1970-01-01T00:00:00.000Z"));
  ExpectValue(Lumo::Void(), Null());
}

TEST(NativeToValue, EnumeratorsAreTheirTexts) {
  ExpectValue(T::Colour(T::Colour::GREEN), Text("GREEN"));
  ExpectValue(T::Colour(T::Colour::UNKNOWN, "PUCE"), Text("PUCE"));
  ExpectFault(T::Colour(), "lumo.data.unset.field", {"com.orbane.test.colour"});
}

TEST(NativeToValue, ARecordHasAllFieldsInDeclaredOrder) {
  ExpectValue(FullContainers(),
              Struct("com.orbane.test.containers",
                     {{"leaf", LeafValue("one")},
                      {"leaves", ListOf({LeafValue("a"), LeafValue("b")})},
                      {"names", ListOf({Text("z"), Text("a")})},
                      {"tags", ListOf({Text("a"), Text("z")}, ListValue::Form::Set)},
                      {"colours", ListOf({Text("RED"), Text("GREEN")}, ListValue::Form::EnumSet)},
                      {"numbers", ListOf({Int(1), Int(3)}, ListValue::Form::Set)},
                      {"by_name", MapOf({{"k", LeafValue("v")}})},
                      {"grid", MapOf({{"row", ListOf({Int(1), Int(2)})}})}}));
}

TEST(NativeToValue, AnUnsetSharedPointerIsTheOnlyFault) {
  T::Containers record = FullContainers();
  record.leaf = nullptr;
  record.leaves.push_back(nullptr);
  ExpectFault(record, "lumo.data.unset.non.optional.field", {"com.orbane.test.leaf"});
  ExpectFault(std::list<std::shared_ptr<T::Leaf const>>{nullptr, nullptr},
              "lumo.data.unset.non.optional.field", {"com.orbane.test.leaf"});
}

TEST(NativeToValue, AFaultDropsAllPendingWork) {
  Lumo::Data::NativeToValueStack work;
  DataValuePtr destination;
  std::shared_ptr<T::Leaf const> const unset;
  MessageList errors;
  work.push_front({Lumo::Data::NativeConstPtr(&unset), nullptr, nullptr, &destination});
  Lumo::Data::NativeToValueAdapter::SharedPtrMethod<T::Leaf const>(Lumo::Data::NativeConstPtr(&unset),
                                                                   &destination, work, errors);
  EXPECT_TRUE(work.empty());
  EXPECT_EQ(errors.size(), 1U);
}

TEST(NativeToValue, AnEmptyMapIsAnEmptyListInMapForm) {
  MessageList errors;
  auto const list = As<ListValue>(ToValue(std::map<std::string, std::string>(), errors));
  ASSERT_TRUE(list);
  EXPECT_EQ(list->form(), ListValue::Form::Map);
  EXPECT_EQ(list->size(), 0U);
}

TEST(NativeToValue, MapEntriesStandInOrderOfTheKeys) {
  MessageList errors;
  auto const list = As<ListValue>(ToValue(std::map<std::string, long long>{{"b", 2}, {"a", 1}}, errors));
  ASSERT_TRUE(list);
  ASSERT_EQ(list->size(), 2U);
  auto const* first = As<StructValue>(list->Item(0));
  ASSERT_TRUE(first);
  EXPECT_EQ(first->name(), "map-entry");
  EXPECT_EQ(first->FieldName(0), "key");
  EXPECT_EQ(first->FieldName(1), "value");
  EXPECT_TRUE(DataValue::Equals(*list, *MapOf({{"a", Int(1)}, {"b", Int(2)}})));
}

TEST(NativeToValue, UnsetOptionalsAreUnsetValues) {
  ExpectValue(T::Optionals(), Struct("com.orbane.test.optionals", {{"leaf", Unset()},
                                                                   {"text", Unset()},
                                                                   {"flag", Unset()},
                                                                   {"colour", Unset()},
                                                                   {"anything", Unset()},
                                                                   {"names", Unset()},
                                                                   {"by_name", Unset()}}));
}

TEST(NativeToValue, SetOptionalsHoldTheirValue) {
  T::Optionals record;
  record.leaf = MakeLeaf("x");
  record.text = "t";
  record.flag = false;
  record.colour = T::Colour(T::Colour::RED);
  DataValuePtr const held = Int(5);
  record.anything = DynamicStructure(held);
  record.names = std::list<std::string>{"n"};
  record.byName = std::map<std::string, std::shared_ptr<T::Leaf const>>{};
  ExpectValue(record, Struct("com.orbane.test.optionals", {{"leaf", Set(LeafValue("x"))},
                                                           {"text", Set(Text("t"))},
                                                           {"flag", Set(Flag(false))},
                                                           {"colour", Set(Text("RED"))},
                                                           {"anything", Set(Int(5))},
                                                           {"names", Set(ListOf({Text("n")}))},
                                                           {"by_name", Set(MapOf({}))}}));
}

TEST(NativeToValue, ADynamicStructureIsSharedAndNotCopied) {
  DataValuePtr const held = Object({{"a", Int(1)}});
  MessageList errors;
  EXPECT_EQ(ToValue(DynamicStructure(held), errors).get(), held.get());
}

TEST(NativeToValue, AnEmptyDynamicStructureIsAFault) {
  ExpectFault(DynamicStructure(), "lumo.data.unset.field", {"DynamicStructure"});
}

TEST(NativeToValue, MessagesAreStructures) {
  ExpectValue(Lumo::BaseMessage("an.id", "text x", {"x"}),
              Struct("com.orbane.lumo.std.localizable_message", {{"id", Text("an.id")},
                                                                 {"default_message", Text("text x")},
                                                                 {"args", ListOf({Text("x")})},
                                                                 {"localized", Unset()}}));
}

TEST(NativeToValue, DeepRecordsCostHeapAndNoStack) {
  constexpr int kDepth = 100000;
  std::shared_ptr<T::Chain> top;
  for (int level = 0; level < kDepth; ++level) {
    auto link = std::make_shared<T::Chain>();
    link->next = std::shared_ptr<T::Chain const>(std::move(top));
    top = std::move(link);
  }
  MessageList errors;
  DataValuePtr value = ToValue(std::shared_ptr<T::Chain const>(top), errors);
  ASSERT_TRUE(value);
  int depth = 0;
  for (DataValue const* at = value.get(); at != nullptr; ++depth) {
    at = As<OptionalValue>(As<CompoundValue>(at)->Find("next"))->Inner();
  }
  EXPECT_EQ(depth, kDepth);
  value.reset();
  // Records are taken apart from the top, since their own destruction would nest.
  std::shared_ptr<T::Chain const> rest = std::move(top);
  while (rest) {
    rest = std::shared_ptr<T::Chain const>(rest->next.ptr());
  }
}

}  // namespace
