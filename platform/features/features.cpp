#include "platform/features/features.h"

#include <strings.h>

#include <array>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/features/settings_file.h"
#include "platform/logging/logging.h"

namespace {

constexpr char kFeaturesPath[] = "/etc/orbane/features.conf";
constexpr int kWarning = 1;
constexpr int kStep = 2;

struct NamedFeature {
  int index;
  char const* name;
  bool byDefault;
};

constexpr std::array<NamedFeature, 7> kNamed{{
    {kFeatureQuickPatch, "QuickPatch", false},
    {kFeatureQuickPatchTool, "QuickPatchTool", false},
    {kFeatureConfigImpact, "ConfigImpact", true},
    {kFeatureConfigCompliance, "ConfigCompliance", true},
    {kFeatureValidateStrict, "ValidateStrict", true},
    {kFeatureClusterContextSupport, "ClusterContextSupport", true},
    {kFeatureHostKeys, "HostKeys", true},
}};

/// Flag bytes of the named switches, in the order of kNamed. Written by the entry thread before others start.
constinit std::array<unsigned char, kNamed.size()> flags{0, 0, 1, 1, 1, 1, 1};
constexpr unsigned char kAlwaysOff = 0;

constexpr unsigned char const* FlagOf(int index) {
  for (std::size_t i = 0; i < kNamed.size(); ++i) {
    if (kNamed[i].index == index) {
      return &flags[i];
    }
  }
  return &kAlwaysOff;
}

bool ParseSwitch(std::string const& value, bool& on) {
  bool const isOn = strcasecmp(value.c_str(), "on") == 0;
  bool const isOff = strcasecmp(value.c_str(), "off") == 0;
  on = isOn;
  return isOn || isOff;
}

/// Sets all switches from defaults and file; gives what was odd in the file.
std::vector<std::string> ReadFeatures() {
  for (std::size_t i = 0; i < kNamed.size(); ++i) {
    flags[i] = kNamed[i].byDefault ? 1 : 0;
  }
  Orbane::SettingsFile file = Orbane::ReadSettingsFile(kFeaturesPath);
  for (auto const& [name, value] : file.entries) {
    bool known = false;
    bool on = false;
    bool const readable = ParseSwitch(value, on);
    for (std::size_t i = 0; i < kNamed.size(); ++i) {
      if (name == kNamed[i].name) {
        known = true;
        if (readable) {
          flags[i] = on ? 1 : 0;
        }
      }
    }
    if (!known) {
      std::string warning = "unknown feature \"" + name + "\" in \"";
      warning.append(kFeaturesPath).append("\"");
      file.warnings.push_back(std::move(warning));
    } else if (!readable) {
      std::string warning = "feature \"" + name + "\" is neither on nor off in \"";
      warning.append(kFeaturesPath).append("\": \"").append(value).append("\"");
      file.warnings.push_back(std::move(warning));
    }
  }
  return std::move(file.warnings);
}

}  // namespace

// The table is filled by index; C++ has no designated array elements.
#define FEATURE(n) FlagOf(n)
#define FEATURES_10(n)                                                                                    \
  FEATURE((n)), FEATURE((n) + 1), FEATURE((n) + 2), FEATURE((n) + 3), FEATURE((n) + 4), FEATURE((n) + 5), \
      FEATURE((n) + 6), FEATURE((n) + 7), FEATURE((n) + 8), FEATURE((n) + 9)
constinit unsigned char const* const FeatureList[kFeatureCount] = {
    FEATURES_10(0),  FEATURES_10(10), FEATURES_10(20), FEATURES_10(30), FEATURES_10(40),  FEATURES_10(50),
    FEATURES_10(60), FEATURES_10(70), FEATURES_10(80), FEATURES_10(90), FEATURES_10(100), FEATURES_10(110),
};
#undef FEATURES_10
#undef FEATURE

void FeatureState_InitSilentMode() {
  ReadFeatures();
}

void FeatureState_InitDeltaMode() {
  for (std::string const& warning : ReadFeatures()) {
    CSLogger::Log(kWarning, "%s", warning.c_str());
  }
  for (std::size_t i = 0; i < kNamed.size(); ++i) {
    if ((flags[i] != 0) != kNamed[i].byDefault) {
      CSLogger::Log(kStep, "feature %s is %s", kNamed[i].name, flags[i] != 0 ? "on" : "off");
    }
  }
}

bool GetFeatureState_Slow(int index) {
  return index >= 0 && index < kFeatureCount && *FeatureList[index] != 0;
}

unsigned char const* GetFeatureState_Slow(char const* name) {
  for (NamedFeature const& feature : kNamed) {
    if (name != nullptr && std::strcmp(feature.name, name) == 0) {
      return FeatureList[feature.index];
    }
  }
  return nullptr;
}
