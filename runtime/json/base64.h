#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Lumo::Protocol::Json {

/// Characters that `bytes` bytes take in base64, padding included.
constexpr std::size_t Base64Size(std::size_t bytes) {
  return (bytes + 2) / 3 * 4;
}

/// Appends `bytes` in base64 (RFC 4648 section 4), padded, without line breaks.
void AppendBase64(std::string_view bytes, std::string& out);

/// Decodes strictly: whole groups, padding where due, no other characters, unused bits zero. `out` has room
/// for text.size() / 4 * 3 bytes and may be the text's own place. Gives the number of bytes.
std::optional<std::size_t> DecodeBase64(std::string_view text, char* out);

}  // namespace Lumo::Protocol::Json
