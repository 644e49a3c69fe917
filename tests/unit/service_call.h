// Calls a bound service as the provider does.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"
#include "runtime/data/value.h"
#include "runtime/provider/interface.h"
#include "support/json_helpers.h"

namespace ServiceCall {

/// What came of one call. `answers` is how often the callback was called.
struct Answer {
  Lumo::Data::DataValuePtr output;
  std::shared_ptr<Lumo::Data::ErrorValue const> error;
  int answers = 0;

  /// The output in the direct JSON form; "error" when there is none.
  std::string Json() const { return output ? LifeCycle::SerializeToJson(output) : "error"; }
  /// "<error's short name>: <id>(<args>)…", the messages one after the other; empty without an error.
  std::string Error() const;
};

inline std::string Answer::Error() const {
  using namespace Lumo::Data;
  if (!error) {
    return {};
  }
  std::string text(error->name().substr(error->name().rfind('.') + 1));
  auto const* const messages = As<ListValue>(error->Find("messages"));
  for (std::size_t i = 0; messages != nullptr && i < messages->size(); ++i) {
    auto const* const message = As<CompoundValue>(messages->Item(i));
    text += (i == 0 ? ": " : " ") + std::string(As<StringValue>(message->Find("id"))->value()) + "(";
    auto const* const args = As<ListValue>(message->Find("args"));
    for (std::size_t k = 0; k < args->size(); ++k) {
      text += (k == 0 ? "" : ", ") + std::string(As<StringValue>(args->Item(k))->value());
    }
    text += ")";
  }
  return text;
}

/// Calls an operation with an input in direct JSON.
inline Answer Call(std::shared_ptr<Lumo::Provider::AsyncApiInterface const> const& api,
                   std::string const& operation, std::string const& input) {
  Answer answer;
  Lumo::MessageList errors;
  std::shared_ptr<Lumo::Provider::AsyncApiMethod const> method;
  if (!api->Find(operation, method, errors)) {
    return answer;
  }
  auto const activation =
      Lumo::Core::AsyncActivation::GetInstance(std::make_shared<Lumo::Core::ExecutionContext>());
  method->Invoke(LifeCycle::ParseJsonValue(input, false), activation,
                 Lumo::Core::AsyncApiResultCb([&answer](auto const& result, auto const&, auto&&) {
                   ++answer.answers;
                   answer.output = result->output();
                   answer.error = result->error();
                 }));
  return answer;
}

}  // namespace ServiceCall
