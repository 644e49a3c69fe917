#include "platform/features/settings_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace Orbane {
namespace {

/// After so many the rest of a file's warnings is counted only, so that a broken file can't flood the log.
constexpr std::size_t kMaxWarnings = 20;
constexpr std::size_t kMaxNameLength = 128;

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\f\v";
  std::size_t const first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsName(std::string_view text) {
  return !text.empty() && text.size() <= kMaxNameLength && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.';
  });
}

bool HasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7f; });
}

/// Takes off the double quotes around a value. False when only one of the two is there.
bool Unquote(std::string_view& value) {
  bool const opens = !value.empty() && value.front() == '"';
  bool const closes = value.size() > 1 && value.back() == '"';
  if (opens && closes) {
    value = value.substr(1, value.size() - 2);
  }
  return opens == closes;
}

/// Null when the line was taken or holds nothing, else what is wrong with it.
char const* ParseLine(std::string_view line, SettingsFile& file) {
  line = Trim(line);
  if (line.empty() || line.front() == '#') {
    return nullptr;
  }
  if (HasControlCharacter(line)) {
    return "control character";
  }
  std::size_t const equals = line.find('=');
  if (equals == std::string_view::npos) {
    return "no \"=\"";
  }
  std::string_view const name = Trim(line.substr(0, equals));
  if (!IsName(name)) {
    return "not a name";
  }
  std::string_view value = Trim(line.substr(equals + 1));
  if (!Unquote(value)) {
    return "unbalanced quotes";
  }
  file.entries.emplace_back(name, value);
  return nullptr;
}

SettingsFile OneWarning(std::string text) {
  return SettingsFile{{}, {std::move(text)}};
}

/// Reads at most one byte more than is allowed. False, with errno set, when reading fails.
bool ReadBounded(int descriptor, std::string& text) {
  char buffer[4096];
  while (text.size() <= kMaxSettingsBytes) {
    ssize_t const count = read(descriptor, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return count == 0;
    }
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace

SettingsFile ParseSettings(std::string const& text, std::string const& path) {
  SettingsFile file;
  std::size_t number = 0;
  std::size_t unreported = 0;
  std::string_view rest = text;
  while (!rest.empty()) {
    ++number;
    std::size_t const end = std::min(rest.find('\n'), rest.size());
    char const* const problem = ParseLine(rest.substr(0, end), file);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (problem == nullptr) {
      continue;
    }
    if (file.warnings.size() < kMaxWarnings) {
      file.warnings.push_back("cannot read \"" + path + "\" line " + std::to_string(number) + ": " + problem);
    } else {
      ++unreported;
    }
  }
  if (unreported > 0) {
    file.warnings.push_back("cannot read \"" + path + "\": " + std::to_string(unreported) + " further lines");
  }
  return file;
}

SettingsFile ReadSettingsFile(std::string const& path) {
  // O_NONBLOCK: a FIFO planted at the name must not hold the start.
  int const descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) {
    int const error = errno;
    if (error == ENOENT) {
      return {};
    }
    return OneWarning("cannot open \"" + path + "\": " + std::strerror(error));
  }
  struct stat status {};
  std::string text;
  bool const plain = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  bool const read = plain && ReadBounded(descriptor, text);
  int const error = errno;
  close(descriptor);
  if (!plain) {
    return OneWarning("cannot read \"" + path + "\": not a plain file");
  }
  if (!read) {
    return OneWarning("cannot read \"" + path + "\": " + std::strerror(error));
  }
  if (text.size() > kMaxSettingsBytes) {
    return OneWarning("cannot read \"" + path + "\": larger than " + std::to_string(kMaxSettingsBytes) +
                      " bytes");
  }
  return ParseSettings(text, path);
}

}  // namespace Orbane
