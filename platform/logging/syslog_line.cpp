#include "platform/logging/syslog_line.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace Orbane {
namespace {

constexpr int kSeverityError = 3;
constexpr int kLastPriority = 4;

void AppendEscaped(std::string& line, unsigned char byte) {
  char const escaped[] = {'#', static_cast<char>('0' + (byte >> 6)),
                          static_cast<char>('0' + ((byte >> 3) & 7)), static_cast<char>('0' + (byte & 7))};
  line.append(escaped, sizeof escaped);
}

bool IsPlain(unsigned char byte) {
  return byte >= 0x20 && byte < 0x7f;
}

/// Length of the well-formed UTF-8 sequence of two bytes or more at the front of `text` that may be shown,
/// else 0.
std::size_t ShownSequence(std::string_view text) {
  auto const at = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  auto const continues = [&](std::size_t i, unsigned low, unsigned high) {
    return i < text.size() && at(i) >= low && at(i) <= high;
  };
  unsigned const lead = at(0);
  if (lead >= 0xc2 && lead <= 0xdf) {
    // C2 80 to C2 9F are the C1 controls.
    return continues(1, lead == 0xc2 ? 0xa0 : 0x80, 0xbf) ? 2 : 0;
  }
  if (lead >= 0xe0 && lead <= 0xef) {
    // No overlong forms, no surrogates.
    return continues(1, lead == 0xe0 ? 0xa0 : 0x80, lead == 0xed ? 0x9f : 0xbf) && continues(2, 0x80, 0xbf)
               ? 3
               : 0;
  }
  if (lead >= 0xf0 && lead <= 0xf4) {
    // No overlong forms, nothing above U+10FFFF.
    return continues(1, lead == 0xf0 ? 0x90 : 0x80, lead == 0xf4 ? 0x8f : 0xbf) && continues(2, 0x80, 0xbf) &&
                   continues(3, 0x80, 0xbf)
               ? 4
               : 0;
  }
  return 0;
}

void AppendClean(std::string& line, std::string_view text, bool escapeBrackets) {
  while (!text.empty()) {
    std::size_t plain = 0;
    while (plain < text.size() && IsPlain(static_cast<unsigned char>(text[plain])) &&
           !(escapeBrackets && (text[plain] == '[' || text[plain] == ']'))) {
      ++plain;
    }
    line.append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) {
      break;
    }
    std::size_t const shown = ShownSequence(text);
    if (shown > 0) {
      line.append(text.substr(0, shown));
      text.remove_prefix(shown);
    } else {
      AppendEscaped(line, static_cast<unsigned char>(text.front()));
      text.remove_prefix(1);
    }
  }
}

}  // namespace

int SeverityOfPriority(int priority) {
  return kSeverityError + std::clamp(priority, 0, kLastPriority);
}

std::string_view CutLogText(std::string_view text, std::string& storage) {
  if (text.size() <= kMaxLogText) {
    return text;
  }
  storage.assign(text.substr(0, kMaxLogText));
  storage += " [" + std::to_string(text.size() - kMaxLogText) + " bytes cut]";
  return storage;
}

void AppendLogText(std::string& line, std::string_view text) {
  if (!text.empty() && text.back() == '\n') {
    text.remove_suffix(1);
  }
  AppendClean(line, text, false);
}

void AppendContextEntry(std::string& line, std::string_view name, std::string_view value) {
  line += '[';
  AppendClean(line, name, true);
  line += '=';
  AppendClean(line, value, true);
  line += "] ";
}

SyslogHead::SyslogHead(std::string_view tag, int pid)
    : tag_(std::string(tag) + "[" + std::to_string(pid) + "]: ") {}

void SyslogHead::Append(std::string& line, int priority, std::time_t seconds, SyslogFacility facility) {
  if (seconds != seconds_) {
    // Month names of the protocol, whatever the locale.
    constexpr std::array<char const*, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    std::snprintf(text, sizeof text, "%s %2d %02d:%02d:%02d ",
                  kMonths[static_cast<std::size_t>(local.tm_mon)], local.tm_mday, local.tm_hour, local.tm_min,
                  local.tm_sec);
    timestamp_ = text;
    seconds_ = seconds;
  }
  line += '<';
  line += std::to_string(static_cast<int>(facility) * 8 + SeverityOfPriority(priority));
  line += '>';
  line += timestamp_;
  line += tag_;
}

}  // namespace Orbane
