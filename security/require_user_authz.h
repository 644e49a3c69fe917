#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "runtime/core/method.h"
#include "runtime/log/logger.h"

namespace Lumo::Authz {

/// Which services need a user. A service in both sets needs one.
struct AuthzRequireUserConfig {
  std::set<std::string> needUser;
  std::set<std::string> anonymous;
  /// True: services in neither set, unknown ones included, need a user too.
  bool othersNeedUser = true;
};

namespace Filter {

/// Refuses calls without a user to services that need one, with a bare Unauthorized. The refusal is posted,
/// never delivered inside Invoke. Stands inside the authentication filter.
class RequireUserAuthz final : public Lumo::Core::AsyncApiProvider {
 public:
  /// `post` hands a closure to the I/O thread and never runs it inline.
  RequireUserAuthz(std::function<void(std::function<void()>)> post, AuthzRequireUserConfig config,
                   std::shared_ptr<Lumo::Core::AsyncApiProvider> next,
                   std::shared_ptr<Lumo::Log::Logger> logger)
      : post_(std::move(post)),
        config_(std::move(config)),
        next_(std::move(next)),
        logger_(std::move(logger)) {}

  std::string ToString() const override { return "RequireUserAuthz"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
              Lumo::Data::DataValuePtr const& input,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
              Lumo::Core::AsyncApiResultCb const& callback) override;

 private:
  bool NeedsUser(std::string const& service) const;

  std::function<void(std::function<void()>)> post_;
  AuthzRequireUserConfig config_;
  std::shared_ptr<Lumo::Core::AsyncApiProvider> next_;
  std::shared_ptr<Lumo::Log::Logger> logger_;
};

}  // namespace Filter
}  // namespace Lumo::Authz
