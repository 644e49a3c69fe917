#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "runtime/core/call_observer.h"
#include "runtime/core/method.h"

namespace Lumo::Observer {
namespace Detail {

/// Gives each call an observer. It is fed and prepared before the call goes on, and learns the status when
/// the call has ended, just before the answer is handed on and exactly once:
///
/// | what happens | status |
/// |---|---|
/// | a result with an error | 2 Unauthenticated, 3 Unauthorized, 1 any other |
/// | a result that is final or has no continuation | 0 |
/// | all let go of the call after a result, as when the receiver of several wants no more | 0 |
/// | all let go of the call and there was no result, or the chain threw | 1 |
///
/// Later results of a call that has ended are passed on and change nothing.
class CallRegistrarBase : public Core::AsyncApiProvider {
 public:
  explicit CallRegistrarBase(std::shared_ptr<Core::AsyncApiProvider> next) : next_(std::move(next)) {}

  std::string ToString() const override { return "CallRegistrarBase"; }
  void Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method, Data::DataValuePtr const& input,
              std::shared_ptr<Core::AsyncActivation> const& activation,
              Core::AsyncApiResultCb const& callback) override;
  /// The observer of one call; never null.
  virtual std::shared_ptr<Api::CallObserver> MakeObserver() const = 0;

 private:
  std::shared_ptr<Core::AsyncApiProvider> next_;
};

}  // namespace Detail

/// The registrar of audited calls: its observers are Api::AuditContext<Map> with the given hook.
template <typename Map>
class CallRegistrar final : public Detail::CallRegistrarBase {
 public:
  using CallEndHook = std::function<void(std::shared_ptr<Map> const&, bool)>;

  CallRegistrar(std::shared_ptr<Core::AsyncApiProvider> next, CallEndHook hook)
      : CallRegistrarBase(std::move(next)), hook_(std::move(hook)) {}

  std::shared_ptr<Api::CallObserver> MakeObserver() const override;

 private:
  CallEndHook hook_;
};

extern template class CallRegistrar<std::map<std::string, std::string>>;

}  // namespace Lumo::Observer
