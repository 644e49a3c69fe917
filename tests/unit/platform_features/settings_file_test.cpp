#include "platform/features/settings_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

using Orbane::ParseSettings;
using Orbane::ReadSettingsFile;
using Orbane::SettingsFile;
using Entries = std::vector<std::pair<std::string, std::string>>;

TEST(ParseSettings, TakesLines) {
  struct Case {
    std::string text;
    Entries entries;
  };
  Case const cases[] = {
      {"", {}},
      {"\n\n", {}},
      {"# a remark\n  # another", {}},
      {"QuickPatch = on", {{"QuickPatch", "on"}}},
      {"QuickPatch=on\nQuickPatch=off\n", {{"QuickPatch", "on"}, {"QuickPatch", "off"}}},
      {"  a\t=\tb  \r\n", {{"a", "b"}}},
      {"libdir = \"/opt/my lib\"", {{"libdir", "/opt/my lib"}}},
      {"a = b = c", {{"a", "b = c"}}},
      {"a =", {{"a", ""}}},
      {"a = \"\"", {{"a", ""}}},
      {"a = on # no remark here", {{"a", "on # no remark here"}}},
      {"no-line.end_1 = x", {{"no-line.end_1", "x"}}},
  };
  for (Case const& each : cases) {
    SettingsFile const file = ParseSettings(each.text, "f");
    EXPECT_EQ(file.entries, each.entries) << each.text;
    EXPECT_TRUE(file.warnings.empty()) << each.text;
  }
}

TEST(ParseSettings, PassesOverWhatItCannotRead) {
  struct Case {
    std::string line;
    char const* warning;
  };
  Case const cases[] = {
      {"nonsense", "cannot read \"f\" line 2: no \"=\""},
      {"= value", "cannot read \"f\" line 2: not a name"},
      {"two words = value", "cannot read \"f\" line 2: not a name"},
      {"na\xc3\xafve = value", "cannot read \"f\" line 2: not a name"},
      {std::string(200, 'n') + " = value", "cannot read \"f\" line 2: not a name"},
      {"a = \"open", "cannot read \"f\" line 2: unbalanced quotes"},
      {"a = open\"", "cannot read \"f\" line 2: unbalanced quotes"},
      {"a = \"", "cannot read \"f\" line 2: unbalanced quotes"},
      {"a = \x1b[2J", "cannot read \"f\" line 2: control character"},
      {std::string("a = \0b", 6), "cannot read \"f\" line 2: control character"},
  };
  for (Case const& each : cases) {
    SettingsFile const file = ParseSettings("before = 1\n" + each.line + "\nafter = 2\n", "f");
    EXPECT_EQ(file.entries, (Entries{{"before", "1"}, {"after", "2"}})) << each.line;
    EXPECT_EQ(file.warnings, std::vector<std::string>{each.warning}) << each.line;
  }
}

TEST(ParseSettings, ManyBadLinesGiveFewWarnings) {
  std::string text;
  for (int i = 0; i < 1000; ++i) {
    text += "bad\n";
  }
  SettingsFile const file = ParseSettings(text + "good = 1", "f");
  ASSERT_EQ(file.warnings.size(), 21U);
  EXPECT_EQ(file.warnings.back(), "cannot read \"f\": 980 further lines");
  EXPECT_EQ(file.entries, (Entries{{"good", "1"}}));
}

class ReadSettings : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/settings-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    path_ = folder_ + "/file.conf";
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string folder_;
  std::string path_;
};

TEST_F(ReadSettings, ReadsAFile) {
  std::ofstream(path_) << "a = 1\n";
  EXPECT_EQ(ReadSettingsFile(path_).entries, (Entries{{"a", "1"}}));
}

TEST_F(ReadSettings, AMissingFileIsNothing) {
  SettingsFile const file = ReadSettingsFile(path_);
  EXPECT_TRUE(file.entries.empty());
  EXPECT_TRUE(file.warnings.empty());
}

TEST_F(ReadSettings, AnythingButAPlainFileIsWarnedOf) {
  std::string const expected = "cannot read \"" + path_ + "\": not a plain file";
  ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
  EXPECT_EQ(ReadSettingsFile(path_).warnings, std::vector<std::string>{expected});
  ASSERT_EQ(rmdir(path_.c_str()), 0);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(ReadSettingsFile(path_).warnings, std::vector<std::string>{expected})
      << "and a FIFO doesn't block";
  ASSERT_EQ(unlink(path_.c_str()), 0);
  ASSERT_EQ(symlink("/dev/zero", path_.c_str()), 0);
  EXPECT_EQ(ReadSettingsFile(path_).warnings, std::vector<std::string>{expected});
}

TEST_F(ReadSettings, AFileThatIsTooLargeIsLeftOut) {
  std::ofstream(path_) << "a = 1\n" << std::string(Orbane::kMaxSettingsBytes, '#');
  SettingsFile const file = ReadSettingsFile(path_);
  EXPECT_TRUE(file.entries.empty());
  EXPECT_EQ(file.warnings,
            std::vector<std::string>{"cannot read \"" + path_ + "\": larger than 262144 bytes"});
}

TEST_F(ReadSettings, TheLargestFileIsTaken) {
  std::string const line = "a = 1\n";
  std::ofstream(path_) << line << std::string(Orbane::kMaxSettingsBytes - line.size(), '#');
  EXPECT_EQ(ReadSettingsFile(path_).entries, (Entries{{"a", "1"}}));
}

TEST_F(ReadSettings, AnUnreadableFileIsWarnedOf) {
  std::string const loop = path_;
  ASSERT_EQ(symlink(loop.c_str(), path_.c_str()), 0);
  EXPECT_EQ(ReadSettingsFile(path_).warnings,
            std::vector<std::string>{"cannot open \"" + path_ + "\": Too many levels of symbolic links"});
}

}  // namespace
