#include "platform/tickets/ticket_record.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <chrono>

namespace Orbane {
namespace {

/// Takes one flat object of texts; every other event ends the reading.
class RecordHandler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, RecordHandler> {
 public:
  bool Default() { return false; }
  bool StartObject() { return ++objects_ == 1; }
  bool EndObject(rapidjson::SizeType /*members*/) { return true; }
  bool Key(char const* text, rapidjson::SizeType length, bool /*copy*/) {
    std::string_view const name(text, length);
    if (name == "service") {
      wanted_ = &service;
    } else if (name == "expires") {
      wanted_ = &expires;
    } else {
      return false;
    }
    return !wanted_->has_value();
  }
  bool String(char const* text, rapidjson::SizeType length, bool /*copy*/) {
    if (wanted_ == nullptr) {
      return false;
    }
    wanted_->emplace(text, length);
    return true;
  }

  std::optional<std::string> service;
  std::optional<std::string> expires;

 private:
  std::optional<std::string>* wanted_ = nullptr;
  int objects_ = 0;
};

/// The number that the digits of `text` make; -1 when there is anything else in it.
int Digits(std::string_view text) {
  int number = 0;
  for (char const c : text) {
    if (c < '0' || c > '9') {
      return -1;
    }
    number = number * 10 + (c - '0');
  }
  return number;
}

/// Milliseconds since 1970 of "YYYY-MM-DDTHH:MM:SS.mmmZ" or "YYYY-MM-DDTHH:MM:SSZ".
std::optional<std::int64_t> ParseTime(std::string_view text) {
  constexpr std::string_view kLong = "0000-00-00T00:00:00.000Z";
  constexpr std::string_view kShort = "0000-00-00T00:00:00Z";
  std::string_view const form = text.size() == kLong.size() ? kLong : kShort;
  if (text.size() != form.size()) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < form.size(); ++i) {
    if (form[i] != '0' && form[i] != text[i]) {
      return std::nullopt;
    }
  }
  int const year = Digits(text.substr(0, 4));
  int const month = Digits(text.substr(5, 2));
  int const day = Digits(text.substr(8, 2));
  int const hour = Digits(text.substr(11, 2));
  int const minute = Digits(text.substr(14, 2));
  int const second = Digits(text.substr(17, 2));
  int const millisecond = form == kLong ? Digits(text.substr(20, 3)) : 0;
  if (year < 1 || month < 1 || day < 1 || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 ||
      second > 59 || millisecond < 0) {
    return std::nullopt;
  }
  std::chrono::year_month_day const date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok()) {
    return std::nullopt;
  }
  std::chrono::milliseconds const time =
      std::chrono::sys_days(date).time_since_epoch() + std::chrono::hours(hour) +
      std::chrono::minutes(minute) + std::chrono::seconds(second) + std::chrono::milliseconds(millisecond);
  return time.count();
}

}  // namespace

std::optional<TicketRecord> ParseTicketRecord(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) {  // which the reader would take for the end
    return std::nullopt;
  }
  RecordHandler handler;
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
  if (reader.Parse<kFlags>(stream, handler).IsError() || !handler.service || !handler.expires) {
    return std::nullopt;
  }
  std::optional<std::int64_t> const expires = ParseTime(*handler.expires);
  if (!expires || handler.service->empty() || handler.service->find('\0') != std::string::npos) {
    return std::nullopt;
  }
  return TicketRecord{std::move(*handler.service), *expires};
}

}  // namespace Orbane
