#pragma once

#include <functional>
#include <memory>
#include <string>

#include "runtime/core/method.h"
#include "runtime/log/logger.h"
#include "security/authz_info.h"
#include "security/entitlement_checker.h"

namespace Lumo::Authz::Filter {

/// Decides by the metadata who may call what. An operation that needs no authentication passes: one of the
/// set, or one whose schemes say so and that asks for no privileges. For any other the caller has to be
/// authenticated by one of the operation's schemes, and entitled to its privileges; an operation without
/// entries is refused, whether it exists or not. A refusal is a bare Unauthorized; it is posted, never
/// delivered inside Invoke.
class AsyncAuthzFilter final : public Core::AsyncApiProvider,
                               public std::enable_shared_from_this<AsyncAuthzFilter> {
 public:
  /// `post` hands a closure to the I/O thread and never runs it inline.
  AsyncAuthzFilter(std::function<void(std::function<void()>)> post,
                   std::shared_ptr<Core::AsyncApiProvider> next, AuthzInfo info,
                   std::shared_ptr<EntitlementChecker> checker, std::shared_ptr<Log::Logger> logger);

  std::string ToString() const override { return "AsyncAuthzFilter"; }
  void Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method, Data::DataValuePtr const& input,
              std::shared_ptr<Core::AsyncActivation> const& activation,
              Core::AsyncApiResultCb const& callback) override;

 private:
  bool NeedsNoAuthentication(std::string const& operation) const;
  /// Why the call is refused; null when it may pass.
  char const* Refusal(std::string const& operation, Core::AsyncActivation const& activation) const;

  std::function<void(std::function<void()>)> post_;
  std::shared_ptr<Core::AsyncApiProvider> next_;
  AuthzInfo info_;
  std::shared_ptr<EntitlementChecker> checker_;
  std::shared_ptr<Log::Logger> logger_;
};

}  // namespace Lumo::Authz::Filter
