#include "transport/text.h"

#include <algorithm>
#include <charconv>

namespace Lumo {

namespace {

constexpr unsigned char Lower(char c) noexcept {
  auto const byte = static_cast<unsigned char>(c);
  return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

constexpr bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

class ConversionCategory final : public std::error_category {
 public:
  char const* name() const noexcept override { return "Lumo Conversion Error"; }
  std::string message(int code) const override {
    switch (static_cast<Detail::ConversionErrc>(code)) {
      case Detail::ConversionErrc::Empty:
        return "empty number";
      case Detail::ConversionErrc::OutOfRange:
        return "number out of range";
      case Detail::ConversionErrc::NotDigits:
        return "not a number";
    }
    return "conversion error";
  }
};

}  // namespace

int StrICmp(boost::string_view a, boost::string_view b) noexcept {
  std::size_t const common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    int const difference = static_cast<int>(Lower(a[i])) - static_cast<int>(Lower(b[i]));
    if (difference != 0) {
      return difference;
    }
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

void InplaceLower(boost::string_view text) noexcept {
  auto* bytes = const_cast<char*>(text.data());
  for (std::size_t i = 0; i < text.size(); ++i) {
    bytes[i] = static_cast<char>(Lower(bytes[i]));
  }
}

namespace Detail {

std::error_code make_error_code(ConversionErrc code) noexcept {
  static ConversionCategory const category;
  return {static_cast<int>(code), category};
}

std::error_code CheckConvert(char const* begin, char const* end) noexcept {
  std::uint64_t number = 0;
  return ParseUnsigned(boost::string_view(begin, static_cast<std::size_t>(end - begin)), number);
}

std::error_code ParseUnsigned(boost::string_view text, std::uint64_t& number) noexcept {
  if (std::all_of(text.begin(), text.end(), IsBlank)) {
    return ConversionErrc::Empty;
  }
  if (!std::all_of(text.begin(), text.end(), IsDigit)) {
    return ConversionErrc::NotDigits;
  }
  std::uint64_t parsed = 0;
  auto const result = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (result.ec != std::errc()) {
    return ConversionErrc::OutOfRange;
  }
  number = parsed;
  return {};
}

}  // namespace Detail

namespace Transport::Http {

boost::string_view FormatSize(std::uint64_t number, char (&scratch)[kSizeScratch]) noexcept {
  auto const result = std::to_chars(scratch, scratch + kSizeScratch, number, 16);
  return {scratch, static_cast<std::size_t>(result.ptr - scratch)};
}

boost::string_view FormatLength(std::uint64_t number, char (&scratch)[kLengthScratch]) noexcept {
  auto const result = std::to_chars(scratch, scratch + kLengthScratch, number);
  return {scratch, static_cast<std::size_t>(result.ptr - scratch)};
}

}  // namespace Transport::Http
}  // namespace Lumo
