#include "transport/text.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "transport/endpoint_text.h"

namespace Lumo {
namespace {

TEST(StrICmp, IgnoresAsciiCaseOnly) {
  EXPECT_EQ(StrICmp("Content-Type", "cONTENT-tYPE"), 0);
  EXPECT_EQ(StrICmp("", ""), 0);
  EXPECT_LT(StrICmp("abc", "ABD"), 0);
  EXPECT_GT(StrICmp("abd", "ABC"), 0);
  EXPECT_LT(StrICmp("ab", "ABC"), 0);
  EXPECT_GT(StrICmp("abc", "AB"), 0);
  EXPECT_NE(StrICmp("\xc3\xa4", "\xc3\x84"), 0);
  EXPECT_NE(StrICmp("[", "{"), 0);
}

TEST(InplaceLower, ChangesOnlyTheView) {
  std::string text = "ABCdEF";
  InplaceLower(boost::string_view(text).substr(1, 4));
  EXPECT_EQ(text, "AbcdeF");
}

struct NumberCase {
  std::string text;
  int code;
  std::uint64_t number;
};

class CheckConvertTable : public testing::TestWithParam<NumberCase> {};

TEST_P(CheckConvertTable, Decides) {
  constexpr std::uint64_t kUntouched = 4711;
  std::string const& text = GetParam().text;
  EXPECT_EQ(Detail::CheckConvert(text.data(), text.data() + text.size()).value(), GetParam().code);
  std::uint64_t number = kUntouched;
  EXPECT_EQ(Detail::ParseUnsigned(text, number).value(), GetParam().code);
  EXPECT_EQ(number, GetParam().code == 0 ? GetParam().number : kUntouched);
}

INSTANTIATE_TEST_SUITE_P(Numbers, CheckConvertTable,
                         testing::ValuesIn(std::vector<NumberCase>{
                             {"0", 0, 0},
                             {"2500000", 0, 2500000},
                             {"0042", 0, 42},
                             {"18446744073709551615", 0, std::numeric_limits<std::uint64_t>::max()},
                             {"", 1, 0},
                             {"  ", 1, 0},
                             {"\t", 1, 0},
                             {"18446744073709551616", 2, 0},
                             {"99999999999999999999999", 2, 0},
                             {"+1", 3, 0},
                             {"-1", 3, 0},
                             {"-99999999999999999999999", 3, 0},
                             {"1 2", 3, 0},
                             {"5,5", 3, 0},
                             {"0x10", 3, 0},
                             {"1.5", 3, 0},
                             {"abc", 3, 0},
                         }));

TEST(FormatSize, IsLowerCaseHexadecimal) {
  char scratch[Transport::Http::kSizeScratch];
  EXPECT_EQ(Transport::Http::FormatSize(0, scratch), "0");
  EXPECT_EQ(Transport::Http::FormatSize(65536, scratch), "10000");
  EXPECT_EQ(Transport::Http::FormatSize(0xabc, scratch), "abc");
  EXPECT_EQ(Transport::Http::FormatSize(std::numeric_limits<std::uint64_t>::max(), scratch),
            "ffffffffffffffff");
}

TEST(FormatLength, IsDecimal) {
  char scratch[Transport::Http::kLengthScratch];
  EXPECT_EQ(Transport::Http::FormatLength(0, scratch), "0");
  EXPECT_EQ(Transport::Http::FormatLength(std::numeric_limits<std::uint64_t>::max(), scratch),
            "18446744073709551615");
}

TEST(EndpointToString, BracketsIpv6) {
  using boost::asio::ip::make_address;
  EXPECT_EQ(Transport::EndpointToString({make_address("127.0.0.1"), 7433}), "127.0.0.1:7433");
  EXPECT_EQ(Transport::EndpointToString({make_address("::1"), 7433}), "[::1]:7433");
}

TEST(GetPeerInfo, GivesAddressAndPort) {
  using boost::asio::ip::make_address;
  auto const peer = Transport::GetPeerInfo({make_address("127.0.0.1"), 50000});
  ASSERT_TRUE(peer);
  EXPECT_EQ(peer->first, "127.0.0.1");
  EXPECT_EQ(peer->second, 50000U);
  EXPECT_FALSE(Transport::GetPeerInfo({}));
}

}  // namespace
}  // namespace Lumo
