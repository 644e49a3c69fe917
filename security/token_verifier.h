#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "security/token_clock.h"
#include "security/token_key_store.h"

namespace Ryn::Authn {

/// What a token says that was found good.
struct VerifiedToken {
  std::string subject;                    // not empty, without control characters
  std::vector<std::string> entitlements;  // in the token's order
};

/// Why a token is refused, in fixed words that hold nothing of it.
struct TokenRefusal {
  char const* reason;
};

/// Holds signed JSON web tokens (RFC 7519) in compact form against this host's rules; docs/tokens.md tells
/// them. I/O thread only.
class TokenVerifier {
 public:
  TokenVerifier(TokenKeyStore keys, TokenClock clock);

  std::variant<VerifiedToken, TokenRefusal> Verify(std::string_view token);

 private:
  TokenKeyStore keys_;
  TokenClock clock_;
};

}  // namespace Ryn::Authn
