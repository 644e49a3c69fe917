// One call: its identifier, its result, the callback that takes results, and the interface of everything that
// can be called.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "runtime/core/progress.h"
#include "runtime/data/value.h"

namespace Lumo::Core {

class AsyncActivation;

class MethodIdentifier {
 public:
  MethodIdentifier(std::shared_ptr<std::string const> service, std::string operation)
      : service_(std::move(service)), operation_(std::move(operation)) {}
  MethodIdentifier(std::string service, std::string operation)
      : MethodIdentifier(std::make_shared<std::string const>(std::move(service)), std::move(operation)) {}

  std::shared_ptr<std::string const> const& servicePtr() const { return service_; }
  std::string const& service() const { return *service_; }
  std::string const& operation() const { return operation_; }
  /// The full operation identifier: service, ".", operation.
  std::string ToString() const;

 private:
  std::shared_ptr<std::string const> service_;
  std::string operation_;
};

/// The outcome of one call, or one of several. A success of a plain method has its output set and final
/// false.
class MethodResult {
 public:
  MethodResult(Data::DataValuePtr output, std::shared_ptr<Data::ErrorValue const> error, bool final)
      : output_(std::move(output)), error_(std::move(error)), final_(final) {}
  virtual ~MethodResult() = default;

  /// A result with null output, the error, and final true.
  static std::shared_ptr<MethodResult const> GetErrorInstance(
      std::shared_ptr<Data::ErrorValue const> const& error);
  /// A result with that output, no error, and final false.
  static std::shared_ptr<MethodResult const> GetInstance(Data::DataValuePtr const& output);

  Data::DataValuePtr const& output() const { return output_; }
  std::shared_ptr<Data::ErrorValue const> const& error() const { return error_; }
  bool final() const { return final_; }

 private:
  Data::DataValuePtr output_;
  std::shared_ptr<Data::ErrorValue const> error_;
  bool final_;
};

/// Takes the results of one call, from any thread. A non-empty continuation says that more results may
/// follow; the receiver calls it when ready for the next one, with a null callback to stop the producer.
/// Copies share the function, so that a chain of filters passes callbacks on without copying what they hold.
class AsyncApiResultCb {
 public:
  using Continuation = std::function<void(std::shared_ptr<AsyncApiResultCb>)>;
  using Function =
      std::function<void(std::shared_ptr<MethodResult const> const&, Lumo::Progress const&, Continuation&&)>;

  AsyncApiResultCb() = default;
  template <typename F>
  requires(!std::is_same_v<F, AsyncApiResultCb>) explicit AsyncApiResultCb(F function) {
    if constexpr (std::is_same_v<F, Function>) {
      if (!function) {
        return;
      }
    }
    target_ = std::make_shared<Holder<F> const>(std::move(function));
  }

  /// Throws std::bad_function_call when empty.
  void operator()(std::shared_ptr<MethodResult const> const& result, Lumo::Progress const& progress,
                  Continuation&& next) const {
    if (!target_) {
      throw std::bad_function_call();
    }
    target_->Call(result, progress, std::move(next));
  }
  explicit operator bool() const { return target_ != nullptr; }

 private:
  struct Target {
    virtual void Call(std::shared_ptr<MethodResult const> const& result, Lumo::Progress const& progress,
                      Continuation&& next) const = 0;
    virtual ~Target() = default;
  };
  template <typename F>
  struct Holder final : Target {
    explicit Holder(F from) : function(std::move(from)) {}
    void Call(std::shared_ptr<MethodResult const> const& result, Lumo::Progress const& progress,
              Continuation&& next) const override {
      function(result, progress, std::move(next));
    }
    mutable F function;
  };

  std::shared_ptr<Target const> target_;
};

/// A filter or the provider at the end of the chain. Held by std::shared_ptr.
class AsyncApiProvider {
 public:
  /// Printable name.
  virtual std::string ToString() const = 0;
  /// Starts one call; the outcome arrives through the callback.
  virtual void Invoke(std::shared_ptr<MethodIdentifier const> const& method, Data::DataValuePtr const& input,
                      std::shared_ptr<AsyncActivation> const& activation,
                      AsyncApiResultCb const& callback) = 0;
  virtual ~AsyncApiProvider() = default;
};

}  // namespace Lumo::Core
