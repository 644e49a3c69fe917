#include "security/require_user_authz.h"

#include "bindings/com/orbane/lumo/std/errors.h"
#include "runtime/core/activation.h"
#include "runtime/data/error_factory.h"

namespace Lumo::Authz::Filter {
namespace {

/// A level of Lumo::Log::Logger: a warning.
constexpr int kWarning = 3;

}  // namespace

bool RequireUserAuthz::NeedsUser(std::string const& service) const {
  return config_.needUser.contains(service) ||
         (config_.othersNeedUser && !config_.anonymous.contains(service));
}

void RequireUserAuthz::Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
                              Lumo::Data::DataValuePtr const& input,
                              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                              Lumo::Core::AsyncApiResultCb const& callback) {
  bool const hasUser = !Lumo::Core::ActivationHelpers::ExtractUsername(activation).empty();
  if (hasUser || !NeedsUser(method->service())) {
    next_->Invoke(method, input, activation, callback);
    return;
  }
  Lumo::Log::Write(logger_, kWarning, "Call without a user refused: ", method->ToString());
  post_([callback] {
    auto const error = Lumo::Data::ErrorFactory::GetError<Com::Orbane::Lumo::Std::Errors::Unauthorized>({});
    callback(Lumo::Core::MethodResult::GetErrorInstance(error), Lumo::Progress(), {});
  });
}

}  // namespace Lumo::Authz::Filter
