// Where the JSON writers put their text.
#pragma once

#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
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
    std::memcpy(next_, text.data(), text.size());
    next_ += text.size();
  }
  void Blanks(std::size_t count) {
    for (; count > 0; --count)
      Put(' ');
  }
  /// The text in quotes, with the escapes that JSON asks for. Bytes that aren't UTF-8 become U+FFFD.
  void Text(std::string_view text);
  void Integer(long long value) {
    Need(kLongestNumber);
    next_ = std::to_chars(next_, next_ + kLongestNumber, value).ptr;
  }
  /// The shortest text that reads back as the same double, always with a fraction or an exponent. `value` is
  /// finite.
  void Real(double value);
  /// `bytes` in base64, in quotes.
  void Base64(std::string_view bytes);

  /// Characters put so far, those that the string held before included.
  std::size_t Size() const { return out_.size() + static_cast<std::size_t>(next_ - buffer_.data()); }

 private:
  static constexpr std::size_t kBuffer = 2048;
  static constexpr std::size_t kLongestNumber = 32;  // "-1.7976931348623157e+308" and what Real may add

  void Need(std::size_t count) {
    if (static_cast<std::size_t>(buffer_.data() + kBuffer - next_) < count)
      Flush();
  }
  void Flush();
  void Escaped(std::string_view text);

  std::string& out_;
  std::array<char, kBuffer> buffer_;
  char* next_ = buffer_.data();
};

}  // namespace Lumo::Protocol::Json
