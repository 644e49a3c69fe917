#include <map>
#include <mutex>
#include <string>

#include "platform/features/features.h"
#include "platform/features/settings_file.h"
#include "platform/logging/logging.h"

namespace {

constexpr char kPreferencesPath[] = "/etc/orbane/preferences.conf";
constexpr int kWarning = 1;

std::mutex mutex;

/// Guarded by `mutex`. Never destroyed, so that threads which outlive main may ask.
std::map<std::string, std::string>& Values() {
  static auto* const values = new std::map<std::string, std::string>;
  return *values;
}

}  // namespace

void Preference_Init() {
  Orbane::SettingsFile const file = Orbane::ReadSettingsFile(kPreferencesPath);
  for (std::string const& warning : file.warnings) {
    CSLogger::Log(kWarning, "%s", warning.c_str());
  }
  std::map<std::string, std::string> values;
  for (auto const& [name, value] : file.entries) {
    values[name] = value;
  }
  std::lock_guard lock(mutex);
  Values() = std::move(values);
}

std::string Preference_GetPathName(char const* fallback, char const* name) {
  std::string value;
  {
    std::lock_guard lock(mutex);
    auto const found = Values().find(name);
    if (found != Values().end()) {
      value = found->second;
    }
  }
  bool const isPath = !value.empty() && value.front() == '/';
  if (!value.empty() && !isPath) {
    CSLogger::Log(kWarning, "preference \"%s\" is not an absolute path in \"%s\": \"%s\"", name,
                  kPreferencesPath, value.c_str());
  }
  if (isPath) {
    return value;
  }
  return fallback != nullptr ? fallback : "";
}
