// What the readers refuse, and what they say about it.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "runtime/json/document_reader.h"
#include "runtime/json/serializers.h"
#include "tests/unit/json/tree.h"

namespace Lumo::Protocol::Json {
namespace {

using namespace Data;
using namespace std::string_literals;

std::string Repeated(std::string const& text, std::size_t count) {
  std::string result;
  result.reserve(text.size() * count);
  for (; count > 0; --count)
    result += text;
  return result;
}

std::string Nested(std::string const& open, std::size_t depth, std::string const& core,
                   std::string const& close) {
  return Repeated(open, depth) + core + Repeated(close, depth);
}

struct Refusal {
  std::string text;
  std::size_t offset;
  std::string reason;  // part of it
};
void PrintTo(Refusal const& test, std::ostream* out) {
  *out << test.text.substr(0, 80);
}

class Refusals : public testing::TestWithParam<Refusal> {};

TEST_P(Refusals, AreTheSameInBothForms) {
  for (ReadForm const form : {ReadForm::Full, ReadForm::Direct, ReadForm::Envelope}) {
    ReadProblem problem;
    EXPECT_FALSE(ReadDocument(GetParam().text, form, problem));
    EXPECT_EQ(problem.cause, ReadProblem::Cause::Document);
    EXPECT_EQ(problem.offset, GetParam().offset) << problem.reason;
    EXPECT_NE(problem.reason.find(GetParam().reason), std::string::npos) << problem.reason;
  }
}

Refusal const kRefusals[] = {
    {"", 0, "ends too early"},
    {"  ", 2, "ends too early"},
    {"\0"s, 0, "expected a value"},
    {"\xEF\xBB\xBF{}", 0, "byte order mark"},
    {"\xFE\xFF", 0, "UTF-8"},
    {"nul", 3, "ends too early"},
    {"nulL", 3, "expected 'null'"},
    {"True", 0, "expected a value"},
    {"truefalse", 4, "follows the document"},
    {"{} {}", 3, "follows the document"},
    {"{}\0"s, 2, "follows the document"},
    {"1\0"s, 1, "follows the document"},
    {"[1]]", 3, "follows the document"},
    {"[", 1, "ends too early"},
    {"[1", 2, "ends too early"},
    {"[1,", 3, "ends too early"},
    {"[1,]", 3, "expected a value"},
    {"[,1]", 1, "expected a value"},
    {"[1 2]", 3, "expected ',' or ']'"},
    {"[1}", 2, "expected ',' or ']'"},
    {"{", 1, "ends too early"},
    {"{\"a\"", 4, "ends too early"},
    {"{\"a\":", 5, "ends too early"},
    {"{\"a\":1,}", 7, "expected a member's name"},
    {"{a:1}", 1, "expected a member's name"},
    {"{1:1}", 1, "expected a member's name"},
    {"{\"a\" 1}", 5, "expected ':'"},
    {"{\"a\":1 \"b\":2}", 7, "expected ',' or '}'"},
    {"{\"a\":1]", 6, "expected ',' or '}'"},
    {"'a'", 0, "expected a value"},
    {"// c\n1", 0, "expected a value"},
    {"\"abc", 4, "ends too early"},
    {"\"a\nb\"", 2, "control character"},
    {"\"a\0b\""s, 2, "control character"},
    {"\"\\x\"", 1, "an escape"},
    {"\"\\u12\"", 1, "an escape"},
    {"\"\\u12G4\"", 1, "an escape"},
    {"\"\\\0\""s, 1, "an escape"},
    {"\"a\\ud800\"", 2, "surrogate"},
    {"\"a\\udc00\"", 2, "surrogate"},
    {"\"a\\udc00\\ud800\"", 2, "surrogate"},
    {"\"a\\udc00\\udc00\"", 2, "surrogate"},
    {"\"a\\ud800\\u0041\"", 2, "surrogate"},
    {"\"a\\ud800x\"", 2, "surrogate"},
    {"\"\xC0\x80\"", 1, "UTF-8"},
    {"\"\xC3\"", 1, "UTF-8"},
    {"\"\xED\xA0\x80\"", 1, "UTF-8"},
    {"\"\xF4\x90\x80\x80\"", 1, "UTF-8"},
    {"\"\xE0\x9F\xBF\"", 1, "UTF-8"},
    {"\"\xF0\x8F\xBF\xBF\"", 1, "UTF-8"},
    {"\"" + std::string(100, 'a') + "\x80\"", 101, "UTF-8"},
    {"-", 1, "ends too early"},
    {"+1", 0, "expected a value"},
    {".5", 0, "expected a value"},
    {"01", 0, "leading zero"},
    {"-01", 0, "leading zero"},
    {"1.", 2, "ends too early"},
    {"1. ", 2, "behind its point"},
    {"1e", 2, "ends too early"},
    {"[1e+]", 4, "exponent"},
    {"0x10", 1, "follows the document"},
    {"NaN", 0, "expected a value"},
    {"Infinity", 0, "expected a value"},
    {"-Infinity", 1, "minus sign"},
    {"1e400", 0, "double"},
    {"[-1e400]", 1, "double"},
    {"9223372036854775808", 0, "64 bits"},
    {"-9223372036854775809", 0, "64 bits"},
    {"18446744073709551616", 0, "64 bits"},
    {"18446744073709551617", 0, "64 bits"},
    {std::string(400, '9'), 0, "64 bits"},
    {std::string(400, '9') + ".0", 0, "double"},
    {R"({"a":1,"b":2,"a":3})", 18, "member 'a' comes twice"},
    {R"({"a":1,"\u0061":3})", 17, "member 'a' comes twice"},
    {R"({"x":[{"":1,"":3}]})", 16, "member '' comes twice"},
    {Repeated("[", 100'000), 128, "deeper than 128"},
    {Repeated("{\"a\":", 100'000), 128 * 5, "deeper than 128"},
    {Nested("[", 128, "1", "]"), 128, "deeper than 128"},
    {Nested("[", 129, "", "]"), 128, "deeper than 128"},
};
INSTANTIATE_TEST_SUITE_P(All, Refusals, testing::ValuesIn(kRefusals));

TEST(Reader, ErrorsSayWhere) {
  std::shared_ptr<ErrorValue const> error;
  EXPECT_FALSE(JsonDataDeserializer::Deserialize("[1,x]", error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.json_parse_error");
  EXPECT_NE(error->ToString().find("Cannot read JSON at offset 3: expected a value."), std::string::npos)
      << error->ToString();
}

TEST(Reader, ErrorsQuoteOnlyTheBeginningOfALongName) {
  std::string const name(100'000, 'n');
  ReadProblem problem;
  EXPECT_FALSE(ReadDocument("{\"" + name + "\":1,\"" + name + "\":1}", ReadForm::Direct, problem));
  EXPECT_LT(problem.reason.size(), 200U);
}

TEST(Reader, TakesValuesDownToDepth128) {
  struct Case {
    std::string text;
    bool full;
    bool direct;
  } const cases[] = {
      {Nested("[", 128, "", "]"), true, true},
      {Nested("[", 127, "1", "]"), true, true},
      {Nested("{\"a\":", 127, "1", "}"), true, true},
      {Nested("{\"a\":", 128, "1", "}"), false, false},
      // In the full form only the values count, not the objects of annotations.
      {Nested("{\"@set\":[", 128, "", "]}"), true, false},
      {Nested("{\"@set\":[", 129, "", "]}"), false, false},
      {Nested("[", 127, R"({"@binary":"AA=="})", "]"), true, false},
      {Nested("[", 127, R"({"@struct":"n"})", "]"), true, false},
      {Nested("[", 127, R"({"@optional":null})", "]"), false, false},
      {Nested("[", 126, R"({"@optional":1})", "]"), true, true},
      {Nested("{\"@optional\":", 127, "1", "}"), true, true},
      {Nested("{\"@optional\":", 128, "1", "}"), false, false},
      // A map, its entries and their values are a level each.
      {Nested("[", 125, R"({"@map":[{"key":"k","value":1}]})", "]"), true, false},
      {Nested("[", 126, R"({"@map":[{"key":"k","value":1}]})", "]"), false, false},
  };
  for (Case const& test : cases) {
    ReadProblem problem;
    EXPECT_EQ(ReadDocument(test.text, ReadForm::Full, problem) != nullptr, test.full)
        << test.text.substr(100);
    EXPECT_EQ(ReadDocument(test.text, ReadForm::Direct, problem) != nullptr, test.direct)
        << test.text.substr(100);
  }
}

TEST(Reader, RefusesMoreThan512OpenBrackets) {
  // No value is deep here: each wrapper's own value isn't one.
  std::string const binaries = Nested("{\"@binary\":", 512, "\"\"", "}");
  ReadProblem problem;
  EXPECT_FALSE(ReadDocument(binaries, ReadForm::Full, problem));
  EXPECT_EQ(problem.cause, ReadProblem::Cause::Annotation) << problem.reason;
  EXPECT_FALSE(ReadDocument(Nested("{\"@binary\":", 513, "\"\"", "}"), ReadForm::Full, problem));
  EXPECT_EQ(problem.cause, ReadProblem::Cause::Document);
  EXPECT_EQ(problem.offset, 512 * 11U);
  EXPECT_NE(problem.reason.find("512"), std::string::npos) << problem.reason;
}

TEST(Reader, RefusesEveryDocumentThatIsCutOff) {
  std::string const text =
      R"({"@struct":"n","a":[1,-2.5e3,true,false,null,"\ud83d\ude00\n",{"@map":[{"key":"k","value":{"@binary":"AAEC"}}]}]} )";
  ReadProblem problem;
  ASSERT_TRUE(ReadDocument(text, ReadForm::Full, problem)) << problem.reason;
  for (std::size_t size = 0; size + 1 < text.size(); ++size) {
    EXPECT_FALSE(ReadDocument(text.substr(0, size), ReadForm::Full, problem)) << size;
    EXPECT_LE(problem.offset, size);
    EXPECT_FALSE(ReadDocument(text.substr(0, size), ReadForm::Direct, problem)) << size;
  }
}

TEST(Reader, FindsDuplicatesAmongManyMembers) {
  for (int const count : {2, 23, 24, 25, 26, 1000, 100'000}) {
    std::string text = "{";
    for (int member = 0; member < count; ++member)
      text += "\"member" + std::to_string(member) + "\":1,";
    ReadProblem problem;
    EXPECT_TRUE(ReadDocument(text + "\"last\":1}", ReadForm::Direct, problem)) << problem.reason;
    EXPECT_FALSE(ReadDocument(text + "\"member1\":1}", ReadForm::Direct, problem)) << count;
    EXPECT_NE(problem.reason.find("member 'member1' comes twice"), std::string::npos) << problem.reason;
  }
}

struct AnnotationRefusal {
  char const* text;
  std::size_t offset;
  char const* reason;
};
void PrintTo(AnnotationRefusal const& test, std::ostream* out) {
  *out << test.text;
}

class Annotations : public testing::TestWithParam<AnnotationRefusal> {};

TEST_P(Annotations, AreRefusedWhenMalformed) {
  ReadProblem problem;
  EXPECT_FALSE(ReadDocument(GetParam().text, ReadForm::Full, problem)) << GetParam().text;
  EXPECT_EQ(problem.cause, ReadProblem::Cause::Annotation) << GetParam().text;
  EXPECT_EQ(problem.offset, GetParam().offset) << GetParam().text;
  EXPECT_NE(problem.reason.find(GetParam().reason), std::string::npos) << problem.reason;
  EXPECT_TRUE(ReadDocument(GetParam().text, ReadForm::Direct, problem)) << "annotations mean nothing there";

  std::shared_ptr<ErrorValue const> error;
  JsonDataDeserializer::Deserialize(GetParam().text, error);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.invalid_argument");
}

AnnotationRefusal const kAnnotations[] = {
    {R"({"@list":[]})", 0, "unknown annotation '@list'"},
    {R"({"@":1})", 0, "unknown annotation '@'"},
    {R"({"@Struct":"n"})", 0, "unknown annotation '@Struct'"},
    {R"([ {"a":1,"@type":"n"}])", 2, "unknown annotation '@type'"},
    {R"({"@struct":1})", 0, "'@struct' wants a text"},
    {R"({"@struct":{"@secret":"n"}})", 0, "'@struct' wants a text"},
    {R"({"@error":null})", 0, "'@error' wants a text"},
    {R"({"@struct":"n","@error":"e"})", 0, "in one object"},
    {R"({"@set":[],"@map":[]})", 0, "in one object"},
    {R"({"@set":[],"a":1})", 0, "beside other members"},
    {R"({"a":1,"@optional":1})", 0, "beside other members"},
    {R"({"@set":{}})", 0, "'@set' wants a list"},
    {R"({"@set":{"@set":[]}})", 0, "'@set' wants a list"},
    {R"({"@set":null})", 0, "'@set' wants a list"},
    {R"({"@enumset":"A"})", 0, "'@enumset' wants a list of texts"},
    {R"({"@enumset":["A",1]})", 0, "'@enumset' wants a list of texts"},
    {R"({"@enumset":{"@map":[]}})", 0, "'@enumset' wants a list of texts"},
    {R"({"@map":{}})", 0, "'@map' wants"},
    {R"({"@map":[1]})", 0, "'@map' wants"},
    {R"({"@map":[{"key":"k"}]})", 0, "'@map' wants"},
    {R"({"@map":[{"value":"k"}]})", 0, "'@map' wants"},
    {R"({"@map":[{"key":"k","value":1,"more":2}]})", 0, "'@map' wants"},
    {R"({"@map":[{"@struct":"n","key":"k","value":1}]})", 0, "'@map' wants"},
    {R"({"@map":[{"@error":"map-entry","key":"k","value":1}]})", 0, "'@map' wants"},
    {R"({"@secret":1})", 0, "'@secret' wants a text"},
    {R"({"@secret":{"@optional":"s"}})", 0, "'@secret' wants a text"},
    {R"({"@binary":1})", 0, "base64"},
    {R"({"@binary":"A"})", 0, "base64"},
    {R"({"@binary":"AA"})", 0, "base64"},
    {R"({"@binary":"AA="})", 0, "base64"},
    {R"({"@binary":"A==="})", 0, "base64"},
    {R"({"@binary":"===="})", 0, "base64"},
    {R"({"@binary":"AB=="})", 0, "base64"},
    {R"({"@binary":"AAB="})", 0, "base64"},
    {R"({"@binary":"AA==AA=="})", 0, "base64"},
    {R"({"@binary":"AA=A"})", 0, "base64"},
    {R"({"@binary":"AAA-"})", 0, "base64"},
    {R"({"@binary":"AAA_"})", 0, "base64"},
    {R"({"@binary":"AAAA\n"})", 0, "base64"},
    {R"({"@binary":" AAA"})", 0, "base64"},
    {"{\"@binary\":\"\xC3\xA4\xC3\xA4\"}", 0, "base64"},
    {R"({"a":{"b":{"@nope":1}}})", 10, "unknown annotation '@nope'"},
};
INSTANTIATE_TEST_SUITE_P(All, Annotations, testing::ValuesIn(kAnnotations));

}  // namespace
}  // namespace Lumo::Protocol::Json
