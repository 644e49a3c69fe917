#include "runtime/json/text_scanner.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Lumo::Protocol::Json {
namespace {

unsigned Byte(char character) {
  return static_cast<unsigned char>(character);
}
bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}
bool IsContinuation(unsigned byte) {
  return (byte & 0xC0) == 0x80;
}

// First byte at or behind `at` that ends a plain stretch of a text: quote, backslash or control character.
// There is one, since a zero stands behind the document.
char* FindTextEnd(char* at) {
#ifdef __SSE2__
  __m128i const quote = _mm_set1_epi8('"');
  __m128i const backslash = _mm_set1_epi8('\\');
  __m128i const lastControl = _mm_set1_epi8(0x1F);
  for (;; at += 16) {
    __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
    __m128i const control = _mm_cmpeq_epi8(_mm_min_epu8(bytes, lastControl), bytes);
    __m128i const found =
        _mm_or_si128(control, _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)));
    int const mask = _mm_movemask_epi8(found);
    if (mask != 0)
      return at + __builtin_ctz(static_cast<unsigned>(mask));
  }
#else
  while (Byte(*at) > 0x1F && *at != '"' && *at != '\\')
    ++at;
  return at;
#endif
}

// Four hexadecimal digits; -1 when they are not.
int ScanHex4(char const* at) {
  int value = 0;
  for (int index = 0; index < 4; ++index) {
    char const digit = at[index];
    int const lower = digit | 0x20;
    int const nibble = IsDigit(digit) ? digit - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
    if (nibble < 0)
      return -1;
    value = value << 4 | nibble;
  }
  return value;
}

char* PutUtf8(unsigned code, char* out) {
  if (code < 0x80) {
    *out++ = static_cast<char>(code);
  } else if (code < 0x800) {
    *out++ = static_cast<char>(0xC0 | code >> 6);
    *out++ = static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    *out++ = static_cast<char>(0xE0 | code >> 12);
    *out++ = static_cast<char>(0x80 | (code >> 6 & 0x3F));
    *out++ = static_cast<char>(0x80 | (code & 0x3F));
  } else {
    *out++ = static_cast<char>(0xF0 | code >> 18);
    *out++ = static_cast<char>(0x80 | (code >> 12 & 0x3F));
    *out++ = static_cast<char>(0x80 | (code >> 6 & 0x3F));
    *out++ = static_cast<char>(0x80 | (code & 0x3F));
  }
  return out;
}

constexpr char const* kBadEscape = "an escape that JSON doesn't know";
constexpr char const* kLoneSurrogate = "half of a surrogate pair";

// Reads the escape at `at`, a backslash, and writes what it stands for to `out`.
Scanned ScanEscape(char* at, char*& out) {
  switch (at[1]) {
    case '"':
    case '\\':
    case '/':
      *out++ = at[1];
      return {at + 2, nullptr};
    case 'b':
      *out++ = '\b';
      return {at + 2, nullptr};
    case 'f':
      *out++ = '\f';
      return {at + 2, nullptr};
    case 'n':
      *out++ = '\n';
      return {at + 2, nullptr};
    case 'r':
      *out++ = '\r';
      return {at + 2, nullptr};
    case 't':
      *out++ = '\t';
      return {at + 2, nullptr};
    case 'u':
      break;
    default:
      return {at, kBadEscape};
  }
  int const unit = ScanHex4(at + 2);
  if (unit < 0)
    return {at, kBadEscape};
  if (unit >= 0xDC00 && unit <= 0xDFFF)
    return {at, kLoneSurrogate};
  if (unit < 0xD800 || unit > 0xDFFF) {
    out = PutUtf8(static_cast<unsigned>(unit), out);
    return {at + 6, nullptr};
  }
  int const low = at[6] == '\\' && at[7] == 'u' ? ScanHex4(at + 8) : -1;
  if (low < 0xDC00 || low > 0xDFFF)
    return {at, kLoneSurrogate};
  out = PutUtf8(
      0x10000U + ((static_cast<unsigned>(unit) - 0xD800U) << 10) + (static_cast<unsigned>(low) - 0xDC00U),
      out);
  return {at + 12, nullptr};
}

// For a number that std::from_chars gives no value for: infinity when it is too large, else the nearest
// double.
double ConvertExtreme(char const* text) {
  static locale_t const neutral = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(text, nullptr, neutral);
}

}  // namespace

std::size_t Utf8SequenceSize(std::string_view text) {
  unsigned const first = Byte(text[0]);
  if (first < 0x80)
    return 1;
  unsigned const second = text.size() > 1 ? Byte(text[1]) : 0;
  if (first >= 0xC2 && first <= 0xDF)
    return IsContinuation(second) ? 2 : 0;
  bool const third = text.size() > 2 && IsContinuation(Byte(text[2]));
  if (first >= 0xE0 && first <= 0xEF) {
    unsigned const least = first == 0xE0 ? 0xA0 : 0x80;
    unsigned const most = first == 0xED ? 0x9F : 0xBF;
    return second >= least && second <= most && third ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    unsigned const least = first == 0xF0 ? 0x90 : 0x80;
    unsigned const most = first == 0xF4 ? 0x8F : 0xBF;
    bool const fourth = text.size() > 3 && IsContinuation(Byte(text[3]));
    return second >= least && second <= most && third && fourth ? 4 : 0;
  }
  return 0;
}

std::size_t FindBadUtf8(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    std::uint64_t words[4];
    if (text.size() - at >= sizeof words) {
      std::memcpy(words, text.data() + at, sizeof words);
      if (((words[0] | words[1] | words[2] | words[3]) & 0x8080808080808080U) == 0) {
        at += sizeof words;
        continue;
      }
    }
    // A stretch with other characters: step over it until the next plain one begins.
    for (std::size_t const stop = std::min(text.size(), at + sizeof words); at < stop;) {
      std::size_t const size = Utf8SequenceSize(text.substr(at));
      if (size == 0)
        return at;
      at += size;
    }
  }
  return text.size();
}

Scanned ScanString(char* begin, std::string_view& text) {
  char* at = FindTextEnd(begin);
  char* out = at;
  while (*at == '\\') {
    Scanned const escape = ScanEscape(at, out);
    if (escape.problem)
      return escape;
    at = FindTextEnd(escape.next);
    auto const plain = static_cast<std::size_t>(at - escape.next);
    std::memmove(out, escape.next, plain);
    out += plain;
  }
  if (*at != '"')
    return {at, "a text with a control character or without an end"};
  text = {begin, static_cast<std::size_t>(out - begin)};
  return {at + 1, nullptr};
}

Scanned ScanNumber(char* begin, Number& number) {
  bool const negative = *begin == '-';
  char* at = begin + (negative ? 1 : 0);
  if (!IsDigit(*at))
    return {at, "a minus sign without a number"};
  char* const digits = at;
  std::uint64_t magnitude = 0;
  while (IsDigit(*at))
    magnitude = magnitude * 10 + static_cast<unsigned>(*at++ - '0');
  auto const count = at - digits;
  if (*digits == '0' && count > 1)
    return {begin, "a number with a leading zero"};

  if (*at != '.' && *at != 'e' && *at != 'E') {
    constexpr int kMostDigits = 19;  // of a signed 64-bit number
    constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<long long>::max());
    if (count > kMostDigits || magnitude > kLargest + (negative ? 1 : 0)) {
      return {begin, "an integer that doesn't fit 64 bits"};
    }
    number = {true, static_cast<long long>(negative ? 0 - magnitude : magnitude), 0};
    return {at, nullptr};
  }
  if (*at == '.') {
    if (!IsDigit(*++at))
      return {at, "a number without digits behind its point"};
    while (IsDigit(*at))
      ++at;
  }
  if (*at == 'e' || *at == 'E') {
    ++at;
    if (*at == '+' || *at == '-')
      ++at;
    if (!IsDigit(*at))
      return {at, "a number without digits in its exponent"};
    while (IsDigit(*at))
      ++at;
  }
  number = {false, 0, 0};
  auto const converted = std::from_chars(begin, at, number.real);
  if (converted.ec == std::errc::result_out_of_range) {
    number.real = ConvertExtreme(begin);
    if (std::isinf(number.real))
      return {begin, "a number that doesn't fit a double"};
  }
  return {at, nullptr};
}

}  // namespace Lumo::Protocol::Json
