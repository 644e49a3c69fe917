#include "security/async_authn_filter.h"

namespace Lumo::Authn::Filter {

void AsyncAuthnFilter::ProviderInvoker::operator()(Lumo::Data::DataValuePtr const& authData) const {
  if (auto const error = Lumo::Data::As<Lumo::Data::ErrorValue>(authData)) {
    callback_(Lumo::Core::MethodResult::GetErrorInstance(error), Lumo::Progress(), {});
    return;
  }
  activation_->authData(authData);
  next_->Invoke(method_, input_, activation_, callback_);
}

void AsyncAuthnFilter::Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
                              Lumo::Data::DataValuePtr const& input,
                              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                              Lumo::Core::AsyncApiResultCb const& callback) {
  if (activation->authData()) {
    next_->Invoke(method, input, activation, callback);
    return;
  }
  handler_->Authenticate(activation, ProviderInvoker(next_, method, input, activation, callback));
}

}  // namespace Lumo::Authn::Filter
