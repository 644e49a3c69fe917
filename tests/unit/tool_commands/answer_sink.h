// Takes the answer of a method that is called with a native record, past the binder.
#pragma once

#include <memory>

#include "runtime/provider/async_result.h"
#include "tests/unit/service_call.h"

class AnswerSink final : public Lumo::Provider::ResultSink {
 public:
  void Deliver(Lumo::Data::DataValuePtr const& output) override {
    ++answer.answers;
    answer.output = output;
  }
  void Fail(std::shared_ptr<Lumo::Data::ErrorValue const> const& error) override {
    ++answer.answers;
    answer.error = error;
  }
  std::shared_ptr<Lumo::Core::AsyncActivation> const& activation() const override { return activation_; }

  ServiceCall::Answer answer;

 private:
  std::shared_ptr<Lumo::Core::AsyncActivation> activation_ =
      Lumo::Core::AsyncActivation::GetInstance(std::make_shared<Lumo::Core::ExecutionContext>());
};
