// The seam between the authentication filter and what knows a kind of credential.
#pragma once

#include <functional>
#include <memory>

#include "runtime/core/activation.h"
#include "runtime/data/value.h"

namespace Lumo::Authn {

/// Takes the outcome of one authentication.
/// - Null: the call's security context isn't of the handler's kind; the call goes on without a user.
/// - An error value: authentication failed; the call ends with this error.
/// - Any other value: it succeeded; the value becomes the call's authentication data.
using AuthnCallback = std::function<void(std::shared_ptr<Lumo::Data::DataValue const> const&)>;

/// Checks credentials of one kind. Held by std::shared_ptr; I/O thread only.
class AuthnHandler {
 public:
  /// Looks at the activation's security context and calls back exactly once, before it returns or later.
  virtual void Authenticate(std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                            AuthnCallback const& callback) = 0;
  virtual ~AuthnHandler() = default;
};

}  // namespace Lumo::Authn
