#include "runtime/json/base64.h"

#include <array>
#include <cstdint>

namespace Lumo::Protocol::Json {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNone = 64;

constexpr std::array<std::uint8_t, 256> MakeDigits() {
  std::array<std::uint8_t, 256> digits{};
  digits.fill(kNone);
  for (std::uint8_t digit = 0; digit < 64; ++digit)
    digits[static_cast<unsigned char>(kAlphabet[digit])] = digit;
  return digits;
}
constexpr auto kDigits = MakeDigits();

std::uint32_t Digit(char character) {
  return kDigits[static_cast<unsigned char>(character)];
}
std::uint32_t Byte(char byte) {
  return static_cast<unsigned char>(byte);
}

}  // namespace

void AppendBase64(std::string_view bytes, std::string& out) {
  out.reserve(out.size() + Base64Size(bytes.size()));
  auto put = [&out](std::uint32_t group, int digits) {
    for (int index = 0; index < 4; ++index) {
      out += index < digits ? kAlphabet[(group >> (18 - 6 * index)) & 63] : '=';
    }
  };
  std::size_t at = 0;
  for (; bytes.size() - at >= 3; at += 3)
    put(Byte(bytes[at]) << 16 | Byte(bytes[at + 1]) << 8 | Byte(bytes[at + 2]), 4);
  if (bytes.size() - at == 2)
    put(Byte(bytes[at]) << 16 | Byte(bytes[at + 1]) << 8, 3);
  if (bytes.size() - at == 1)
    put(Byte(bytes[at]) << 16, 2);
}

std::optional<std::size_t> DecodeBase64(std::string_view text, char* out) {
  if (text.size() % 4 != 0)
    return std::nullopt;
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=')
    ++padding;
  char* const begin = out;
  for (std::size_t at = 0; at < text.size(); at += 4) {
    std::size_t const digits = at + 4 == text.size() ? 4 - padding : 4;
    std::uint32_t group = 0;
    for (std::size_t index = 0; index < 4; ++index) {
      std::uint32_t const digit = index < digits ? Digit(text[at + index]) : 0;
      if (digit == kNone)
        return std::nullopt;
      group = group << 6 | digit;
    }
    std::uint32_t const unused = digits == 4 ? 0 : (1U << (8 * (4 - digits))) - 1;
    if (group & unused)
      return std::nullopt;
    for (std::size_t index = 0; index + 1 < digits; ++index)
      *out++ = static_cast<char>(group >> (16 - 8 * index));
  }
  return static_cast<std::size_t>(out - begin);
}

}  // namespace Lumo::Protocol::Json
