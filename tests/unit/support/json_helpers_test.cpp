#include "support/json_helpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include "platform/logging/test_only_log_capture.h"
#include "support/gzip.h"

namespace {

using LifeCycle::LumoJsonSerializationError;
using LifeCycle::ParseJsonValue;
using Lumo::Data::DataValue;
using Lumo::Data::DataValuePtr;
using Lumo::Data::DoubleValue;
using Lumo::Data::IntegerValue;
using Lumo::Data::Kind;
using Lumo::Data::ListValue;
using Lumo::Data::OptionalValue;
using Lumo::Data::StringValue;
using Lumo::Data::StructValue;
using testing::StartsWith;

static_assert(std::is_base_of_v<std::exception, LumoJsonSerializationError>);

DataValuePtr Sample() {
  auto const value = StructValue::GetInstance("com.orbane.sample");
  value->SetField("name", StringValue::GetInstance("web \"1\" \xE2\x82\xAC"));
  value->SetField("unset", OptionalValue::GetInstance());
  auto const list = ListValue::GetInstance(ListValue::Form::List);
  list->Add(IntegerValue::GetInstance(-7));
  value->SetField("list", list);
  return value;
}

class JsonHelpers : public testing::Test {
 protected:
  /// The one line that a refused text leaves.
  std::string Refusal(std::string const& text, bool full = false) {
    log_.Clear();
    EXPECT_THROW(ParseJsonValue(text, full), LumoJsonSerializationError);
    auto const lines = log_.lines();
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_TRUE(!lines.empty() && lines.front().priority == 0);
    return lines.empty() ? "" : lines.front().text;
  }

  Orbane::TestOnlyLogCapture log_;
};

TEST_F(JsonHelpers, DirectFormForTools) {
  EXPECT_EQ(LifeCycle::SerializeToJson(Sample()), "{\"name\":\"web \\\"1\\\" \xE2\x82\xAC\",\"list\":[-7]}");
}

TEST_F(JsonHelpers, ValueThatCannotBeWritten) {
  auto const infinite = DoubleValue::GetInstance(std::numeric_limits<double>::infinity());
  EXPECT_THROW(LifeCycle::SerializeToJson(infinite), LumoJsonSerializationError);
  std::string out = "kept";
  EXPECT_FALSE(LifeCycle::SerializeCompressed(infinite, out));
  EXPECT_EQ(out, "kept");
}

TEST_F(JsonHelpers, CompressedFullFormComesBackEqual) {
  std::string packed;
  ASSERT_TRUE(LifeCycle::SerializeCompressed(Sample(), packed));
  ASSERT_TRUE(LifeCycle::IsGzip(packed));
  EXPECT_THAT(LifeCycle::GzipDecompress(packed), StartsWith("{\"@struct\":\"com.orbane.sample\","));
  DataValuePtr const back = ParseJsonValue(packed, true);
  ASSERT_TRUE(back);
  EXPECT_TRUE(DataValue::Equals(*back, *Sample()));
}

TEST_F(JsonHelpers, GzipAndPlainGiveTheSameValue) {
  std::string const plain = R"({"a":[1,2.5,"x",null,true],"b":{"c":"d"}})";
  for (bool const full : {false, true}) {
    DataValuePtr const a = ParseJsonValue(plain, full);
    DataValuePtr const b = ParseJsonValue(LifeCycle::GzipCompress(plain), full);
    ASSERT_TRUE(a && b);
    EXPECT_TRUE(DataValue::Equals(*a, *b));
  }
  EXPECT_EQ(log_.lines().size(), 0U);
}

TEST_F(JsonHelpers, FormsDiffer) {
  std::string const text = R"({"@error":"com.orbane.e","messages":[]})";
  EXPECT_EQ(ParseJsonValue(text, true)->GetKind(), Kind::Error);
  EXPECT_EQ(ParseJsonValue(text, false)->GetKind(), Kind::Structure);
}

TEST_F(JsonHelpers, NullDocumentIsNoValue) {
  for (bool const full : {false, true}) {
    EXPECT_EQ(ParseJsonValue("null", full), nullptr);
    EXPECT_EQ(ParseJsonValue("null\n", full), nullptr);
    EXPECT_EQ(ParseJsonValue(LifeCycle::GzipCompress("null"), full), nullptr);
  }
  EXPECT_EQ(log_.lines().size(), 0U);
}

TEST_F(JsonHelpers, MagicAloneIsNotGzip) {
  EXPECT_THAT(Refusal("\x1f\x8b"), StartsWith("Deserialize from JSON failed: "));
}

TEST_F(JsonHelpers, BrokenGzip) {
  std::string const packed = LifeCycle::GzipCompress(R"({"a":1})");
  EXPECT_THAT(Refusal("\x1f\x8bxyz"), StartsWith("Decompression failed: "));
  EXPECT_THAT(Refusal(packed.substr(0, packed.size() - 1)), StartsWith("Decompression failed: "));
  EXPECT_THAT(Refusal(packed.substr(0, packed.size() / 2), true), StartsWith("Decompression failed: "));
}

TEST_F(JsonHelpers, GzipOfNoJson) {
  EXPECT_THAT(Refusal(LifeCycle::GzipCompress("{")), StartsWith("Deserialize from JSON failed: "));
}

TEST_F(JsonHelpers, GzipBomb) {
  EXPECT_EQ(Refusal(LifeCycle::GzipCompress(std::string((64 << 20) + 1, ' '))),
            "Decompression failed: more than 67108864 bytes of output");
}

TEST_F(JsonHelpers, HostileText) {
  std::string half(50 << 20, 'x');
  half.replace(0, 6, "{\"a\":\"");
  struct Case {
    char const* what;
    std::string text;
  };
  for (Case const& c :
       {Case{"nothing", ""}, Case{"blanks", " \n"}, Case{"half a document", "{\"a\": [1, 2"},
        Case{"50 MB of half a string", half}, Case{"NULs", std::string(100, '\0')},
        Case{"NUL behind the document", std::string("{}\0", 3)}, Case{"bad UTF-8", "{\"a\":\"\xC3\x28\"}"},
        Case{"brackets", std::string(100000, '[')},
        Case{"braces",
             [] {
               std::string text;
               for (int i = 0; i < 100000; ++i) {
                 text += "{\"a\":";
               }
               return text;
             }()},
        Case{"text behind the document", "{} x"}, Case{"twice the same member", R"({"a":1,"a":2})"},
        Case{"integer of more than 64 bits", "[9223372036854775808]"},
        Case{"a traceback", "Traceback (most recent call last):\n"}}) {
    for (bool const full : {false, true}) {
      SCOPED_TRACE(c.what);
      std::string const line = Refusal(c.text, full);
      EXPECT_THAT(line, StartsWith("Deserialize from JSON failed: "));
      EXPECT_LT(line.size(), 20000U);
    }
  }
}

TEST_F(JsonHelpers, FiftyMegabytesOfDocument) {
  std::string text = "[\"";
  text.append(50 << 20, 'x');
  text += "\"]";
  DataValuePtr const value = ParseJsonValue(text, false);
  ASSERT_TRUE(value);
  EXPECT_EQ(Lumo::Data::As<ListValue>(value.get())->size(), 1U);
}

}  // namespace
