#pragma once

#include <cstdint>
#include <string>

namespace Lumo {

/// A UTC time stamp of milliseconds. Default: 1970-01-01T00:00:00.000Z.
class DateTime {
 public:
  DateTime() = default;

  /// `source` is milliseconds since 1970 (long) or a text "YYYY-MM-DDTHH:MM:SS.mmmZ" (std::string; the
  /// fraction may be missing). False, leaving `out` alone, for anything else or years outside 0001 to 9999.
  template <typename Source>
  static bool Create(Source const& source, DateTime& out);

  static DateTime GetUtcDateTime();

  std::string ToString() const;
  std::int64_t millisecondsSinceEpoch() const { return milliseconds_; }
  friend bool operator==(DateTime const&, DateTime const&) = default;

 private:
  std::int64_t milliseconds_ = 0;
};

template <>
bool DateTime::Create<long>(long const& source, DateTime& out);
template <>
bool DateTime::Create<std::string>(std::string const& source, DateTime& out);

}  // namespace Lumo
