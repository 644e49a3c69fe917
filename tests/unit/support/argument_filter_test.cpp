#include "support/argument_filter.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using LifeCycle::IsBlank;
using LifeCycle::IsSafeArgument;

TEST(ArgumentFilter, Blank) {
  for (char const* text : {"", " ", "   ", "\t", "\n", " \t\r\n\v\f"}) {
    EXPECT_TRUE(IsBlank(text)) << '"' << text << '"';
    EXPECT_FALSE(IsSafeArgument(text)) << '"' << text << '"';
  }
  EXPECT_FALSE(IsBlank(" a "));
  EXPECT_FALSE(IsBlank("\xC2\xA0"));  // bytes outside ASCII are no white space
  EXPECT_FALSE(IsBlank(std::string(1, '\0')));
}

TEST(ArgumentFilter, EachByteAlone) {
  std::string const forbidden = ";\\*+%$~!\"':&|`\n";
  ASSERT_EQ(forbidden.size(), 15U);
  for (int byte = 0; byte < 256; ++byte) {
    std::string const text = "a" + std::string(1, static_cast<char>(byte)) + "b";
    EXPECT_EQ(IsSafeArgument(text), forbidden.find(static_cast<char>(byte)) == std::string::npos) << byte;
  }
}

TEST(ArgumentFilter, Texts) {
  EXPECT_TRUE(IsSafeArgument("web-base"));
  EXPECT_TRUE(IsSafeArgument("two words"));
  EXPECT_TRUE(IsSafeArgument("\t<>()#?=[]{}^ x"));
  EXPECT_FALSE(IsSafeArgument("name:1.0"));
  EXPECT_FALSE(IsSafeArgument(":"));
  EXPECT_FALSE(IsSafeArgument("ends with;"));
}

}  // namespace
