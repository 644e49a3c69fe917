#include "security/token_handler.h"

#include <utility>
#include <variant>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "runtime/core/activation.h"
#include "runtime/data/error_factory.h"

namespace Ryn::Authn {
namespace {

using Lumo::Data::DataValuePtr;

constexpr char kScheme[] = "com.orbane.lumo.std.security.bearer_token";
constexpr int kFailureLevel = 4;  // of Lumo::Log::Logger

/// The call's token; null when it brings credentials of another kind or none.
std::string const* TokenOf(Lumo::Core::AsyncActivation const& activation) {
  static std::string const kNone;
  auto const& context = activation.executionContext();
  if (!context || context->securityContext().schemeId != kScheme) {
    return nullptr;
  }
  auto const& entries = context->securityContext().entries;
  auto const token = entries.find("token");
  return token == entries.end() ? &kNone : &token->second;
}

DataValuePtr AuthenticationOf(VerifiedToken const& token) {
  auto const entitlements = Lumo::Data::ListValue::GetInstance(Lumo::Data::ListValue::Form::List);
  entitlements->Reserve(token.entitlements.size());
  for (std::string const& name : token.entitlements) {
    entitlements->Add(Lumo::Data::StringValue::GetInstance(name));
  }
  auto authentication = Lumo::Data::StructValue::GetInstance(kTokenAuthentication);
  authentication->ReserveFields(2);
  authentication->SetField(kUsernameField, Lumo::Data::StringValue::GetInstance(token.subject));
  authentication->SetField(kEntitlementsField, entitlements);
  return authentication;
}

}  // namespace

TokenHandler::TokenHandler(std::shared_ptr<Lumo::Log::Logger> const& logger)
    : TokenHandler(logger, TokenVerifier(TokenKeyStore(logger), TokenClock())) {}

TokenHandler::TokenHandler(std::shared_ptr<Lumo::Log::Logger> logger, TokenVerifier verifier)
    : logger_(std::move(logger)), verifier_(std::move(verifier)) {}

void TokenHandler::Authenticate(std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                                Lumo::Authn::AuthnCallback const& callback) {
  std::string const* const token = TokenOf(*activation);
  if (!token) {
    callback(nullptr);
    return;
  }
  auto const verdict = verifier_.Verify(*token);
  if (auto const* const refusal = std::get_if<TokenRefusal>(&verdict)) {
    Lumo::Log::Write(logger_, kFailureLevel, "Token authentication failed: ", refusal->reason);
    callback(Lumo::Data::ErrorFactory::GetError<Com::Orbane::Lumo::Std::Errors::Unauthenticated>({}));
    return;
  }
  callback(AuthenticationOf(std::get<VerifiedToken>(verdict)));
}

}  // namespace Ryn::Authn
