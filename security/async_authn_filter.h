#pragma once

#include <memory>
#include <string>

#include "runtime/core/method.h"
#include "security/authn_handler.h"

namespace Lumo::Authn::Filter {

/// Finds out who calls: has its handler look at the call's credentials and passes the call on with the
/// authentication data, null for a call without credentials. A call whose credentials are wrong ends here. A
/// call that has authentication data already passes untouched.
class AsyncAuthnFilter final : public Lumo::Core::AsyncApiProvider,
                               public std::enable_shared_from_this<AsyncAuthnFilter> {
 public:
  class ProviderInvoker;

  AsyncAuthnFilter(std::shared_ptr<Lumo::Core::AsyncApiProvider> next, std::shared_ptr<AuthnHandler> handler)
      : next_(std::move(next)), handler_(std::move(handler)) {}

  std::string ToString() const override { return "AsyncAuthnFilter"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
              Lumo::Data::DataValuePtr const& input,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
              Lumo::Core::AsyncApiResultCb const& callback) override;

 private:
  std::shared_ptr<Lumo::Core::AsyncApiProvider> next_;
  std::shared_ptr<AuthnHandler> handler_;
};

/// What the handler reports to. Owns all that the call still needs, so that the handler may take its time.
class AsyncAuthnFilter::ProviderInvoker {
 public:
  ProviderInvoker(std::shared_ptr<Lumo::Core::AsyncApiProvider> next,
                  std::shared_ptr<Lumo::Core::MethodIdentifier const> method, Lumo::Data::DataValuePtr input,
                  std::shared_ptr<Lumo::Core::AsyncActivation> activation,
                  Lumo::Core::AsyncApiResultCb callback)
      : next_(std::move(next)),
        method_(std::move(method)),
        input_(std::move(input)),
        activation_(std::move(activation)),
        callback_(std::move(callback)) {}

  /// Ends the call with an error value; goes on with any other one, null included.
  void operator()(Lumo::Data::DataValuePtr const& authData) const;

 private:
  std::shared_ptr<Lumo::Core::AsyncApiProvider> next_;
  std::shared_ptr<Lumo::Core::MethodIdentifier const> method_;
  Lumo::Data::DataValuePtr input_;
  std::shared_ptr<Lumo::Core::AsyncActivation> activation_;
  Lumo::Core::AsyncApiResultCb callback_;
};

}  // namespace Lumo::Authn::Filter
