#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Ryn::Authn {

/// A public key that tokens are verified with. The key alone decides which algorithm it is used for: an RSA
/// key for RS256, one of the curve P-256 for ES256.
class TokenKey {
 public:
  TokenKey(TokenKey const&) = delete;
  TokenKey& operator=(TokenKey const&) = delete;
  virtual ~TokenKey() = default;

  /// The key in a text that holds one PEM block "PUBLIC KEY" and no other. Null, and `problem` says why in
  /// words that hold nothing of the text: no such block, another kind of key or curve, an RSA key of less
  /// than 2048 or more than 8192 bits or with an exponent below 65537, or not a sound key at all.
  static std::shared_ptr<TokenKey const> FromPem(std::string_view pem, std::string& problem);

  /// "RS256" or "ES256".
  virtual std::string_view algorithm() const = 0;
  /// Bytes of each of its signatures.
  virtual std::size_t signatureSize() const = 0;
  /// True when the signature of the token, which is in compact form and names this key's algorithm, is the
  /// key holder's. I/O thread only.
  virtual bool Verifies(std::string_view token) const = 0;

 protected:
  TokenKey() = default;
};

}  // namespace Ryn::Authn
