// The end of a chain in tests: answers with what it was given, and what a call looks like from outside.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"

/// Answers each call inside Invoke with `result`, progress 0, 9, 4 and a continuation, and counts.
class TestProvider final : public Lumo::Core::AsyncApiProvider {
 public:
  std::string ToString() const override { return "TestProvider"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& /*method*/,
              Lumo::Data::DataValuePtr const& input,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& /*activation*/,
              Lumo::Core::AsyncApiResultCb const& callback) override {
    ++calls;
    lastInput = input;
    callback(result, Lumo::Progress{0, 9, 4}, [this](auto const& /*next*/) { continued = true; });
  }

  std::shared_ptr<Lumo::Core::MethodResult const> result =
      Lumo::Core::MethodResult::GetInstance(Lumo::Data::VoidValue::GetInstance());
  Lumo::Data::DataValuePtr lastInput;
  int calls = 0;
  bool continued = false;
};

/// What a caller saw.
struct Seen {
  int answers = 0;
  std::shared_ptr<Lumo::Core::MethodResult const> result;
  Lumo::Progress progress{7, 7, 7};
  bool continues = false;

  Lumo::Core::AsyncApiResultCb Callback() {
    return Lumo::Core::AsyncApiResultCb([this](std::shared_ptr<Lumo::Core::MethodResult const> const& got,
                                               Lumo::Progress const& howFar,
                                               Lumo::Core::AsyncApiResultCb::Continuation&& next) {
      ++answers;
      result = got;
      progress = howFar;
      continues = static_cast<bool>(next);
      if (next) {
        next(nullptr);
      }
    });
  }
};

/// Where filters post closures, in place of the I/O context.
class PostQueue {
 public:
  std::function<void(std::function<void()>)> Poster() {
    return [this](std::function<void()> closure) { queue_.push_back(std::move(closure)); };
  }
  /// Runs all, those that come meanwhile included.
  void Run() {
    while (!queue_.empty()) {
      auto const closure = std::move(queue_.front());
      queue_.pop_front();
      closure();
    }
  }

 private:
  std::deque<std::function<void()>> queue_;
};

inline std::shared_ptr<Lumo::Core::AsyncActivation> TestActivation(std::string const& opId = {}) {
  auto const context = std::make_shared<Lumo::Core::ExecutionContext>();
  if (!opId.empty()) {
    context->applicationData()["opId"] = opId;
  }
  return Lumo::Core::AsyncActivation::GetInstance(context);
}
