// The form of one line of the system log, as pure functions.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace Orbane {

/// Longest text of a line, in bytes before escaping. Escaped fourfold it still fits a datagram of the default
/// send buffer (208 KiB on Linux).
inline constexpr std::size_t kMaxLogText = std::size_t{32} * 1024;

/// RFC 3164 section 4.1.1.
enum class SyslogFacility { Daemon = 3, AuthPrivate = 10 };

/// Priorities 0 to 4 as severities 3 (err) to 7 (debug), RFC 3164 section 4.1.1; what lies outside is brought
/// inside.
int SeverityOfPriority(int priority);

/// `text` itself when it is no longer than kMaxLogText, else its beginning with a remark of how many bytes
/// were cut, which lies in `storage`.
std::string_view CutLogText(std::string_view text, std::string& storage);

/// Appends `text` to `line` with one trailing line feed left out and with control characters (C0, DEL, and
/// the UTF-8 forms of C1) and bytes that are no UTF-8 as "#" and three octal digits.
void AppendLogText(std::string& line, std::string_view text);

/// Appends a context entry, "[name=value] "; brackets are escaped too.
void AppendContextEntry(std::string& line, std::string_view name, std::string_view value);

/// Makes the heads of lines, "<pri>Mmm dd hh:mm:ss tag[pid]: ", in local time (RFC 3164 section 4.1). One
/// thread.
class SyslogHead {
 public:
  explicit SyslogHead(std::string_view tag, int pid);
  void Append(std::string& line, int priority, std::time_t seconds,
              SyslogFacility facility = SyslogFacility::Daemon);

 private:
  std::string tag_;           // "keeld[123]: "
  std::time_t seconds_ = -1;  // of timestamp_
  std::string timestamp_;     // "Jan  2 03:04:05 "
};

}  // namespace Orbane
