// The end of the request path: finds the operation among the bound services and runs it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "runtime/core/method.h"
#include "runtime/provider/interface.h"

namespace Lumo::Provider {

/// Hands a closure to the thread that runs services. Must queue it, never run it inside the call.
using PostFunction = std::function<void(std::function<void()>)>;

/// Held by std::shared_ptr. Invoke from any thread; operations run where the post function runs its closures.
template <typename Mutex>
class AsyncLocalProvider final : public Core::AsyncApiProvider,
                                 public std::enable_shared_from_this<AsyncLocalProvider<Mutex>> {
 public:
  AsyncLocalProvider(PostFunction post,
                     std::shared_ptr<AsyncApiInterfaceConcurrentContainer<Mutex>> interfaces)
      : post_(std::move(post)), interfaces_(std::move(interfaces)) {}

  std::string ToString() const override { return "AsyncLocalProvider"; }

  /// Posts the call. An unknown service or operation is answered with operation_not_found, whose messages say
  /// which. Throws std::bad_weak_ptr when no shared pointer holds the provider, std::bad_function_call
  /// without a post function.
  void Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method, Data::DataValuePtr const& input,
              std::shared_ptr<Core::AsyncActivation> const& activation,
              Core::AsyncApiResultCb const& callback) override;

 private:
  class InvokeOp;

  PostFunction post_;
  std::shared_ptr<AsyncApiInterfaceConcurrentContainer<Mutex>> interfaces_;
};

extern template class AsyncLocalProvider<DummyMutex>;

}  // namespace Lumo::Provider
