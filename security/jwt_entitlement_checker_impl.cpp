#include "security/jwt_entitlement_checker_impl.h"

#include <string_view>
#include <utility>

#include "security/token_handler.h"

namespace RynToken::Authz {
namespace {

using Lumo::Data::As;
using Lumo::Data::ListValue;
using Lumo::Data::StringValue;
using Lumo::Data::StructValue;

constexpr int kRefusalLevel = 3;  // of Lumo::Log::Logger

/// Null when the data is not that of a token.
ListValue const* EntitlementsOf(Lumo::Data::DataValue const& authentication) {
  auto const* const token = As<StructValue>(&authentication);
  return token && token->name() == Ryn::Authn::kTokenAuthentication
             ? As<ListValue>(token->Find(Ryn::Authn::kEntitlementsField))
             : nullptr;
}

bool Holds(ListValue const& entitlements, std::string_view privilege) {
  for (std::size_t i = 0; i < entitlements.size(); ++i) {
    auto const* const name = As<StringValue>(entitlements.Item(i));
    if (name && name->value() == privilege) {
      return true;
    }
  }
  return false;
}

}  // namespace

JwtEntitlementCheckerImpl::JwtEntitlementCheckerImpl(std::shared_ptr<Lumo::Log::Logger> logger)
    : logger_(std::move(logger)) {}

bool JwtEntitlementCheckerImpl::IsEntitled(Lumo::Data::DataValue const& authentication,
                                           std::list<std::string> const& privileges) {
  auto const* const entitlements = EntitlementsOf(authentication);
  if (!entitlements || privileges.empty()) {
    return false;
  }
  for (std::string const& privilege : privileges) {
    if (!Holds(*entitlements, privilege)) {
      Lumo::Log::Write(logger_, kRefusalLevel, "The token lacks the entitlement ", privilege);
      return false;
    }
  }
  return true;
}

}  // namespace RynToken::Authz
