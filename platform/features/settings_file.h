// Reader of `name = value` files that may hold anything.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Orbane {

struct SettingsFile {
  /// In order of the lines; a name may come twice.
  std::vector<std::pair<std::string, std::string>> entries;
  /// One text for each thing that was passed over, with path and line.
  std::vector<std::string> warnings;
};

/// Longest file that is read, in bytes. Settings are a few lines; more is a mistake or an attack.
inline constexpr std::size_t kMaxSettingsBytes = std::size_t{256} * 1024;

/// Reads the file at `path`. A missing file gives no entries and no warning; anything but a plain file, and a
/// file that is too large or can't be read, gives no entries and one warning. Never throws for what is in the
/// file.
SettingsFile ReadSettingsFile(std::string const& path);

/// The same for a text; `path` is for the warnings.
SettingsFile ParseSettings(std::string const& text, std::string const& path);

}  // namespace Orbane
