// Values to text and back: each kind in both forms.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "runtime/json/serializers.h"

namespace Lumo::Protocol::Json {
namespace {

using namespace Data;
using Form = ListValue::Form;

std::shared_ptr<ListValue> List(Form form, std::initializer_list<DataValuePtr> items) {
  auto list = ListValue::GetInstance(form);
  for (auto const& item : items)
    list->Add(item);
  return list;
}

template <typename Compound = StructValue>
std::shared_ptr<Compound> Record(std::string_view name,
                                 std::initializer_list<std::pair<std::string_view, DataValuePtr>> fields) {
  auto record = Compound::GetInstance(name);
  for (auto const& [field, value] : fields)
    record->SetField(field, value);
  return record;
}

DataValuePtr Int(long long value) {
  return IntegerValue::GetInstance(value);
}
DataValuePtr Str(std::string_view text) {
  return StringValue::GetInstance(text);
}
DataValuePtr Optional(DataValuePtr const& inner) {
  auto optional = OptionalValue::GetInstance();
  if (inner)
    optional->value(inner);
  return optional;
}
DataValuePtr Entry(DataValuePtr const& key, DataValuePtr const& value) {
  return Record("map-entry", {{"key", key}, {"value", value}});
}

struct FormCase {
  char const* name;
  DataValuePtr value;
  char const* full;
  char const* direct;
};

FormCase const kForms[] = {
    {"void", VoidValue::GetInstance(), "null", "null"},
    {"true", BooleanValue::GetInstance(true), "true", "true"},
    {"false", BooleanValue::GetInstance(false), "false", "false"},
    {"integer", Int(-17), "-17", "-17"},
    {"least integer", Int(std::numeric_limits<long long>::min()), "-9223372036854775808",
     "-9223372036854775808"},
    {"largest integer", Int(std::numeric_limits<long long>::max()), "9223372036854775807",
     "9223372036854775807"},
    {"whole double", DoubleValue::GetInstance(5), "5.0", "5.0"},
    {"double", DoubleValue::GetInstance(0.1), "0.1", "0.1"},
    {"large double", DoubleValue::GetInstance(1e300), "1e300", "1e300"},
    {"negative zero", DoubleValue::GetInstance(-0.0), "-0.0", "-0.0"},
    {"text", Str("a\"b\\c\n\t\x01 \xC3\xA4\xF0\x9F\x98\x80"),
     "\"a\\\"b\\\\c\\n\\t\\u0001 \xC3\xA4\xF0\x9F\x98\x80\"",
     "\"a\\\"b\\\\c\\n\\t\\u0001 \xC3\xA4\xF0\x9F\x98\x80\""},
    {"binary", BinaryValue::GetInstance(std::string_view("\0\xFFz!", 4)), R"({"@binary":"AP96IQ=="})",
     R"("AP96IQ==")"},
    {"secret", SecretValue::GetInstance("pw"), R"({"@secret":"pw"})", R"("pw")"},
    {"unset optional", Optional(nullptr), R"({"@optional":null})", "null"},
    {"set optional", Optional(Int(1)), R"({"@optional":1})", "1"},
    {"optional in optional", Optional(Optional(Int(1))), R"({"@optional":{"@optional":1}})", "1"},
    {"unset in list", List(Form::List, {Optional(nullptr), Int(2)}), R"([{"@optional":null},2])", "[null,2]"},
    {"empty list", List(Form::List, {}), "[]", "[]"},
    {"list", List(Form::List, {Int(1), List(Form::List, {})}), "[1,[]]", "[1,[]]"},
    {"set", List(Form::Set, {Int(1), Int(2)}), R"({"@set":[1,2]})", "[1,2]"},
    {"enumset", List(Form::EnumSet, {Str("A")}), R"({"@enumset":["A"]})", R"(["A"])"},
    {"map", List(Form::Map, {Entry(Str("a"), Int(1)), Entry(Str("b"), Optional(nullptr))}),
     R"({"@map":[{"key":"a","value":1},{"key":"b","value":{"@optional":null}}]})", R"({"a":1,"b":null})"},
    {"empty map", List(Form::Map, {}), R"({"@map":[]})", "{}"},
    {"map with numbers", List(Form::Map, {Entry(Int(7), Str("x"))}), R"({"@map":[{"key":7,"value":"x"}]})",
     R"({"7":"x"})"},
    {"structure", Record("a.b", {{"x", Int(1)}, {"y", Optional(nullptr)}, {"z", Optional(Str("t"))}}),
     R"({"@struct":"a.b","x":1,"y":{"@optional":null},"z":{"@optional":"t"}})", R"({"x":1,"z":"t"})"},
    {"unnamed structure", Record("", {{"x", VoidValue::GetInstance()}}), R"({"@struct":"","x":null})",
     R"({"x":null})"},
    {"field with an at sign", Record("n", {{"@struct", Int(1)}, {"@@a", Int(2)}}),
     R"({"@struct":"n","@@struct":1,"@@@a":2})", R"({"@struct":1,"@@a":2})"},
    {"error", Record<ErrorValue>("e.not_found", {{"error_type", Str("NOT_FOUND")}}),
     R"({"@error":"e.not_found","error_type":"NOT_FOUND"})", R"({"error_type":"NOT_FOUND"})"},
};

class Forms : public testing::TestWithParam<FormCase> {};

TEST_P(Forms, AreWritten) {
  std::shared_ptr<ErrorValue const> error;
  std::string full = "x";
  JsonDataSerializer<0>::SerializeValue(GetParam().value, full, error);
  EXPECT_EQ(full, std::string("x") + GetParam().full);
  std::string direct;
  JsonDirectDataSerializer<0>::SerializeValue(GetParam().value, direct, error);
  EXPECT_EQ(direct, GetParam().direct);
  EXPECT_FALSE(error);
}

TEST_P(Forms, FullFormGivesTheSameValue) {
  std::shared_ptr<ErrorValue const> error;
  DataValuePtr const value = JsonDataDeserializer::Deserialize(GetParam().full, error);
  ASSERT_TRUE(value) << error->ToString();
  EXPECT_TRUE(DataValue::Equals(*value, *GetParam().value)) << value->ToString();
}

INSTANTIATE_TEST_SUITE_P(All, Forms, testing::ValuesIn(kForms), [](auto const& test) {
  std::string name = test.param.name;
  for (char& letter : name) {
    if (letter == ' ')
      letter = '_';
  }
  return name;
});

}  // namespace
}  // namespace Lumo::Protocol::Json
