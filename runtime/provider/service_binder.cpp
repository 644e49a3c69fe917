#include "runtime/provider/service_binder.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

#include "platform/logging/logging.h"
#include "runtime/data/error_factory.h"

namespace Lumo::Provider {

namespace {

/// Stands between one call's result objects and its callback, and lets exactly one answer through. Any
/// thread.
class CallSink final : public ResultSink {
 public:
  CallSink(std::shared_ptr<Core::MethodIdentifier const> method,
           std::shared_ptr<Core::AsyncActivation> activation, Core::AsyncApiResultCb callback)
      : method_(std::move(method)), activation_(std::move(activation)), callback_(std::move(callback)) {}
  CallSink(CallSink const&) = delete;
  CallSink& operator=(CallSink const&) = delete;

  ~CallSink() override {
    if (!answered()) {
      CSLogger::Log(0, "[%s]: The call was dropped without an answer", method_->ToString().c_str());
      try {
        Fail(Data::MakeStandardError("internal_server_error", {}));
      } catch (std::exception const& failure) {
        CSLogger::Log(0, "[%s]: %s", method_->ToString().c_str(), failure.what());
      }
    }
  }

  bool answered() const noexcept { return answered_.load(); }

  void Deliver(Data::DataValuePtr const& output) override { Answer(Core::MethodResult::GetInstance(output)); }
  void Fail(std::shared_ptr<Data::ErrorValue const> const& error) override {
    Answer(Core::MethodResult::GetErrorInstance(error));
  }
  std::shared_ptr<Core::AsyncActivation> const& activation() const override { return activation_; }

 private:
  void Answer(std::shared_ptr<Core::MethodResult const> const& result) {
    if (answered_.exchange(true)) {
      CSLogger::Log(1, "[%s]: A second answer to the same call was dropped", method_->ToString().c_str());
      return;
    }
    callback_(result, Progress(), {});
  }

  std::shared_ptr<Core::MethodIdentifier const> method_;
  std::shared_ptr<Core::AsyncActivation> activation_;
  Core::AsyncApiResultCb callback_;
  std::atomic<bool> answered_{false};
};

class BoundMethod final : public AsyncApiMethod {
 public:
  BoundMethod(std::shared_ptr<std::string const> const& service, OperationBinding binding,
              std::shared_ptr<L10n::Localizer const> localizer)
      : identifier_(std::make_shared<Core::MethodIdentifier const>(service, binding.name)),
        binding_(std::move(binding)),
        localizer_(std::move(localizer)) {}

  std::shared_ptr<Core::MethodIdentifier const> const& identifier() const override { return identifier_; }
  MethodDefinition const& definition() const override { return binding_.definition; }

  void Invoke(Data::DataValuePtr const& input, std::shared_ptr<Core::AsyncActivation> const& activation,
              Core::AsyncApiResultCb const& callback) const override {
    if (localizer_) {
      activation->localizer(localizer_);
    }
    auto const sink = std::make_shared<CallSink>(identifier_, activation, callback);
    try {
      MessageList errors;
      if (!binding_.run(input, sink, errors)) {
        sink->Fail(Data::MakeStandardError("invalid_argument", errors));
      }
    } catch (std::exception const& failure) {
      CSLogger::Log(0, "[%s]: Exception: %s", identifier_->ToString().c_str(), failure.what());
      if (!sink->answered()) {
        sink->Fail(Data::MakeStandardError("internal_server_error", {}));
      }
    }
  }

 private:
  std::shared_ptr<Core::MethodIdentifier const> identifier_;
  OperationBinding binding_;
  std::shared_ptr<L10n::Localizer const> localizer_;
};

class BoundService final : public AsyncApiInterface {
 public:
  BoundService(std::string const& service, std::shared_ptr<L10n::Localizer const> const& localizer,
               std::vector<OperationBinding> operations)
      : identifier_(std::make_shared<std::string const>(service)) {
    methods_.reserve(operations.size());
    for (OperationBinding& operation : operations) {
      methods_.push_back(std::make_shared<BoundMethod const>(identifier_, std::move(operation), localizer));
    }
  }

  std::shared_ptr<std::string const> const& identifier() const override { return identifier_; }

  std::vector<std::string> OperationNames() const override {
    std::vector<std::string> names;
    names.reserve(methods_.size());
    for (auto const& method : methods_) {
      names.push_back(method->identifier()->operation());
    }
    return names;
  }

  bool Find(std::string const& operation, std::shared_ptr<AsyncApiMethod const>& method,
            MessageList& errors) const override {
    auto const found = std::find_if(methods_.begin(), methods_.end(), [&operation](auto const& candidate) {
      return candidate->identifier()->operation() == operation;
    });
    if (found == methods_.end()) {
      errors.push_back(Message<CoreTag>::Make("lumo.provider.operation.not.found", *identifier_, operation));
      return false;
    }
    method = *found;
    return true;
  }

 private:
  std::shared_ptr<std::string const> identifier_;
  std::vector<std::shared_ptr<BoundMethod const>> methods_;
};

}  // namespace

std::shared_ptr<AsyncApiInterface const> BindService(std::string const& service,
                                                     std::shared_ptr<L10n::Localizer const> const& localizer,
                                                     std::vector<OperationBinding> operations) {
  return std::make_shared<BoundService const>(service, localizer, std::move(operations));
}

}  // namespace Lumo::Provider
