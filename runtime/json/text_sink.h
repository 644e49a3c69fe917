// Where the JSON writers put their text.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace Lumo::Protocol::Json {

/// Collects text in a small buffer and appends it to a string when that is full and on destruction.
class TextSink {
 public:
  explicit TextSink(std::string& out) : out_(out) {}
  TextSink(TextSink const&) = delete;
  TextSink& operator=(TextSink const&) = delete;
  ~TextSink() { Flush(); }

  void Put(char character) {
    Need(1);
    *next_++ = character;
  }
  void Raw(std::string_view text) {
    if (text.size() > kBuffer) {
      Flush();
      out_.append(text);
      return;
    }
    Need(text.size());
    next_ = std::copy(text.begin(), text.end(), next_);
  }
  void Blanks(std::size_t count) {
    for (; count > 0; --count)
      Put(' ');
  }
  /// The text in quotes, with the escapes that JSON asks for. Bytes that aren't UTF-8 become U+FFFD.
  void Text(std::string_view text);
  /// A comma where `comma` says so, the text as Text writes it, and a colon.
  void Member(bool comma, std::string_view name);
  void Integer(long long value);
  /// A text that reads back as the same double, always with a fraction or an exponent. `value` is finite.
  void Real(double value);
  /// `bytes` in base64, in quotes.
  void Base64(std::string_view bytes);

  /// Characters put so far, those that the string held before included.
  std::size_t Size() const { return out_.size() + static_cast<std::size_t>(next_ - buffer_.data()); }

 private:
  static constexpr std::size_t kBuffer = 4096;
  static constexpr std::size_t kLongestNumber = 32;  // more than "-1.7976931348623157e308"
  static constexpr std::size_t kShortText = 512;     // texts that are copied into the buffer at one go

  void Need(std::size_t count) {
    if (static_cast<std::size_t>(buffer_.data() + kBuffer - next_) < count)
      Flush();
  }
  void Flush();
  void LongText(std::string_view text);
  void Escaped(std::string_view text);

  std::string& out_;
  std::array<char, kBuffer> buffer_;
  char* next_ = buffer_.data();
};

}  // namespace Lumo::Protocol::Json
