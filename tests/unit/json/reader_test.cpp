// What the readers take, and what it becomes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "runtime/json/serializers.h"
#include "tests/unit/json/tree.h"

namespace Lumo::Protocol::Json {
namespace {

using namespace Data;
using namespace Tree;

DataValuePtr ReadFull(std::string_view text) {
  std::shared_ptr<ErrorValue const> error;
  auto value = JsonDataDeserializer::Deserialize(text, error);
  EXPECT_TRUE(value) << text << " " << (error ? error->ToString() : "");
  return value;
}

DataValuePtr ReadDirect(std::string_view text) {
  std::shared_ptr<ErrorValue const> error;
  auto value = JsonDirectDataDeserializer::Deserialize(text, error);
  EXPECT_TRUE(value) << text << " " << (error ? error->ToString() : "");
  return value;
}

struct Reading {
  char const* text;
  DataValuePtr value;
};

TEST(Reader, ReadsScalars) {
  Reading const readings[] = {
      {" \t\r\n null \n", Void()},
      {"0", Int(0)},
      {"-0", Int(0)},
      {"9223372036854775807", Int(9223372036854775807)},
      {"-9223372036854775808", Int(-9223372036854775807 - 1)},
      {"1.0", Real(1)},
      {"-0.0", Real(-0.0)},
      {"0e0", Real(0)},
      {"1E2", Real(100)},
      {"1e+2", Real(100)},
      {"25e-1", Real(2.5)},
      {"0.1", Real(0.1)},
      {"5e-324", Real(5e-324)},
      {"1e-400", Real(0)},
      {"-1e-400", Real(-0.0)},
      {"2.2250738585072011e-308", Real(2.2250738585072011e-308)},
      {"1.7976931348623157e308", Real(1.7976931348623157e308)},
      {"9007199254740993.0", Real(9007199254740992.0)},
      {"123456789012345678901234567890.0", Real(123456789012345678901234567890.0)},
      {"9223372036854775808e0", Real(9223372036854775808.0)},
      {R"("")", Str("")},
      {R"("\"\\\/\b\f\n\r\t")", Str("\"\\/\b\f\n\r\t")},
      {R"("\u0041\u00e4\u20AC\uD83D\ude00")", Str("A\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80")},
      {R"("a\u0000b")", Str(std::string_view("a\0b", 3))},
      {R"("\uFFFF\uFFFE")", Str("\xEF\xBF\xBF\xEF\xBF\xBE")},
      {"\"\xF4\x8F\xBF\xBF\x7F\"", Str("\xF4\x8F\xBF\xBF\x7F")},
  };
  for (Reading const& reading : readings) {
    EXPECT_TRUE(DataValue::Equals(*ReadFull(reading.text), *reading.value)) << reading.text;
    EXPECT_TRUE(DataValue::Equals(*ReadDirect(reading.text), *reading.value)) << reading.text;
  }
}

TEST(Reader, TakesPlainObjectsAsStructuresWithoutName) {
  auto const expected = Struct("", {{"b", List(Form::List, {Int(1), Void()})}, {"a", Struct("", {})}});
  EXPECT_TRUE(DataValue::Equals(*ReadFull(R"({"b":[1,null],"a":{}})"), *expected));
  EXPECT_TRUE(DataValue::Equals(*ReadDirect(R"({ "b" : [ 1 , null ] , "a" : { } })"), *expected));
}

TEST(Reader, AnnotationsMeanNothingInTheDirectForm) {
  EXPECT_TRUE(DataValue::Equals(
      *ReadDirect(R"({"@struct":"n","@@x":{"@set":[]}})"),
      *Struct("", {{"@struct", Str("n")}, {"@@x", Struct("", {{"@set", List(Form::List, {})}})}})));
}

TEST(Reader, TakesAnnotationsInAnyOrderAndSpelling) {
  Reading const readings[] = {
      {R"({"a":1,"@struct":"n","b":2})", Struct("n", {{"a", Int(1)}, {"b", Int(2)}})},
      {R"({"a":1,"@error":"e"})", Error("e", {{"a", Int(1)}})},
      {R"({"\u0040struct":"n"})", Struct("n", {})},
      {R"({"@@a":1})", Struct("", {{"@a", Int(1)}})},
      {R"({"@map":[{"value":1,"key":"k"}]})", List(Form::Map, {Entry(Str("k"), Int(1))})},
      {R"({"@map":[{"@struct":"map-entry","key":"k","value":1}]})",
       List(Form::Map, {Entry(Str("k"), Int(1))})},
      {R"({"@map":[{"key":{"@optional":1},"value":{"@set":[]}}]})",
       List(Form::Map, {Entry(Optional(Int(1)), List(Form::Set, {}))})},
      {R"({"@binary":""})", BinaryValue::GetInstance("")},
      {R"({"@binary":"\u0041A=="})", BinaryValue::GetInstance(std::string_view("\0", 1))},
      {R"({"@optional":{"@optional":null}})", Optional(Unset())},
  };
  for (Reading const& reading : readings) {
    DataValuePtr const value = ReadFull(reading.text);
    ASSERT_TRUE(value);
    EXPECT_TRUE(DataValue::Equals(*value, *reading.value)) << reading.text << " " << value->ToString();
  }
}

TEST(Reader, OwningPointersKeepTheWholeDocument) {
  DataValuePtr text;
  DataValuePtr optional;
  {
    DataValuePtr const document =
        ReadFull(R"({"list":[{"name":"a text that is long enough to need memory"}],"o":{"@optional":"x"}})");
    auto const structure = As<StructValue>(document);
    MessageList errors;
    DataValuePtr list;
    ASSERT_TRUE(structure->GetField("list", list, errors));
    DataValuePtr const item = As<ListValue>(list)->GetItem(0);
    text = As<StructValue>(item)->GetFieldValue(0);
    ASSERT_TRUE(structure->GetField("o", optional, errors));
    optional = As<OptionalValue>(optional)->GetInner();
    EXPECT_FALSE(structure->GetField("none", list, errors));
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors.front().id(), "lumo.data.field.missing");
    EXPECT_EQ(errors.front().args(), std::list<std::string>{"none"});
  }
  EXPECT_EQ(As<StringValue>(text)->value(), "a text that is long enough to need memory");
  EXPECT_EQ(As<StringValue>(optional)->value(), "x");
}

TEST(Reader, PartsOfADocumentCanBePutIntoBuiltValues) {
  auto structure = StructValue::GetInstance("built");
  structure->SetField("part", As<ListValue>(ReadFull("[[1,2],3]"))->GetItem(0));
  EXPECT_EQ(structure->ToString(), R"(built{"part":[1,2]})");
}

TEST(Reader, ReadsLargeDocuments) {
  std::string text = "[";
  for (int item = 0; item < 50'000; ++item)
    text += R"({"name":"item","value":)" + std::to_string(item) + "},";
  DataValuePtr const value = ReadDirect(text + "null]");
  auto const list = As<ListValue>(value);
  ASSERT_TRUE(list);
  ASSERT_EQ(list->size(), 50'001U);
  auto const* last = As<StructValue>(list->Item(49'999));
  ASSERT_TRUE(last);
  EXPECT_EQ(As<IntegerValue>(last->Find("value"))->value(), 49'999);
  // A small document after a large one, with the working space of both.
  EXPECT_EQ(ReadDirect("[1]")->ToString(), "[1]");
}

// Trees of all kinds, built at random; each comes back from its full form as it was, and from what is read of
// its direct form the direct form is written again.
class RandomTrees {
 public:
  explicit RandomTrees(unsigned seed) : random_(seed) {}

  DataValuePtr Make(int depth) {
    switch (Below(depth > 0 ? 15 : 8)) {
      case 0:
        return Void();
      case 1:
        return Bool(Below(2) == 1);
      case 2:
        return Int(static_cast<long long>(random_()));
      case 3:
        return Int(static_cast<long long>(Below(2000)) - 1000);
      case 4:
        return Real(Double());
      case 5:
        return Str(Text());
      case 6:
        return BinaryValue::GetInstance(Bytes());
      case 7:
        return SecretValue::GetInstance(Text());
      case 8:
        return Below(3) == 0 ? Unset() : Optional(NotVoid(depth - 1));
      case 9:
        return Items(Form::List, depth);
      case 10:
        return Items(Form::Set, depth);
      case 11:
        return EnumSet();
      case 12:
        return Map(depth);
      case 13:
        return Compound<ErrorValue>(depth);
      default:
        return Compound<StructValue>(depth);
    }
  }

 private:
  std::size_t Below(std::size_t limit) { return random_() % limit; }

  // A void in an optional reads back as an unset one.
  DataValuePtr NotVoid(int depth) {
    DataValuePtr value = Make(depth);
    return value->GetKind() == Kind::Void ? Int(0) : value;
  }

  double Double() {
    for (;;) {
      std::uint64_t const bits = random_();
      double value = 0;
      std::memcpy(&value, &bits, sizeof value);
      if (std::isfinite(value))
        return Below(2) == 0 ? value : std::round(std::fmod(value, 1e6)) / 8;
    }
  }

  std::string Bytes() {
    std::string bytes;
    for (std::size_t count = Below(20); count > 0; --count)
      bytes += static_cast<char>(random_());
    return bytes;
  }

  std::string Text() {
    static char const* const kPieces[] = {"a",
                                          "Z",
                                          "\"",
                                          "\\",
                                          "\n",
                                          "\x01",
                                          "\xC3\xA4",
                                          "\xE2\x82\xAC",
                                          "\xF0\x9F\x98\x80",
                                          "@",
                                          "plain words ",
                                          "/",
                                          "\x7F"};
    std::string text;
    for (std::size_t count = Below(24); count > 0; --count)
      text += kPieces[Below(std::size(kPieces))];
    return text;
  }

  DataValuePtr Items(Form form, int depth) {
    auto list = ListValue::GetInstance(form);
    for (std::size_t count = Below(5); count > 0; --count)
      list->Add(Make(depth - 1));
    return list;
  }

  DataValuePtr EnumSet() {
    auto list = ListValue::GetInstance(Form::EnumSet);
    for (std::size_t count = Below(4); count > 0; --count)
      list->Add(Str(Text()));
    return list;
  }

  DataValuePtr Map(int depth) {
    auto list = ListValue::GetInstance(Form::Map);
    for (std::size_t count = Below(4); count > 0; --count) {
      list->Add(Entry(Str(Text() + std::to_string(count)), Make(depth - 1)));
    }
    return list;
  }

  template <typename T>
  DataValuePtr Compound(int depth) {
    auto compound = T::GetInstance(Text());
    for (std::size_t count = Below(30); count > 0; --count) {
      compound->SetField((Below(4) == 0 ? "@" : "") + Text(), Make(depth - 1));
    }
    return compound;
  }

  std::mt19937_64 random_;
};

TEST(RoundTrip, OfRandomTrees) {
  for (unsigned seed = 0; seed < 400; ++seed) {
    DataValuePtr const tree = RandomTrees(seed).Make(5);
    std::shared_ptr<ErrorValue const> error;
    std::string full;
    JsonDataSerializer<0>::SerializeValue(tree, full, error);
    ASSERT_FALSE(error) << seed;
    DataValuePtr const back = ReadFull(full);
    ASSERT_TRUE(back && DataValue::Equals(*back, *tree)) << seed << " " << full;
    std::string again;
    JsonDataSerializer<0>::SerializeValue(back, again, error);
    ASSERT_EQ(again, full) << seed;

    std::string direct;
    JsonDirectDataSerializer<0>::SerializeValue(tree, direct, error);
    ASSERT_FALSE(error) << seed;
    again.clear();
    JsonDirectDataSerializer<0>::SerializeValue(ReadDirect(direct), again, error);
    ASSERT_EQ(again, direct) << seed;
  }
}

}  // namespace
}  // namespace Lumo::Protocol::Json
