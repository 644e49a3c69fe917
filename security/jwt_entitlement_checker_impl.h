#pragma once

#include <memory>

#include "runtime/log/logger.h"
#include "security/entitlement_checker.h"

namespace RynToken::Authz {

/// Holds the entitlements of a token, as Ryn::Authn::TokenHandler left them, against the privileges of an
/// operation: the token has to have each of them, letter for letter. Authentication data of any other kind
/// and an operation without privileges entitle to nothing. What is missing is logged.
class JwtEntitlementCheckerImpl final : public Lumo::Authz::EntitlementChecker {
 public:
  explicit JwtEntitlementCheckerImpl(std::shared_ptr<Lumo::Log::Logger> logger);

  bool IsEntitled(Lumo::Data::DataValue const& authentication,
                  std::list<std::string> const& privileges) override;

 private:
  std::shared_ptr<Lumo::Log::Logger> logger_;
};

}  // namespace RynToken::Authz
