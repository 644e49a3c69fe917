#include "platform/process/command_words.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Orbane::SplitCommand;
using Words = std::vector<std::string>;
using namespace std::string_literals;

TEST(SplitCommand, FollowsTheShellsQuotingRules) {
  struct Case {
    std::string command;
    Words words;
  };
  Case const cases[] = {
      {"", {}},
      {"   \t\n ", {}},
      {"a", {"a"}},
      {"  a  b\tc\nd  ", {"a", "b", "c", "d"}},
      {"/usr/bin/python  software --scan", {"/usr/bin/python", "software", "--scan"}},
      // Single quotes keep everything.
      {"'a b'", {"a b"}},
      {R"('a\b"c$d`e')", {R"(a\b"c$d`e)"}},
      {"''", {""}},
      {"a '' b", {"a", "", "b"}},
      {"a''b", {"ab"}},
      {"'a'b'c d'", {"abc d"}},
      {"'it'\\''s'", {"it's"}},
      // Double quotes keep everything but a backslash before some characters.
      {R"("a b")", {"a b"}},
      {R"("a'b")", {"a'b"}},
      {R"("")", {""}},
      {R"("a\"b")", {"a\"b"}},
      {R"("a\\b")", {"a\\b"}},
      {R"("a\$b\`c")", {"a$b`c"}},
      {R"("a\nb")", {"a\\nb"}},
      {R"("a\'b")", {R"(a\'b)"}},
      {"\"a\\\nb\"", {"ab"}},
      {"\"a\nb\"", {"a\nb"}},
      // A backslash outside quotes makes anything ordinary.
      {R"(a\ b)", {"a b"}},
      {R"(\a)", {"a"}},
      {R"(\\)", {"\\"}},
      {R"(\'a)", {"'a"}},
      {R"(\"a)", {"\"a"}},
      {"a\\\nb", {"ab"}},
      {"a \\\n b", {"a", "b"}},
      {"\\\n", {}},
      // Nothing else means anything.
      {"a;b &c|d", {"a;b", "&c|d"}},
      {"$HOME ~ ~root $(id) `id` ${x}", {"$HOME", "~", "~root", "$(id)", "`id`", "${x}"}},
      {"a # no remark", {"a", "#", "no", "remark"}},
      {"*.txt ? [a-z] {a,b}", {"*.txt", "?", "[a-z]", "{a,b}"}},
      {"a>b <c 2>&1", {"a>b", "<c", "2>&1"}},
      {"A=b cmd", {"A=b", "cmd"}},
      {"!x (y)", {"!x", "(y)"}},
      // Bytes pass.
      {"gr\xc3\xbc\xc3\x9f\x65 \xff", {"gr\xc3\xbc\xc3\x9f\x65", "\xff"}},
      {"a\rb\vc", {"a\rb\vc"}},
  };
  for (Case const& each : cases) {
    Words words{"left over"};
    EXPECT_TRUE(SplitCommand(each.command, words)) << each.command;
    EXPECT_EQ(words, each.words) << each.command;
  }
}

TEST(SplitCommand, RefusesWhatHasNoEnd) {
  for (std::string const& command : {"'"s, "\""s, "a 'b"s, "a \"b"s, "a\\"s, "\"a\\"s, "\"a\\\""s, "'a\\'b'"s,
                                     "a 'b\" c"s, "a\0b"s, "\0"s}) {
    Words words{"left over"};
    EXPECT_FALSE(SplitCommand(command, words)) << command;
    EXPECT_TRUE(words.empty()) << command;
  }
}

/// What is quoted comes back whole, whatever it is.
TEST(SplitCommand, SingleQuotingIsSafeForAnyByte) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) {
    all += static_cast<char>(byte);
  }
  std::string quoted = "'";
  for (char const c : all) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  Words words;
  ASSERT_TRUE(SplitCommand("cmd " + quoted + "'", words));
  EXPECT_EQ(words, (Words{"cmd", all}));
}

}  // namespace
