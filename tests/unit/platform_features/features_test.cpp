// Runs in the sandbox: the files are those of the product.
#include "platform/features/features.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>

#include "platform/logging/test_only_log_capture.h"

namespace {

using Orbane::CapturedLine;

constexpr char kFeatures[] = "/etc/orbane/features.conf";
constexpr char kPreferences[] = "/etc/orbane/preferences.conf";

class SettingsInPlace : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories("/etc/orbane");
    TearDown();
  }
  void TearDown() override {
    std::remove(kFeatures);
    std::remove(kPreferences);
    FeatureState_InitSilentMode();
    Preference_Init();
  }

  static void Write(char const* path, std::string const& text) { std::ofstream(path) << text; }

  Orbane::TestOnlyLogCapture log_;
};

using Features = SettingsInPlace;
using Preferences = SettingsInPlace;

TEST_F(Features, Defaults) {
  FeatureState_InitSilentMode();
  std::set<int> on;
  for (int i = 0; i < kFeatureCount; ++i) {
    ASSERT_NE(FeatureList[i], nullptr);
    if (*FeatureList[i] != 0) {
      on.insert(i);
    }
  }
  EXPECT_EQ(on, (std::set<int>{113, 116, 117, 118, 119}));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Features, NamesAndIndices) {
  struct Case {
    char const* name;
    int index;
  };
  Case const cases[] = {
      {"QuickPatch", 43},        {"QuickPatchTool", 44},  {"ConfigImpact", 113},
      {"ConfigCompliance", 116}, {"ValidateStrict", 117}, {"ClusterContextSupport", 118},
      {"HostKeys", 119},
  };
  for (Case const& each : cases) {
    EXPECT_EQ(GetFeatureState_Slow(each.name), FeatureList[each.index]) << each.name;
    Write(kFeatures, std::string(each.name) + " = on\n");
    FeatureState_InitSilentMode();
    EXPECT_TRUE(GetFeatureState_Slow(each.index)) << each.name;
    EXPECT_EQ(*FeatureList[each.index], 1) << each.name;
    Write(kFeatures, std::string(each.name) + " = off\n");
    FeatureState_InitSilentMode();
    EXPECT_FALSE(GetFeatureState_Slow(each.index)) << each.name;
    EXPECT_EQ(*FeatureList[each.index], 0) << each.name;
  }
}

TEST_F(Features, UnknownNamesHaveNoSwitch) {
  EXPECT_EQ(GetFeatureState_Slow("hostkeys"), nullptr);
  EXPECT_EQ(GetFeatureState_Slow(""), nullptr);
  EXPECT_EQ(GetFeatureState_Slow(static_cast<char const*>(nullptr)), nullptr);
}

TEST_F(Features, OutsideTheTableIsOff) {
  EXPECT_FALSE(GetFeatureState_Slow(-1));
  EXPECT_FALSE(GetFeatureState_Slow(kFeatureCount));
  EXPECT_FALSE(GetFeatureState_Slow(1 << 30));
}

TEST_F(Features, ASwitchThatLeftTheFileIsAtItsDefaultAgain) {
  Write(kFeatures, "QuickPatch = on\nHostKeys = off\n");
  FeatureState_InitSilentMode();
  EXPECT_TRUE(GetFeatureState_Slow(kFeatureQuickPatch));
  Write(kFeatures, "");
  FeatureState_InitSilentMode();
  EXPECT_FALSE(GetFeatureState_Slow(kFeatureQuickPatch));
  EXPECT_TRUE(GetFeatureState_Slow(kFeatureHostKeys));
}

TEST_F(Features, SilentModeReportsNothing) {
  Write(kFeatures, "Nonsense = on\nQuickPatch = on\nHostKeys = perhaps\nbroken\n");
  FeatureState_InitSilentMode();
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Features, DeltaModeReportsWhatDiffersAndWhatIsOdd) {
  Write(kFeatures,
        "Nonsense = on\nQuickPatch = ON\nConfigImpact = on\nHostKeys = Off\nValidateStrict = "
        "perhaps\nbroken\n");
  FeatureState_InitDeltaMode();
  EXPECT_EQ(
      log_.lines(),
      (std::vector<CapturedLine>{
          {1, "cannot read \"/etc/orbane/features.conf\" line 6: no \"=\""},
          {1, "unknown feature \"Nonsense\" in \"/etc/orbane/features.conf\""},
          {1,
           "feature \"ValidateStrict\" is neither on nor off in \"/etc/orbane/features.conf\": \"perhaps\""},
          {2, "feature QuickPatch is on"},
          {2, "feature HostKeys is off"},
      }));
  EXPECT_TRUE(GetFeatureState_Slow(kFeatureValidateStrict)) << "what can't be read changes nothing";
}

TEST_F(Features, AnyBytesAreSurvived) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::string bytes(random() % 2000, '\0');
    for (char& byte : bytes) {
      byte = static_cast<char>(random());
    }
    Write(kFeatures, bytes + "\nQuickPatch = on\n");
    FeatureState_InitDeltaMode();
    ASSERT_TRUE(GetFeatureState_Slow(kFeatureQuickPatch));
  }
}

TEST_F(Preferences, PathNames) {
  Write(kPreferences, "libdir = /opt/orbane\nsysroot = \"/srv/my root\"\nrelative = lib\nempty =\n");
  Preference_Init();
  EXPECT_EQ(Preference_GetPathName("/usr/lib/orbane", "libdir"), "/opt/orbane");
  EXPECT_EQ(Preference_GetPathName("/", "sysroot"), "/srv/my root");
  EXPECT_EQ(Preference_GetPathName("/usr/lib/orbane", "missing"), "/usr/lib/orbane");
  EXPECT_EQ(Preference_GetPathName("/usr/lib/orbane", "empty"), "/usr/lib/orbane");
  EXPECT_EQ(Preference_GetPathName(nullptr, "missing"), "");
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(Preference_GetPathName("/usr/lib/orbane", "relative"), "/usr/lib/orbane");
  EXPECT_EQ(
      log_.lines(),
      (std::vector<CapturedLine>{
          {1,
           "preference \"relative\" is not an absolute path in \"/etc/orbane/preferences.conf\": \"lib\""}}));
}

TEST_F(Preferences, TheLastOfTwoHolds) {
  Write(kPreferences, "libdir = /a\nlibdir = /b\n");
  Preference_Init();
  EXPECT_EQ(Preference_GetPathName("/c", "libdir"), "/b");
}

TEST_F(Preferences, OddLinesAreWarnedOf) {
  Write(kPreferences, "libdir\n");
  Preference_Init();
  EXPECT_EQ(log_.texts(1),
            std::vector<std::string>{"cannot read \"/etc/orbane/preferences.conf\" line 1: no \"=\""});
  EXPECT_EQ(Preference_GetPathName("/c", "libdir"), "/c");
}

TEST_F(Preferences, WithoutAFileAllIsUnset) {
  Preference_Init();
  EXPECT_EQ(Preference_GetPathName("/c", "libdir"), "/c");
  EXPECT_TRUE(log_.lines().empty());
}

}  // namespace
