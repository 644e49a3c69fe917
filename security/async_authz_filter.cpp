#include "security/async_authz_filter.h"

#include <algorithm>
#include <utility>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "runtime/core/activation.h"
#include "runtime/data/error_factory.h"

namespace Lumo::Authz::Filter {
namespace {

constexpr int kRefusalLevel = 3;  // of Log::Logger

using Names = std::list<std::string>;

/// Null when there is no entry.
Names const* Find(std::map<std::string, Names> const& table, std::string const& operation) {
  auto const found = table.find(operation);
  return found == table.end() ? nullptr : &found->second;
}

bool Holds(Names const& names, std::string const& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// The scheme of the credentials that the call brought.
std::string SchemeOf(Core::AsyncActivation const& activation) {
  auto const& context = activation.executionContext();
  return context ? context->securityContext().schemeId : std::string();
}

}  // namespace

AsyncAuthzFilter::AsyncAuthzFilter(std::function<void(std::function<void()>)> post,
                                   std::shared_ptr<Core::AsyncApiProvider> next, AuthzInfo info,
                                   std::shared_ptr<EntitlementChecker> checker,
                                   std::shared_ptr<Log::Logger> logger)
    : post_(std::move(post)),
      next_(std::move(next)),
      info_(std::move(info)),
      checker_(std::move(checker)),
      logger_(std::move(logger)) {}

bool AsyncAuthzFilter::NeedsNoAuthentication(std::string const& operation) const {
  if (info_.noAuthenticationOperations.contains(operation)) {
    return true;
  }
  Names const* const schemes = Find(info_.operationSchemes, operation);
  return schemes && Holds(*schemes, info_.noAuthenticationScheme) &&
         !Find(info_.operationPrivileges, operation);
}

char const* AsyncAuthzFilter::Refusal(std::string const& operation,
                                      Core::AsyncActivation const& activation) const {
  if (NeedsNoAuthentication(operation)) {
    return nullptr;
  }
  if (!activation.authData()) {
    return "the caller is not known";
  }
  Names const* const schemes = Find(info_.operationSchemes, operation);
  Names const* const privileges = Find(info_.operationPrivileges, operation);
  if (!schemes || !privileges) {
    return "nobody may call it";
  }
  if (!Holds(*schemes, SchemeOf(activation))) {
    return "it takes other credentials";
  }
  return checker_->IsEntitled(*activation.authData(), *privileges) ? nullptr
                                                                   : "the caller is not entitled to it";
}

void AsyncAuthzFilter::Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method,
                              Data::DataValuePtr const& input,
                              std::shared_ptr<Core::AsyncActivation> const& activation,
                              Core::AsyncApiResultCb const& callback) {
  std::string const operation = method->ToString();
  char const* const refusal = Refusal(operation, *activation);
  if (!refusal) {
    next_->Invoke(method, input, activation, callback);
    return;
  }
  Log::Write(logger_, kRefusalLevel, "Access to ", operation, " denied: ", refusal);
  post_([callback] {
    auto const error = Data::ErrorFactory::GetError<Com::Orbane::Lumo::Std::Errors::Unauthorized>({});
    callback(Core::MethodResult::GetErrorInstance(error), Lumo::Progress(), {});
  });
}

}  // namespace Lumo::Authz::Filter
