#include "platform/audit/audit_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "platform/logging/syslog_line.h"

namespace {

using Orbane::AuditLine;
using Orbane::kMaxAuditText;

/// The line of an event with that subject, and what stands for the subject in it.
std::string Shown(std::string const& subject) {
  std::string const line = AuditLine("e", subject.c_str(), "o", true, nullptr);
  std::string const head = R"({"event":"e","subject":")";
  std::string const tail = R"(","object":"o","result":true,"items":{}})";
  EXPECT_EQ(line.substr(0, head.size()), head);
  EXPECT_EQ(line.substr(line.size() - tail.size()), tail);
  return line.substr(head.size(), line.size() - head.size() - tail.size());
}

TEST(AuditLine, HasAllMembersInOrder) {
  OrbAuditItem const items[] = {
      {"ip", "127.0.0.1"}, {"opID", "com.orbane.halo.tasks.list"}, {"reason", ""}, {nullptr, nullptr}};
  EXPECT_EQ(AuditLine("service.password.use", "alice", "a.b", false, items),
            R"({"event":"service.password.use","subject":"alice","object":"a.b","result":false,)"
            R"("items":{"ip":"127.0.0.1","opID":"com.orbane.halo.tasks.list","reason":""}})");
}

TEST(AuditLine, NoItemsAreNone) {
  OrbAuditItem const none[] = {{nullptr, nullptr}};
  std::string const expected = R"({"event":"e","subject":"s","object":"o","result":true,"items":{}})";
  EXPECT_EQ(AuditLine("e", "s", "o", true, nullptr), expected);
  EXPECT_EQ(AuditLine("e", "s", "o", true, none), expected);
}

TEST(AuditLine, NullTextsAreEmpty) {
  OrbAuditItem const items[] = {{"a", nullptr}, {nullptr, "b"}, {nullptr, nullptr}};
  EXPECT_EQ(AuditLine(nullptr, nullptr, nullptr, true, items),
            R"({"event":"","subject":"","object":"","result":true,"items":{"a":"","":"b"}})");
}

TEST(AuditLine, HostileTextsCannotLeaveTheirPlace) {
  struct Case {
    std::string text;
    std::string shown;
  };
  Case const cases[] = {
      {"plain ~ text!", "plain ~ text!"},
      {R"(","result":true,"x":")", R"(\",\"result\":true,\"x\":\")"},
      {R"(\)", R"(\\)"},
      {"a\nb\r\t\x01\x1f\x7f", R"(a\u000ab\u000d\u0009\u0001\u001f\u007f)"},
      {"\x1b[2J", R"(\u001b[2J)"},
      {"J\xc3\xb6rg", R"(J\u00f6rg)"},
      {"\xc2\x85\xe2\x80\xa8", R"(\u0085\u2028)"},
      {"\xe2\x80\xaetxt.exe", R"(\u202etxt.exe)"},
      {"\xef\xbf\xbf\xf0\x90\x80\x80\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf",
       R"(\uffff\ud800\udc00\ud83d\ude00\udbff\udfff)"},
      // No UTF-8: lone bytes, a cut sequence, an overlong form, a surrogate, beyond the last character.
      {"\xff|\x80|\xc3", "#377|#200|#303"},
      {"\xe2\x82", "#342#202"},
      {"\xe2\x82z", "#342#202z"},
      {"\xc0\xaf", "#300#257"},
      {"\xed\xa0\x80", "#355#240#200"},
      {"\xf4\x90\x80\x80", "#364#220#200#200"},
  };
  for (Case const& each : cases) {
    EXPECT_EQ(Shown(each.text), each.shown);
  }
}

TEST(AuditLine, EveryByteInNamesAndValuesStaysOnTheLine) {
  for (int byte = 1; byte < 256; ++byte) {
    std::string const text(1, static_cast<char>(byte));
    OrbAuditItem const items[] = {{text.c_str(), text.c_str()}, {nullptr, nullptr}};
    std::string const line = AuditLine(text.c_str(), text.c_str(), text.c_str(), true, items);
    EXPECT_TRUE(std::all_of(line.begin(), line.end(), [](char c) { return c >= 0x20 && c < 0x7f; })) << byte;
    std::string logged;
    Orbane::AppendLogText(logged, line);
    EXPECT_EQ(logged, line) << "the log has nothing left to escape";
  }
}

TEST(AuditLine, LongTextsAreCutAndSaySo) {
  std::string const most(kMaxAuditText, 'x');
  EXPECT_EQ(Shown(most), most);
  EXPECT_EQ(Shown(most + "y"), most + " [1 bytes cut]");
  EXPECT_EQ(Shown(most + std::string(1'000'000, 'y')), most + " [1000000 bytes cut]");
}

TEST(AuditLine, NoCharacterIsCutInHalf) {
  std::string const euro = "\xe2\x82\xac";
  for (std::size_t before = 0; before < 3; ++before) {
    std::string const lead(kMaxAuditText - before, 'x');
    EXPECT_EQ(Shown(lead + euro + euro), lead + " [6 bytes cut]") << before;
  }
  std::string const lead(kMaxAuditText - 3, 'x');
  EXPECT_EQ(Shown(lead + euro + euro), lead + R"(\u20ac [3 bytes cut])");
  // What is no UTF-8 has no characters to keep whole.
  std::string shown;
  for (std::size_t i = 0; i < kMaxAuditText; ++i) {
    shown += "#200";
  }
  EXPECT_EQ(Shown(std::string(kMaxAuditText + 9, '\x80')), shown + " [9 bytes cut]");
}

TEST(AuditLine, NeverGrowsBeyondWhatTheLogTakes) {
  std::string const worst(4 * kMaxAuditText, '\x01');
  std::vector<OrbAuditItem> items(50, {"name", worst.c_str()});
  items.push_back({nullptr, nullptr});
  std::string const line = AuditLine(worst.c_str(), worst.c_str(), worst.c_str(), false, items.data());
  EXPECT_LE(line.size(), Orbane::kMaxAuditLine);
  EXPECT_LT(line.size(), Orbane::kMaxLogText);
  EXPECT_TRUE(line.ends_with(R"( bytes cut]","omitted":"46"}})")) << line.substr(line.size() - 60);
}

TEST(AuditLine, AnItemThatIsTooLargeLeavesRoomForSmallerOnes) {
  std::string const worst(kMaxAuditText, '\x01');
  std::vector<OrbAuditItem> items(10, {worst.c_str(), worst.c_str()});
  items.push_back({"last", "fits"});
  items.push_back({nullptr, nullptr});
  std::string const line = AuditLine("e", "s", "o", false, items.data());
  EXPECT_NE(line.find(R"("last":"fits","omitted":")"), std::string::npos);
}

TEST(OrbAuditText, ShowsNuls) {
  using namespace std::string_literals;
  EXPECT_EQ(OrbAudit_Text(""), "");
  EXPECT_EQ(OrbAudit_Text("plain"), "plain");
  EXPECT_EQ(OrbAudit_Text("\0a\0\0b\0"s), "#000a#000#000b#000");
}

}  // namespace
