#include "runtime/provider/async_local_provider.h"

#include "runtime/provider/notify.h"

namespace Lumo::Provider {

/// One posted call; keeps all it needs alive while it is queued.
template <typename Mutex>
class AsyncLocalProvider<Mutex>::InvokeOp {
 public:
  InvokeOp(std::shared_ptr<AsyncLocalProvider> provider, std::shared_ptr<Core::MethodIdentifier const> method,
           Data::DataValuePtr input, std::shared_ptr<Core::AsyncActivation> activation,
           Core::AsyncApiResultCb callback)
      : provider_(std::move(provider)),
        method_(std::move(method)),
        input_(std::move(input)),
        activation_(std::move(activation)),
        callback_(std::move(callback)) {}

  void operator()() const {
    MessageList errors;
    std::shared_ptr<AsyncApiInterface const> api;
    std::shared_ptr<AsyncApiMethod const> operation;
    if (provider_->interfaces_->Find(method_->servicePtr(), api, errors) &&
        api->Find(method_->operation(), operation, errors)) {
      Detail::NotifyOnInvoke(activation_);
      operation->Invoke(input_, activation_, callback_);
      return;
    }
    auto const error = Data::ErrorValue::Create("com.orbane.lumo.std.errors.operation_not_found", errors);
    callback_(Core::MethodResult::GetErrorInstance(error), Progress(), {});
  }

 private:
  std::shared_ptr<AsyncLocalProvider> provider_;
  std::shared_ptr<Core::MethodIdentifier const> method_;
  Data::DataValuePtr input_;
  std::shared_ptr<Core::AsyncActivation> activation_;
  Core::AsyncApiResultCb callback_;
};

template <typename Mutex>
void AsyncLocalProvider<Mutex>::Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method,
                                       Data::DataValuePtr const& input,
                                       std::shared_ptr<Core::AsyncActivation> const& activation,
                                       Core::AsyncApiResultCb const& callback) {
  post_(InvokeOp(this->shared_from_this(), method, input, activation, callback));
}

template class AsyncLocalProvider<DummyMutex>;

}  // namespace Lumo::Provider
