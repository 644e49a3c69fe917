#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Ryn::Authn {

/// No token is longer; a request's whole head has as many bytes at most.
inline constexpr std::size_t kMostTokenBytes = 4096;

/// Decodes base64url (RFC 4648 section 5) as tokens have it (RFC 7515 section 2): no padding, no line breaks,
/// no other characters, unused bits zero, so that bytes have one spelling only.
std::optional<std::string> DecodeBase64Url(std::string_view text);

/// A signed token in its compact form (RFC 7515 section 7.1), each part decoded.
struct TokenParts {
  std::string header;
  std::string payload;
  std::string signature;  // empty where the token has none
};

/// Nothing when the text is longer than any token, or not three parts of base64url.
std::optional<TokenParts> SplitToken(std::string_view token);

}  // namespace Ryn::Authn
