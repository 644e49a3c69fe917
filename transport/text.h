// Small text helpers of the HTTP layer: case, numbers of headers and sizes.
#pragma once

#include <boost/utility/string_view.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

namespace Lumo {

/// The blanks of a header line: space and horizontal tab.
constexpr bool IsBlank(char c) noexcept {
  return c == ' ' || c == '\t';
}

/// Compares without regard to ASCII case: negative, 0 or positive as strcmp.
int StrICmp(boost::string_view a, boost::string_view b) noexcept;

/// Lower-cases ASCII letters in place. The viewed bytes must be writable.
void InplaceLower(boost::string_view text) noexcept;

namespace Detail {

/// Why a header's text is no number.
enum class ConversionErrc { Empty = 1, OutOfRange = 2, NotDigits = 3 };

std::error_code make_error_code(ConversionErrc code) noexcept;

/// Tests the text [begin, end) for a decimal number of 64 bits: code 1 when empty or blank, 3 when it holds
/// anything but digits (a sign included), 2 when the number is out of range; no error otherwise.
std::error_code CheckConvert(char const* begin, char const* end) noexcept;

/// The same, giving the number. `number` stays as it is on an error.
std::error_code ParseUnsigned(boost::string_view text, std::uint64_t& number) noexcept;

}  // namespace Detail

namespace Transport::Http {

/// Room for a 64-bit number in hexadecimal, as it precedes chunks and frames.
inline constexpr std::size_t kSizeScratch = 16;
/// Room for a 64-bit number in decimal.
inline constexpr std::size_t kLengthScratch = 32;

/// Writes `number` in lower-case hexadecimal without leading zeros.
boost::string_view FormatSize(std::uint64_t number, char (&scratch)[kSizeScratch]) noexcept;
/// Writes `number` in decimal.
boost::string_view FormatLength(std::uint64_t number, char (&scratch)[kLengthScratch]) noexcept;

}  // namespace Transport::Http
}  // namespace Lumo

template <>
struct std::is_error_code_enum<Lumo::Detail::ConversionErrc> : std::true_type {};
