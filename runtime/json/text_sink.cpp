#include "runtime/json/text_sink.h"

#include <algorithm>
#include <cstdint>

#include "runtime/json/base64.h"
#include "runtime/json/text_scanner.h"

namespace Lumo::Protocol::Json {
namespace {

constexpr std::uint64_t kOnes = 0x0101010101010101U;
constexpr std::uint64_t kHighs = 0x8080808080808080U;

// Not zero when one of the eight bytes is a control character, a quote, a backslash or no ASCII.
std::uint64_t Special(std::uint64_t bytes) {
  std::uint64_t const quote = bytes ^ (kOnes * '"');
  std::uint64_t const backslash = bytes ^ (kOnes * '\\');
  std::uint64_t const below = (bytes - kOnes * 0x20) | (quote - kOnes) | (backslash - kOnes) | bytes;
  return below & kHighs;
}

std::uint64_t Load(char const* at, std::size_t count) {
  std::uint64_t bytes = kOnes * ' ';
  std::memcpy(&bytes, at, count);
  return bytes;
}

// True when the text can stand in quotes as it is. May be false for a text that could.
bool IsPlain(std::string_view text) {
  std::uint64_t special = 0;
  std::size_t at = 0;
  for (; text.size() - at >= 8; at += 8)
    special |= Special(Load(text.data() + at, 8));
  if (at < text.size())
    special |= Special(Load(text.data() + at, text.size() - at));
  return special == 0;
}

}  // namespace

void TextSink::Flush() {
  out_.append(buffer_.data(), static_cast<std::size_t>(next_ - buffer_.data()));
  next_ = buffer_.data();
}

void TextSink::Text(std::string_view text) {
  Put('"');
  if (IsPlain(text)) {
    Raw(text);
  } else {
    Escaped(text);
  }
  Put('"');
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
  char* const begin = next_;
  next_ = std::to_chars(begin, begin + kLongestNumber, value).ptr;
  bool const marked = std::any_of(begin, next_, [](char digit) { return digit == '.' || digit == 'e'; });
  if (!marked)
    Raw(".0");
}

void TextSink::Base64(std::string_view bytes) {
  std::string encoded;
  AppendBase64(bytes, encoded);
  Put('"');
  Raw(encoded);
  Put('"');
}

}  // namespace Lumo::Protocol::Json
