// The tokens of JSON: texts, numbers, and the encoding under both.
#pragma once

#include <cstddef>
#include <string_view>

namespace Lumo::Protocol::Json {

/// Bytes that must lie readable behind a document's last byte while it is scanned; all zero.
inline constexpr std::size_t kScanPadding = 16;

/// Offset of the first byte that is not part of well-formed UTF-8 (RFC 3629); text.size() when all is well.
std::size_t FindBadUtf8(std::string_view text);

/// Length of the well-formed UTF-8 sequence at the start of a text that isn't empty; 0 when there is none.
std::size_t Utf8SequenceSize(std::string_view text);

/// Outcome of a scan. `problem` is null when it went well; then `next` is the place behind the token,
/// otherwise the place of the fault.
struct Scanned {
  char* next;
  char const* problem;
};

/// Reads the text whose opening quote is right before `begin`, undoing escapes in place. `text` refers to the
/// document. Expects the encoding to be checked.
Scanned ScanString(char* begin, std::string_view& text);

/// A number is an integer exactly when it has neither fraction nor exponent.
struct Number {
  bool isInteger;
  long long integer;
  double real;
};

/// Reads the number that begins at `begin`, a digit or a minus sign.
Scanned ScanNumber(char* begin, Number& number);

}  // namespace Lumo::Protocol::Json
