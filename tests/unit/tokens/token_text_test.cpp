#include "security/token_text.h"

#include <gtest/gtest.h>

namespace {

using namespace Ryn::Authn;

TEST(DecodeBase64Url, TakesTheUrlAlphabetWithoutPadding) {
  struct Case {
    std::string_view text;
    std::string_view bytes;
  };
  for (Case const& c : {Case{"", ""}, Case{"Zg", "f"}, Case{"Zm8", "fo"}, Case{"Zm9v", "foo"},
                        Case{"Zm9vYg", "foob"}, Case{"-_-_", "\xfb\xff\xbf"}, Case{"AA", {"\0", 1}}}) {
    EXPECT_EQ(DecodeBase64Url(c.text), std::string(c.bytes)) << c.text;
  }
}

TEST(DecodeBase64Url, RefusesEveryOtherSpelling) {
  for (std::string_view const text : {"Z", "Zm9vY", "Zg==", "Zm8=", "Zm9v====", "+/+/", "Zm9v\n", " Zm9v",
                                      "Zm 9v", "Zm9v!", "Zm9v.", "Zh", "Zm9", "aa\xc3\xa4"}) {
    EXPECT_EQ(DecodeBase64Url(text), std::nullopt) << text;
  }
  EXPECT_EQ(DecodeBase64Url(std::string_view("Zm9v\0AAA", 8)), std::nullopt);
}

TEST(SplitToken, GivesThePartsDecoded) {
  auto const parts = SplitToken("aGVhZA.Ym9keQ.c2ln");
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->header, "head");
  EXPECT_EQ(parts->payload, "body");
  EXPECT_EQ(parts->signature, "sig");
}

TEST(SplitToken, LeavesEmptyPartsToTheRulesForThem) {
  auto const parts = SplitToken("..");
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->header + parts->payload + parts->signature, "");
}

TEST(SplitToken, WantsThreeParts) {
  for (std::string_view const text :
       {"", "aGVhZA", "aGVhZA.Ym9keQ", "aGVhZA.Ym9keQ.c2ln.", "a.b.c.d.e", "...."}) {
    EXPECT_FALSE(SplitToken(text)) << text;
  }
}

TEST(SplitToken, RefusesPartsThatAreNoBase64Url) {
  for (std::string_view const text : {"aGVhZA==.Ym9keQ.c2ln", "aGVhZA.Ym9keQ=.c2ln", "aGVhZA.Ym9keQ.c2ln\n",
                                      "aGVh ZA.Ym9keQ.c2ln", "a.Ym9keQ.c2ln", "aGVhZA.Ym9keR.c2ln"}) {
    EXPECT_FALSE(SplitToken(text)) << text;
  }
}

TEST(SplitToken, TakesNothingLongerThanARequestsHead) {
  std::string const begin = "aGVhZA.Ym9keQ.";
  std::string const longest = begin + std::string(kMostTokenBytes - begin.size() - 2, 'A');
  ASSERT_TRUE(SplitToken(longest));
  EXPECT_FALSE(SplitToken(begin + std::string(kMostTokenBytes - begin.size() + 2, 'A')));
  EXPECT_FALSE(SplitToken(std::string(1'000'000, '.')));
}

}  // namespace
