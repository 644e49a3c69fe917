// How the methods of a service answer. Used by the generated service interfaces.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"
#include "runtime/data/value.h"

namespace Lumo {

/// Result type of an operation without output.
struct Void {
  friend bool operator==(Void const&, Void const&) = default;
};

namespace Provider {
/// What a generated binder gives the result objects: where values and errors go. Held until the one answer.
class ResultSink {
 public:
  virtual void Deliver(Data::DataValuePtr const& output) = 0;
  virtual void Fail(std::shared_ptr<Data::ErrorValue const> const& error) = 0;
  virtual std::shared_ptr<Core::AsyncActivation> const& activation() const = 0;
  virtual ~ResultSink() = default;
};

/// Adapts a native result under the call's locale and delivers it; a failed adaptation becomes an
/// InternalServerError with the adapter's messages. Defined in runtime/data/adapt.h, which generated code
/// includes.
template <typename T>
void DeliverNative(ResultSink& sink, T const& value);
}  // namespace Provider

/// The answer of a method that does its work inside the call. Exactly one of the two calls, once. Copyable.
template <typename T>
class AsyncResult {
 public:
  explicit AsyncResult(std::shared_ptr<Provider::ResultSink> sink) : sink_(std::move(sink)) {}

  void operator()(T const& value) const { Provider::DeliverNative<T>(*sink_, value); }
  void error(std::shared_ptr<Data::ErrorValue const> const& error) const { sink_->Fail(error); }
  std::shared_ptr<Core::AsyncActivation> const& activation() const { return sink_->activation(); }

 private:
  std::shared_ptr<Provider::ResultSink> sink_;
};

/// The answer of a task method: the task's id at once. `T` is the type of the task's own result, which the
/// task record holds in the end.
template <typename T>
class AsyncTaskResult {
 public:
  explicit AsyncTaskResult(std::shared_ptr<Provider::ResultSink> sink) : sink_(std::move(sink)) {}

  void operator()(std::string const& taskId) const { sink_->Deliver(Data::StringValue::GetInstance(taskId)); }
  void error(std::shared_ptr<Data::ErrorValue const> const& error) const { sink_->Fail(error); }
  std::shared_ptr<Core::AsyncActivation> const& activation() const { return sink_->activation(); }

 private:
  std::shared_ptr<Provider::ResultSink> sink_;
};

}  // namespace Lumo
