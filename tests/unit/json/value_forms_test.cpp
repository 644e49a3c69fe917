// Values to text and back: each kind in both forms.
#include <gtest/gtest.h>

#include <limits>
#include <ostream>
#include <string>

#include "runtime/json/serializers.h"
#include "tests/unit/json/tree.h"

namespace Lumo::Protocol::Json {
namespace {

using namespace Data;
using namespace Tree;

struct FormCase {
  char const* name;
  DataValuePtr value;
  char const* full;
  char const* direct;
};
void PrintTo(FormCase const& test, std::ostream* out) {
  *out << test.name;
}

FormCase const kForms[] = {
    {"void", Void(), "null", "null"},
    {"true", Bool(true), "true", "true"},
    {"false", Bool(false), "false", "false"},
    {"integer", Int(-17), "-17", "-17"},
    {"least integer", Int(std::numeric_limits<long long>::min()), "-9223372036854775808",
     "-9223372036854775808"},
    {"largest integer", Int(std::numeric_limits<long long>::max()), "9223372036854775807",
     "9223372036854775807"},
    {"whole double", Real(5), "5.0", "5.0"},
    {"double", Real(0.1), "0.1", "0.1"},
    {"large double", Real(1e300), "1e300", "1e300"},
    {"negative zero", Real(-0.0), "-0.0", "-0.0"},
    {"text", Str("a\"b\\c\n\t\x01 \xC3\xA4\xF0\x9F\x98\x80"),
     "\"a\\\"b\\\\c\\n\\t\\u0001 \xC3\xA4\xF0\x9F\x98\x80\"",
     "\"a\\\"b\\\\c\\n\\t\\u0001 \xC3\xA4\xF0\x9F\x98\x80\""},
    {"binary", BinaryValue::GetInstance(std::string_view("\0\xFFz!", 4)), R"({"@binary":"AP96IQ=="})",
     R"("AP96IQ==")"},
    {"secret", SecretValue::GetInstance("pw"), R"({"@secret":"pw"})", R"("pw")"},
    {"unset optional", Unset(), R"({"@optional":null})", "null"},
    {"set optional", Optional(Int(1)), R"({"@optional":1})", "1"},
    {"optional in optional", Optional(Optional(Int(1))), R"({"@optional":{"@optional":1}})", "1"},
    {"unset in list", List(Form::List, {Unset(), Int(2)}), R"([{"@optional":null},2])", "[null,2]"},
    {"empty list", List(Form::List, {}), "[]", "[]"},
    {"list", List(Form::List, {Int(1), List(Form::List, {})}), "[1,[]]", "[1,[]]"},
    {"set", List(Form::Set, {Int(1), Int(2)}), R"({"@set":[1,2]})", "[1,2]"},
    {"enumset", List(Form::EnumSet, {Str("A")}), R"({"@enumset":["A"]})", R"(["A"])"},
    {"map", List(Form::Map, {Entry(Str("a"), Int(1)), Entry(Str("b"), Unset())}),
     R"({"@map":[{"key":"a","value":1},{"key":"b","value":{"@optional":null}}]})", R"({"a":1,"b":null})"},
    {"empty map", List(Form::Map, {}), R"({"@map":[]})", "{}"},
    {"map with numbers", List(Form::Map, {Entry(Int(7), Str("x"))}), R"({"@map":[{"key":7,"value":"x"}]})",
     R"({"7":"x"})"},
    {"structure", Struct("a.b", {{"x", Int(1)}, {"y", Unset()}, {"z", Optional(Str("t"))}}),
     R"({"@struct":"a.b","x":1,"y":{"@optional":null},"z":{"@optional":"t"}})", R"({"x":1,"z":"t"})"},
    {"unnamed structure", Struct("", {{"x", Void()}}), R"({"@struct":"","x":null})", R"({"x":null})"},
    {"field with an at sign", Struct("n", {{"@struct", Int(1)}, {"@@a", Int(2)}}),
     R"({"@struct":"n","@@struct":1,"@@@a":2})", R"({"@struct":1,"@@a":2})"},
    {"error", Error("e.not_found", {{"error_type", Str("NOT_FOUND")}}),
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

std::string Full(DataValuePtr const& value) {
  std::shared_ptr<ErrorValue const> error;
  std::string text;
  JsonDataSerializer<0>::SerializeValue(value, text, error);
  return error ? error->ToString() : text;
}

std::string Direct(DataValuePtr const& value) {
  std::shared_ptr<ErrorValue const> error;
  std::string text;
  JsonDirectDataSerializer<0>::SerializeValue(value, text, error);
  return error ? error->ToString() : text;
}

TEST(Writer, WritesNullForANullValueAndForEmptySlots) {
  auto list = ListValue::GetInstance(Form::List);
  list->AddSlot();
  auto optional = OptionalValue::GetInstance();
  optional->value(nullptr);
  list->Add(optional);
  EXPECT_EQ(Full(nullptr), "null");
  EXPECT_EQ(Direct(nullptr), "null");
  EXPECT_EQ(Full(list), R"([null,{"@optional":null}])");
  EXPECT_EQ(Direct(list), "[null,null]");
}

TEST(Writer, LeavesOutAFieldWhoseInnermostOptionalIsUnset) {
  EXPECT_EQ(Direct(Struct("n", {{"a", Optional(Unset())}, {"b", Int(1)}})), R"({"b":1})");
}

TEST(Writer, MapKeysInTheDirectFormAreTexts) {
  auto const map = List(Form::Map, {Entry(Int(-1), Int(1)), Entry(Bool(true), Int(2)),
                                    Entry(Real(0.5), Int(3)), Entry(Optional(Str("o")), Int(4))});
  EXPECT_EQ(Direct(map), R"({"-1":1,"true":2,"0.5":3,"o":4})");
}

TEST(Writer, RefusesWhatJsonCannotHoldAndLeavesTheTextAlone) {
  struct Case {
    DataValuePtr value;
    bool inFullForm;
    bool inDirectForm;
  } const cases[] = {
      {Real(std::numeric_limits<double>::infinity()), false, false},
      {Real(-std::numeric_limits<double>::infinity()), false, false},
      {Real(std::numeric_limits<double>::quiet_NaN()), false, false},
      {List(Form::Map, {Int(1)}), false, false},
      {List(Form::Map, {nullptr}), false, false},
      {List(Form::Map, {Struct("map-entry", {{"key", Str("a")}})}), false, false},
      {List(Form::Map, {Struct("map-entry", {{"value", Str("a")}, {"key", Str("a")}})}), false, false},
      {List(Form::Map, {Entry(List(Form::List, {}), Int(1))}), true, false},
      {List(Form::Map, {Entry(Void(), Int(1))}), true, false},
      {List(Form::Map, {Entry(Unset(), Int(1))}), true, false},
  };
  for (Case const& test : cases) {
    std::shared_ptr<ErrorValue const> error;
    std::string text = "before";
    JsonDataSerializer<0>::SerializeValue(List(Form::List, {Int(1), test.value}), text, error);
    EXPECT_EQ(error == nullptr, test.inFullForm) << text;
    EXPECT_EQ(text == "before", !test.inFullForm);
    text = "before";
    JsonDirectDataSerializer<0>::SerializeValue(List(Form::List, {Int(1), test.value}), text, error);
    EXPECT_EQ(error == nullptr, test.inDirectForm) << text;
    EXPECT_EQ(text == "before", !test.inDirectForm);
    if (error) {
      EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.internal_server_error");
    }
  }
}

TEST(Writer, ReplacesBytesThatAreNotUtf8) {
  EXPECT_EQ(Direct(Str("a\xFF"
                       "b\xC3")),
            "\"a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD\"");
  EXPECT_EQ(Direct(Str("\xED\xA0\x80")), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
  EXPECT_EQ(Direct(Struct("", {{"\xC0\x80", Int(1)}})), "{\"\xEF\xBF\xBD\xEF\xBF\xBD\":1}");
}

// Texts of every length around the sizes of machine words and buffers, with one byte to escape at every
// place.
TEST(Writer, EscapesAtEveryPlace) {
  for (std::size_t const size : {1, 3, 4, 7, 8, 9, 15, 16, 17, 31, 33, 64, 511, 512, 513, 4096, 9000}) {
    std::string const plain(size, 'x');
    EXPECT_EQ(Direct(Str(plain)), "\"" + plain + "\"");
    for (std::size_t at = 0; at<size; at += size> 64 ? 61 : 1) {
      std::string text = plain;
      text[at] = '"';
      std::string const expected = "\"" + plain.substr(0, at) + "\\\"" + plain.substr(at + 1) + "\"";
      ASSERT_EQ(Direct(Str(text)), expected);
      ASSERT_EQ(Direct(Struct("", {{text, Int(1)}})), "{" + expected + ":1}");
    }
  }
}

TEST(Writer, EscapesEachControlCharacter) {
  for (int code = 0; code < 0x20; ++code) {
    std::shared_ptr<ErrorValue const> error;
    std::string const text(1, static_cast<char>(code));
    DataValuePtr const back = JsonDirectDataDeserializer::Deserialize(Direct(Str(text)), error);
    ASSERT_TRUE(back) << code;
    EXPECT_EQ(As<StringValue>(back)->value(), text);
  }
  EXPECT_EQ(Direct(Str("\b\f\n\r\t\x1F\x7F/")), "\"\\b\\f\\n\\r\\t\\u001f\x7F/\"");
}

TEST(Writer, IndentsByItsParameter) {
  std::shared_ptr<ErrorValue const> error;
  auto const value = Struct("n", {{"a", List(Form::List, {Int(1), Int(2)})},
                                  {"b", List(Form::List, {})},
                                  {"m", List(Form::Map, {Entry(Str("k"), Struct("", {}))})}});
  std::string text;
  JsonDirectDataSerializer<2>::SerializeValue(value, text, error);
  EXPECT_EQ(text, "{\n  \"a\": [\n    1,\n    2\n  ],\n  \"b\": [],\n  \"m\": {\n    \"k\": {}\n  }\n}");
  text.clear();
  JsonDataSerializer<4>::SerializeValue(value, text, error);
  DataValuePtr const back = JsonDataDeserializer::Deserialize(text, error);
  ASSERT_TRUE(back) << text;
  EXPECT_TRUE(DataValue::Equals(*back, *value)) << text;
}

}  // namespace
}  // namespace Lumo::Protocol::Json
