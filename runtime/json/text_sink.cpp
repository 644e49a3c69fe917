#include "runtime/json/text_sink.h"

#include <rapidjson/internal/dtoa.h>
#include <rapidjson/internal/itoa.h>

#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "runtime/json/base64.h"
#include "runtime/json/text_scanner.h"

namespace Lumo::Protocol::Json {
namespace {

// Copies of `count` bytes that also look for bytes that can't stand in quotes as they are: control
// characters, quotes, backslashes, and those beyond ASCII, whose encoding is to be checked first.

constexpr std::uint64_t kOnes = 0x0101010101010101U;
constexpr std::uint64_t kHighs = 0x8080808080808080U;

// Not zero when one of the eight bytes is such a one.
std::uint64_t Special(std::uint64_t bytes) {
  std::uint64_t const quote = bytes ^ (kOnes * '"');
  std::uint64_t const backslash = bytes ^ (kOnes * '\\');
  return ((bytes - kOnes * 0x20) | (quote - kOnes) | (backslash - kOnes) | bytes) & kHighs;
}

template <typename Word>
std::uint64_t CopyWord(char* out, char const* from) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  std::memcpy(out, &word, sizeof word);
  return Special(word | (kOnes * ' ' & ~std::uint64_t{static_cast<Word>(-1)}));
}

// Two words that overlap when `count` is no multiple of the word. `count` is one to two words.
template <typename Word>
std::uint64_t CopyTwoWords(char* out, char const* from, std::size_t count) {
  std::size_t const second = count - sizeof(Word);
  return CopyWord<Word>(out, from) | CopyWord<Word>(out + second, from + second);
}

// True when all bytes were plain; otherwise what was written is of no use.
bool CopyPlain(char* out, char const* from, std::size_t count) {
  if (count < 4) {
    std::uint64_t special = 0;
    for (std::size_t at = 0; at < count; ++at)
      special |= CopyWord<std::uint8_t>(out + at, from + at);
    return special == 0;
  }
  if (count < 8)
    return CopyTwoWords<std::uint32_t>(out, from, count) == 0;
  if (count < 16)
    return CopyTwoWords<std::uint64_t>(out, from, count) == 0;
#ifdef __SSE2__
  __m128i const quote = _mm_set1_epi8('"');
  __m128i const backslash = _mm_set1_epi8('\\');
  __m128i const lastControl = _mm_set1_epi8(0x1F);
  __m128i special = _mm_setzero_si128();
  auto copy = [&](std::size_t at) {
    __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(from + at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at), bytes);
    // Compared as signed numbers, bytes beyond ASCII are below the control characters.
    special = _mm_or_si128(special, _mm_cmpgt_epi8(_mm_add_epi8(lastControl, _mm_set1_epi8(1)), bytes));
    special =
        _mm_or_si128(special, _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)));
  };
  std::size_t const last = count - 16;
  for (std::size_t at = 0; at < last; at += 16)
    copy(at);
  copy(last);
  return _mm_movemask_epi8(special) == 0;
#else
  std::uint64_t special = 0;
  std::size_t const last = count - 8;
  for (std::size_t at = 0; at < last; at += 8)
    special |= CopyWord<std::uint64_t>(out + at, from + at);
  return (special | CopyWord<std::uint64_t>(out + last, from + last)) == 0;
#endif
}

}  // namespace

void TextSink::Flush() {
  out_.append(buffer_.data(), static_cast<std::size_t>(next_ - buffer_.data()));
  next_ = buffer_.data();
}

void TextSink::Text(std::string_view text) {
  if (text.size() <= kShortText) {
    Need(text.size() + 2);
    char* const out = next_;
    if (CopyPlain(out + 1, text.data(), text.size())) {
      out[0] = '"';
      out[text.size() + 1] = '"';
      next_ = out + text.size() + 2;
      return;
    }
  }
  LongText(text);
}

void TextSink::Member(bool comma, std::string_view name) {
  if (name.size() <= kShortText) {
    Need(name.size() + 4);
    char* out = next_;
    *out = ',';
    out += comma ? 1 : 0;
    if (CopyPlain(out + 1, name.data(), name.size())) {
      *out++ = '"';
      out += name.size();
      *out++ = '"';
      *out++ = ':';
      next_ = out;
      return;
    }
  }
  if (comma)
    Put(',');
  LongText(name);
  Put(':');
}

void TextSink::LongText(std::string_view text) {
  Put('"');
  Escaped(text);
  Put('"');
}

void TextSink::Integer(long long value) {
  Need(kLongestNumber);
  next_ = rapidjson::internal::i64toa(value, next_);
}

void TextSink::Escaped(std::string_view text) {
  constexpr std::string_view kHex = "0123456789abcdef";
  std::size_t done = 0;  // everything before is put
  std::size_t at = 0;
  while (at < text.size()) {
    auto const byte = static_cast<unsigned char>(text[at]);
    std::size_t const size = byte < 0x80 ? 1 : Utf8SequenceSize(text.substr(at));
    if (size > 0 && byte >= 0x20 && byte != '"' && byte != '\\') {
      at += size;
      continue;
    }
    Raw(text.substr(done, at - done));
    done = ++at;
    if (size == 0) {
      Raw("\xEF\xBF\xBD");
      continue;
    }
    Put('\\');
    switch (byte) {
      case '\b':
        Put('b');
        break;
      case '\f':
        Put('f');
        break;
      case '\n':
        Put('n');
        break;
      case '\r':
        Put('r');
        break;
      case '\t':
        Put('t');
        break;
      case '"':
      case '\\':
        Put(static_cast<char>(byte));
        break;
      default:
        Raw("u00");
        Put(kHex[byte >> 4]);
        Put(kHex[byte & 15]);
    }
  }
  Raw(text.substr(done));
}

void TextSink::Real(double value) {
  Need(kLongestNumber);
  next_ = rapidjson::internal::dtoa(value, next_);
}

void TextSink::Base64(std::string_view bytes) {
  std::string encoded;
  AppendBase64(bytes, encoded);
  Put('"');
  Raw(encoded);
  Put('"');
}

}  // namespace Lumo::Protocol::Json
