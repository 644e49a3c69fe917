#pragma once

#include <memory>
#include <string_view>

#include "runtime/log/logger.h"
#include "security/authn_handler.h"
#include "security/token_verifier.h"

namespace Ryn::Authn {

/// Authentication data of a good token: a structure of this name with "username", the token's subject, and
/// "entitlements", a list of texts.
inline constexpr std::string_view kTokenAuthentication = "TokenAuthentication";
inline constexpr std::string_view kUsernameField = "username";
inline constexpr std::string_view kEntitlementsField = "entitlements";

/// Authenticates callers by the bearer token of their request; docs/tokens.md tells which tokens are good. A
/// call without one is none of this handler's business; one with a bad token ends in a bare Unauthenticated.
/// Why a token is bad is logged, and tokens are shown nowhere. Calls back before it returns. I/O thread only.
class TokenHandler final : public Lumo::Authn::AuthnHandler {
 public:
  /// With the keys of the folder TokenKeyStore::kFolder and the clocks of the host.
  explicit TokenHandler(std::shared_ptr<Lumo::Log::Logger> const& logger);
  TokenHandler(std::shared_ptr<Lumo::Log::Logger> logger, TokenVerifier verifier);

  void Authenticate(std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                    Lumo::Authn::AuthnCallback const& callback) override;

 private:
  std::shared_ptr<Lumo::Log::Logger> logger_;
  TokenVerifier verifier_;
};

}  // namespace Ryn::Authn
