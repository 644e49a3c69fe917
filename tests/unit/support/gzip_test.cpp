#include "support/gzip.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using LifeCycle::GzipCompress;
using LifeCycle::GzipDecompress;
using LifeCycle::GzipError;
using LifeCycle::IsGzip;

/// printf 'hello\n' | gzip -n
std::string const kHello(
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\xcb\x48\xcd\xc9\xc9\xe7\x02\x00\x20\x30\x3a\x36\x06\x00\x00"
    "\x00",
    26);

TEST(Gzip, Magic) {
  EXPECT_TRUE(IsGzip(kHello));
  EXPECT_TRUE(IsGzip("\x1f\x8bx"));
  EXPECT_FALSE(IsGzip("\x1f\x8b"));  // two bytes only
  EXPECT_FALSE(IsGzip("\x1f\x8cx"));
  EXPECT_FALSE(IsGzip("\x8b\x1fx"));
  EXPECT_FALSE(IsGzip(""));
}

TEST(Gzip, ReadsWhatOthersWrite) {
  EXPECT_EQ(GzipDecompress(kHello), "hello\n");
}

TEST(Gzip, HeaderIsPlain) {
  std::string const packed = GzipCompress("hello\n");
  EXPECT_EQ(packed.substr(0, 8), kHello.substr(0, 8));  // deflate, no name, no comment, no time
  EXPECT_EQ(packed, GzipCompress("hello\n"));
}

TEST(Gzip, RoundTrips) {
  std::string all;
  for (int i = 0; i < 100000; ++i) {
    all += static_cast<char>(i * 7919 % 251);
  }
  for (std::string const& text :
       {std::string(), std::string("x"), std::string(4096, 'y'), std::string(4097, 'z'), all}) {
    EXPECT_EQ(GzipDecompress(GzipCompress(text)), text) << text.size();
  }
}

TEST(Gzip, CutAtEveryByte) {
  for (std::size_t length = 3; length < kHello.size(); ++length) {
    EXPECT_THROW(GzipDecompress(kHello.substr(0, length)), GzipError) << length;
  }
  std::string text;
  for (int i = 0; i < 3000; ++i) {
    text += std::to_string(i * i);
  }
  std::string const packed = GzipCompress(text);
  for (std::size_t length = 3; length < packed.size(); length += 97) {
    EXPECT_THROW(GzipDecompress(packed.substr(0, length)), GzipError) << length;
  }
}

TEST(Gzip, EachByteFlipped) {
  // Neither bytes of the plain header nor the length behind the checksum are held against anything.
  for (std::size_t i = 10; i < kHello.size() - 4; ++i) {
    std::string bent = kHello;
    bent[i] = static_cast<char>(bent[i] ^ 0xff);
    EXPECT_THROW(GzipDecompress(bent), GzipError) << i;
  }
}

TEST(Gzip, TextBehindTheMember) {
  EXPECT_THROW(GzipDecompress(kHello + "garbage"), GzipError);
}

TEST(Gzip, OutputLimit) {
  EXPECT_EQ(GzipDecompress(kHello, 6), "hello\n");
  EXPECT_THROW(GzipDecompress(kHello, 5), GzipError);
  std::string const bomb = GzipCompress(std::string(LifeCycle::kGzipOutputLimit + 1, '\0'));
  EXPECT_LT(bomb.size(), 100000U);
  try {
    GzipDecompress(bomb);
    ADD_FAILURE() << "taken";
  } catch (GzipError const& error) {
    EXPECT_STREQ(error.what(), "more than 67108864 bytes of output");
  }
}

}  // namespace
