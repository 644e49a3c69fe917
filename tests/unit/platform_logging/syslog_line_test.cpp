#include "platform/logging/syslog_line.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

namespace {

using namespace std::string_literals;

std::string Clean(std::string const& text) {
  std::string line;
  Orbane::AppendLogText(line, text);
  return line;
}

TEST(LogText, OneCallIsOneLine) {
  struct Case {
    char const* what;
    std::string text;
    std::string line;
  };
  Case const cases[] = {
      {"empty", "", ""},
      {"plain", "Task done: 100% #1 [x]", "Task done: 100% #1 [x]"},
      {"one trailing line feed goes", "text\n", "text"},
      {"only one", "text\n\n", "text#012"},
      {"a line feed alone", "\n", ""},
      {"line feed inside", "a\nb", "a#012b"},
      {"carriage return is no line feed", "a\r", "a#015"},
      {"tab", "a\tb", "a#011b"},
      {"NUL", "a\0b"s, "a#000b"},
      {"escape sequence", "\x1b[2J", "#033[2J"},
      {"DEL", "\x7f", "#177"},
      {"UTF-8 stays", "Größe 3 € 😀", "Größe 3 € 😀"},
      {"C1 control in UTF-8",
       "a\xc2\x9b"
       "b",
       "a#302#233b"},
      {"first character after C1", "\xc2\xa0", "\xc2\xa0"},
      {"C1 control as a bare byte", "a\x9b", "a#233"},
      {"Latin-1", "m\xfcller", "m#374ller"},
      {"cut sequence", "\xe2\x82", "#342#202"},
      {"cut sequence, then text", "\xe2\x82x", "#342#202x"},
      {"overlong", "\xc0\xaf\xe0\x80\x80\xf0\x80\x80\x80", "#300#257#340#200#200#360#200#200#200"},
      {"surrogate", "\xed\xa0\x80", "#355#240#200"},
      {"beyond Unicode", "\xf4\x90\x80\x80", "#364#220#200#200"},
      {"highest", "\xf4\x8f\xbf\xbd", "\xf4\x8f\xbf\xbd"},
  };
  for (Case const& each : cases) {
    EXPECT_EQ(Clean(each.text), each.line) << each.what;
  }
}

TEST(LogText, NoByteLeavesARawControlCharacter) {
  for (int byte = 0; byte < 256; ++byte) {
    std::string const line = Clean(std::string(1, static_cast<char>(byte)) + "x");
    for (unsigned char const c : line) {
      EXPECT_TRUE(c >= 0x20 && c < 0x7f) << byte;
    }
    EXPECT_EQ(line.back(), 'x');
  }
}

TEST(LogText, ATextThatIsTooLongIsCut) {
  std::string storage;
  std::string const longest(Orbane::kMaxLogText, 'a');
  EXPECT_EQ(Orbane::CutLogText(longest, storage).data(), longest.data()) << "not copied";
  EXPECT_EQ(Orbane::CutLogText(longest + "bcd", storage), longest + " [3 bytes cut]");
}

TEST(LogContext, EntriesAreInBrackets) {
  struct Case {
    std::string name;
    std::string value;
    std::string text;
  };
  Case const cases[] = {
      {"opId", "nightly-42", "[opId=nightly-42] "},
      {"opId", "", "[opId=] "},
      {"opId", "x] forged [y", "[opId=x#135 forged #133y] "},
      {"opId", "a\nb", "[opId=a#012b] "},
      {"opId", "a\n", "[opId=a#012] "},
  };
  for (Case const& each : cases) {
    std::string line;
    Orbane::AppendContextEntry(line, each.name, each.value);
    EXPECT_EQ(line, each.text);
  }
}

TEST(LogSeverity, OfPriorities) {
  struct Case {
    int priority;
    int severity;
  };
  for (Case const each :
       {Case{0, 3}, Case{1, 4}, Case{2, 5}, Case{3, 6}, Case{4, 7}, Case{-1, 3}, Case{5, 7}}) {
    EXPECT_EQ(Orbane::SeverityOfPriority(each.priority), each.severity) << each.priority;
  }
}

TEST(SyslogHead, FollowsTheProtocol) {
  setenv("TZ", "UTC0", 1);
  tzset();
  Orbane::SyslogHead head("keeld", 123);
  struct Case {
    int priority;
    std::time_t seconds;
    char const* text;
  };
  Case const cases[] = {
      {0, 0, "<27>Jan  1 00:00:00 keeld[123]: "},
      {1, 0, "<28>Jan  1 00:00:00 keeld[123]: "},
      {2, 1767311999, "<29>Jan  1 23:59:59 keeld[123]: "},
      {3, 1767312000, "<30>Jan  2 00:00:00 keeld[123]: "},
      {4, 1795305599, "<31>Nov 21 23:59:59 keeld[123]: "},
      {4, 0, "<31>Jan  1 00:00:00 keeld[123]: "},
  };
  for (Case const& each : cases) {
    std::string line = "kept ";
    head.Append(line, each.priority, each.seconds);
    EXPECT_EQ(line, std::string("kept ") + each.text);
  }
  std::string line;
  head.Append(line, 1, 0, Orbane::SyslogFacility::AuthPrivate);
  EXPECT_EQ(line, "<84>Jan  1 00:00:00 keeld[123]: ");
}

}  // namespace
