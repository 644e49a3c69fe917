#include "runtime/l10n/date_time.h"

#include <chrono>
#include <cstdio>
#include <string_view>

namespace Lumo {
namespace {

using std::chrono::milliseconds;
using std::chrono::sys_days;
using std::chrono::sys_time;

// 0001-01-01T00:00:00.000Z and 9999-12-31T23:59:59.999Z
constexpr std::int64_t kFirst =
    sys_time<milliseconds>(sys_days(std::chrono::year(1) / std::chrono::January / 1))
        .time_since_epoch()
        .count();
constexpr std::int64_t kLast =
    sys_time<milliseconds>(sys_days(std::chrono::year(10000) / std::chrono::January / 1))
        .time_since_epoch()
        .count() -
    1;

/// Takes `digits` decimal digits off the front of `text`; -1 when they are not there.
int TakeNumber(std::string_view& text, std::size_t digits) {
  if (text.size() < digits) {
    return -1;
  }
  int value = 0;
  for (char const c : text.substr(0, digits)) {
    if (c < '0' || c > '9') {
      return -1;
    }
    value = value * 10 + (c - '0');
  }
  text.remove_prefix(digits);
  return value;
}

bool TakeChar(std::string_view& text, char expected) {
  if (text.empty() || text.front() != expected) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

bool ParseDate(std::string_view& text, sys_days& out) {
  int const year = TakeNumber(text, 4);
  bool ok = TakeChar(text, '-');
  int const month = TakeNumber(text, 2);
  ok = TakeChar(text, '-') && ok;
  int const day = TakeNumber(text, 2);
  if (!ok || year < 1 || month < 0 || day < 0) {
    return false;
  }
  std::chrono::year_month_day const date(std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  if (!date.ok()) {
    return false;
  }
  out = sys_days(date);
  return true;
}

bool ParseTime(std::string_view& text, milliseconds& out) {
  int const hour = TakeNumber(text, 2);
  bool ok = TakeChar(text, ':');
  int const minute = TakeNumber(text, 2);
  ok = TakeChar(text, ':') && ok;
  int const second = TakeNumber(text, 2);
  int const fraction = TakeChar(text, '.') ? TakeNumber(text, 3) : 0;
  if (!ok || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59 ||
      fraction < 0) {
    return false;
  }
  out = std::chrono::hours(hour) + std::chrono::minutes(minute) + std::chrono::seconds(second) +
        milliseconds(fraction);
  return true;
}

}  // namespace

template <>
bool DateTime::Create<long>(long const& source, DateTime& out) {
  if (source < kFirst || source > kLast) {
    return false;
  }
  out.milliseconds_ = source;
  return true;
}

template <>
bool DateTime::Create<std::string>(std::string const& source, DateTime& out) {
  std::string_view text = source;
  sys_days date;
  milliseconds time{};
  if (!ParseDate(text, date) || !TakeChar(text, 'T') || !ParseTime(text, time) || text != "Z") {
    return false;
  }
  out.milliseconds_ = sys_time<milliseconds>(date + time).time_since_epoch().count();
  return true;
}

DateTime DateTime::GetUtcDateTime() {
  DateTime now;
  now.milliseconds_ =
      std::chrono::floor<milliseconds>(std::chrono::system_clock::now()).time_since_epoch().count();
  return now;
}

std::string DateTime::ToString() const {
  sys_time<milliseconds> const time{milliseconds(milliseconds_)};
  auto const day = std::chrono::floor<std::chrono::days>(time);
  std::chrono::year_month_day const date(day);
  std::chrono::hh_mm_ss const clock(time - day);
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

}  // namespace Lumo
