#include "transport/phr_request.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Lumo::Transport::PicoHttp {
namespace {

int Parse(std::string const& text, PhrRequest& request, unsigned long lastLength = 0) {
  request = PhrRequest();
  request.headers.count = kMaxHeaders;
  return PhrParse(boost::asio::buffer(text), request, lastLength);
}

std::string HeadWithHeaders(std::size_t count) {
  std::string head = "POST / HTTP/1.1\r\n";
  for (std::size_t i = 0; i < count; ++i) {
    head += "h" + std::to_string(i) + ": v\r\n";
  }
  return head + "\r\n";
}

TEST(PhrParse, TakesTheHeadApart) {
  std::string const head =
      "POST /api?x=1 HTTP/1.1\r\nHost: localhost\r\nX-Empty:\r\nX-Tab:\t a \t b \t\r\n\r\n";
  PhrRequest request;
  std::string const input = head + "behind";
  ASSERT_EQ(Parse(input, request), static_cast<int>(head.size()));
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.path, "/api?x=1");
  EXPECT_EQ(request.minorVersion, 1);
  ASSERT_EQ(request.headers.count, 3U);
  EXPECT_EQ(request.headers.entries[0].name, "Host");
  EXPECT_EQ(request.headers.entries[0].value, "localhost");
  EXPECT_EQ(request.headers.entries[1].name, "X-Empty");
  EXPECT_EQ(request.headers.entries[1].value, "");
  EXPECT_EQ(request.headers.entries[2].value, "a \t b");
}

struct HeadCase {
  std::string name;
  std::string head;
  /// The result; kWhole stands for the head's own length.
  int result;
};

constexpr int kWhole = 0;

class PhrParseTable : public testing::TestWithParam<HeadCase> {};

std::vector<HeadCase> const kHeads = {
    {"Minimal", "GET / HTTP/1.0\r\n\r\n", kWhole},
    {"BareLineFeeds", "GET / HTTP/1.1\nA: b\n\n", kWhole},
    {"MixedLineEnds", "GET / HTTP/1.1\r\nA: b\n\r\n", kWhole},
    {"EmptyLineInFront", "\r\nGET / HTTP/1.1\r\n\r\n", kWhole},
    {"EmptyBareLineInFront", "\nGET / HTTP/1.1\r\n\r\n", kWhole},
    {"TwoEmptyLinesInFront", "\r\n\r\nGET / HTTP/1.1\r\n\r\n", kPhrMalformed},
    {"EmptyMethodIsTheCallersMatter", " / HTTP/1.1\r\n\r\n", kWhole},
    {"PathOfHighBytes", "GET /\xc3\xa4 HTTP/1.1\r\n\r\n", kWhole},
    {"MaxHeaders", HeadWithHeaders(64), kWhole},
    {"TooManyHeaders", HeadWithHeaders(65), kPhrMalformed},
    {"EmptyPath", "GET  HTTP/1.1\r\n\r\n", kPhrMalformed},
    {"NoVersion", "GET /\r\n\r\n", kPhrMalformed},
    {"Version2", "GET / HTTP/2.0\r\n\r\n", kPhrMalformed},
    {"VersionOfTwoDigits", "GET / HTTP/1.10\r\n\r\n", kPhrMalformed},
    {"VersionLetter", "GET / HTTP/1.x\r\n\r\n", kPhrMalformed},
    {"LowerCaseVersion", "GET / http/1.1\r\n\r\n", kPhrMalformed},
    {"BlankBehindVersion", "GET / HTTP/1.1 \r\n\r\n", kPhrMalformed},
    {"TwoBlanks", "GET  / HTTP/1.1\r\n\r\n", kPhrMalformed},
    {"TabForBlank", "GET\t/ HTTP/1.1\r\n\r\n", kPhrMalformed},
    {"ControlInMethod", std::string("G\0T / HTTP/1.1\r\n\r\n", 18), kPhrMalformed},
    {"ControlInPath", "GET /\x01 HTTP/1.1\r\n\r\n", kPhrMalformed},
    {"DelInPath", "GET /\x7f HTTP/1.1\r\n\r\n", kPhrMalformed},
    {"BlankBeforeColon", "GET / HTTP/1.1\r\nA : b\r\n\r\n", kPhrMalformed},
    {"NoColon", "GET / HTTP/1.1\r\nA\r\n\r\n", kPhrMalformed},
    {"EmptyName", "GET / HTTP/1.1\r\n: b\r\n\r\n", kPhrMalformed},
    {"FoldedLine", "GET / HTTP/1.1\r\nA: b\r\n c\r\n\r\n", kPhrMalformed},
    {"NameWithBracket", "GET / HTTP/1.1\r\nA[1]: b\r\n\r\n", kPhrMalformed},
    {"HighByteInName", "GET / HTTP/1.1\r\n\xc3\xa4: b\r\n\r\n", kPhrMalformed},
    {"NulInValue", std::string("GET / HTTP/1.1\r\nA: b\0c\r\n\r\n", 26), kPhrMalformed},
    {"EscapeInValue", "GET / HTTP/1.1\r\nA: \x1b[0m\r\n\r\n", kPhrMalformed},
    {"HighBytesInValue", "GET / HTTP/1.1\r\nA: \xc3\xa4\r\n\r\n", kWhole},
    {"LoneReturnInValue", "GET / HTTP/1.1\r\nA: b\rc\r\n\r\n", kPhrMalformed},
    {"LoneReturnAtTheEnd", "GET / HTTP/1.1\r\nA: b\r\n\rX", kPhrMalformed},
    {"Empty", "", kPhrIncomplete},
    {"OnlyEmptyLine", "\r\n", kPhrIncomplete},
    {"OnlyMethod", "POST", kPhrIncomplete},
    {"NoEmptyLine", "GET / HTTP/1.1\r\nA: b\r\n", kPhrIncomplete},
    {"HalfEmptyLine", "GET / HTTP/1.1\r\nA: b\r\n\r", kPhrIncomplete},
};

TEST_P(PhrParseTable, InOnePiece) {
  PhrRequest request;
  int const expected =
      GetParam().result == kWhole ? static_cast<int>(GetParam().head.size()) : GetParam().result;
  EXPECT_EQ(Parse(GetParam().head, request), expected);
}

// What comes of a head does not depend on how it is cut.
TEST_P(PhrParseTable, CutAtEveryOffset) {
  std::string const& head = GetParam().head;
  int const expected = GetParam().result == kWhole ? static_cast<int>(head.size()) : GetParam().result;
  for (std::size_t cut = 0; cut < head.size(); ++cut) {
    PhrRequest request;
    int result = Parse(head.substr(0, cut), request);
    if (result == kPhrIncomplete) {
      result = Parse(head, request, cut);
    }
    // An error behind the cut shows only once the head's end is there.
    if (result == kPhrIncomplete) {
      EXPECT_NE(expected, static_cast<int>(head.size())) << "cut at " << cut;
      result = Parse(head + "\r\n\r\n", request, head.size());
      if (expected == kPhrIncomplete) {
        continue;
      }
    }
    EXPECT_EQ(result, expected) << "cut at " << cut;
  }
}

TEST_P(PhrParseTable, ByteByByte) {
  std::string const& head = GetParam().head;
  int result = kPhrIncomplete;
  std::size_t length = 0;
  PhrRequest request;
  while (result == kPhrIncomplete && length < head.size()) {
    ++length;
    result = Parse(head.substr(0, length), request, length - 1);
  }
  if (GetParam().result == kWhole) {
    EXPECT_EQ(result, static_cast<int>(head.size()));
    EXPECT_EQ(length, head.size());
  } else if (GetParam().result == kPhrIncomplete) {
    EXPECT_EQ(result, kPhrIncomplete);
  } else {
    // Never taken, whether or not the head's end was ever seen.
    EXPECT_LT(result, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Heads, PhrParseTable, testing::ValuesIn(kHeads),
                         [](testing::TestParamInfo<HeadCase> const& param) { return param.param.name; });

TEST(PhrParse, AnIncompleteHeadKeepsTheCapacity) {
  PhrRequest request{};
  request.headers.count = kMaxHeaders;
  std::string const part = "GET / HTTP/1.1\r\nA: b\r\n";
  EXPECT_EQ(PhrParse(boost::asio::buffer(part), request, 0), kPhrIncomplete);
  EXPECT_EQ(request.headers.count, kMaxHeaders);
}

TEST(PhrParse, ASmallerCapacityIsKept) {
  PhrRequest request{};
  request.headers.count = 2;
  std::string const head = HeadWithHeaders(3);
  EXPECT_EQ(PhrParse(boost::asio::buffer(head), request, 0), kPhrMalformed);
}

TEST(TolowerAndSortHeaders, SortsByLowerCaseNameAndKeepsOrderOfEqualNames) {
  std::string head = "GET / HTTP/1.1\r\nZeta: 1\r\nAccept: first\r\naCCEPT: Second\r\nBeta: 2\r\n\r\n";
  PhrRequest request;
  ASSERT_GT(Parse(head, request), 0);
  TolowerAndSortHeaders(request.headers);
  std::vector<std::string> lines;
  for (PhrHeader const& header : request.headers) {
    lines.push_back(std::string(header.name) + "=" + std::string(header.value));
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"accept=first", "accept=Second", "beta=2", "zeta=1"}));
}

TEST(TolowerAndSortHeaders, TakesAFullTableInReverseOrder) {
  std::string head = "GET / HTTP/1.1\r\n";
  for (int i = 63; i >= 0; --i) {
    head += std::string(1, static_cast<char>('A' + i / 26)) + static_cast<char>('a' + i % 26) + ": v\r\n";
  }
  head += "\r\n";
  PhrRequest request;
  ASSERT_GT(Parse(head, request), 0);
  TolowerAndSortHeaders(request.headers);
  ASSERT_EQ(request.headers.count, 64U);
  for (std::size_t i = 1; i < request.headers.count; ++i) {
    EXPECT_LT(request.headers.entries[i - 1].name, request.headers.entries[i].name);
  }
}

}  // namespace
}  // namespace Lumo::Transport::PicoHttp
