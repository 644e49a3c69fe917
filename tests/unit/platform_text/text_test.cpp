#include "platform/text/text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>

namespace {

using Owned = std::unique_ptr<char, decltype(&std::free)>;

Owned Own(char* text) {
  return Owned(text, &std::free);
}

TEST(CodeSetValidate, TellsUtf8FromOtherBytes) {
  struct Case {
    char const* what;
    std::string bytes;
    bool valid;
  };
  Case const cases[] = {
      {"empty", "", true},
      {"ASCII", "root", true},
      {"two, three and four bytes", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", true},
      {"NUL is a character", std::string("a\0b", 3), true},
      {"highest code point", "\xf4\x8f\xbf\xbf", true},
      {"Latin-1", "m\xfcller", false},
      {"lone continuation", "\x80", false},
      {"cut sequence", "\xe2\x82", false},
      {"overlong slash", "\xc0\xaf", false},
      {"overlong in three bytes", "\xe0\x80\xaf", false},
      {"surrogate", "\xed\xa0\x80", false},
      {"beyond Unicode", "\xf4\x90\x80\x80", false},
      {"0xff", "\xff", false},
  };
  for (Case const& each : cases) {
    EXPECT_EQ(CodeSet_Validate(each.bytes.data(), each.bytes.size(), "UTF-8"), each.valid) << each.what;
  }
}

TEST(CodeSetValidate, KnowsNoOtherEncoding) {
  for (char const* encoding : {"", "utf-8", "UTF8", "UTF-16", "ISO-8859-1"}) {
    EXPECT_FALSE(CodeSet_Validate("a", 1, encoding)) << encoding;
  }
}

TEST(StrSafeAsprintf, FormatsIntoNewText) {
  std::size_t length = 0;
  Owned const text =
      Own(Str_SafeAsprintf(&length, "%s/lib/%s/%s", "/usr/lib/orbane", "libpam.so.0", "libpam.so.0"));
  EXPECT_STREQ(text.get(), "/usr/lib/orbane/lib/libpam.so.0/libpam.so.0");
  EXPECT_EQ(length, std::string(text.get()).size());
}

TEST(StrSafeAsprintf, LengthMayBeNull) {
  EXPECT_STREQ(Own(Str_SafeAsprintf(nullptr, "%d", 7)).get(), "7");
}

TEST(StrSafeAsprintf, FailureGivesNullAndNoLength) {
  std::size_t length = 99;
  // A wide character that the C locale can't write makes printf fail.
  Owned const text = Own(Str_SafeAsprintf(&length, "%lc", static_cast<wint_t>(0x20ac)));
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(length, 0U);
}

std::string Hexadecimal(std::array<std::uint8_t, 32> const& digest) {
  std::string text;
  for (std::uint8_t const byte : digest) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

TEST(CryptoHash, GivesThePlainDigest) {
  // FIPS 180-4 test vectors.
  struct Case {
    std::string data;
    char const* digest;
  };
  Case const cases[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  for (Case const& each : cases) {
    std::array<std::uint8_t, 32> digest{};
    ASSERT_TRUE(CryptoHash_ComputeSHA256(each.data.data(), each.data.size(), digest.data()));
    EXPECT_EQ(Hexadecimal(digest), each.digest);
  }
}

TEST(Uuid, RandomOnesAreVersion4AndDiffer) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    std::string const text = Own(UUID_CreateRandom()).get();
    ASSERT_EQ(text.size(), 36U);
    EXPECT_EQ(text.find_first_not_of("0123456789abcdef-"), std::string::npos) << text;
    EXPECT_EQ(text[8], '-');
    EXPECT_EQ(text[13], '-');
    EXPECT_EQ(text[18], '-');
    EXPECT_EQ(text[23], '-');
    EXPECT_EQ(text[14], '4') << "version, RFC 4122 section 4.1.3";
    EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos) << "variant, RFC 4122 section 4.1.1";
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 1000U);
}

TEST(Uuid, PacksAnyUsualSpelling) {
  constexpr char kPacked[] = "6f1c2d3e-4a5b-4c6d-8e9f-0123456789ab";
  struct Case {
    char const* source;
    bool valid;
  };
  Case const cases[] = {
      {kPacked, true},
      {"6F1C2D3E-4A5B-4C6D-8E9F-0123456789AB", true},
      {"6f1c2d3e4a5b4c6d8e9f0123456789ab", true},
      {"{6f1c2d3e-4a5b-4c6d-8e9f-0123456789ab}", true},
      {"{6f1c2d3e4a5b4c6d8e9f0123456789ab}", true},
      {"urn:uuid:6f1c2d3e-4a5b-4c6d-8e9f-0123456789ab", true},
      {"URN:UUID:6F1C2D3E-4A5B-4C6D-8E9F-0123456789AB", true},
      {"", false},
      {"6f1c2d3e-4a5b-4c6d-8e9f-0123456789a", false},
      {"6f1c2d3e-4a5b-4c6d-8e9f-0123456789abc", false},
      {"6f1c2d3e-4a5b-4c6d-8e9f-0123456789ab x", false},
      {"{6f1c2d3e-4a5b-4c6d-8e9f-0123456789ab", false},
      {"6f1c2d3e-4a5b-4c6d-8e9f-0123456789ab}", false},
      {"6f1c2d3g-4a5b-4c6d-8e9f-0123456789ab", false},
      {"6f1c-2d3e-4a5b-4c6d-8e9f0123456789ab", false},
      {"not an identifier, but of length 36.", false},
  };
  for (Case const& each : cases) {
    char packed[64] = "untouched";
    char const* const result = UUID_PackText(packed, each.source, sizeof packed - 1);
    if (each.valid) {
      EXPECT_EQ(result, packed) << each.source;
      EXPECT_STREQ(packed, kPacked) << each.source;
    } else {
      EXPECT_EQ(result, nullptr) << each.source;
      EXPECT_STREQ(packed, "untouched") << each.source;
    }
  }
}

TEST(Uuid, PacksInPlace) {
  Owned const text = Own(UUID_CreateRandom());
  std::string const before = text.get();
  ASSERT_EQ(UUID_PackText(text.get(), text.get(), before.size()), text.get());
  EXPECT_EQ(text.get(), before);
}

TEST(Uuid, RefusesADestinationThatIsTooSmall) {
  char packed[64] = "untouched";
  EXPECT_EQ(UUID_PackText(packed, "6f1c2d3e-4a5b-4c6d-8e9f-0123456789ab", 35), nullptr);
  EXPECT_STREQ(packed, "untouched");
  EXPECT_EQ(UUID_PackText(nullptr, "6f1c2d3e-4a5b-4c6d-8e9f-0123456789ab", 36), nullptr);
  EXPECT_EQ(UUID_PackText(packed, nullptr, 36), nullptr);
}

}  // namespace
