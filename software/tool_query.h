// What the services that ask the image manager in the foreground have in common.
#pragma once

#include <cstring>
#include <memory>
#include <string>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/logging/logging.h"
#include "runtime/data/adapt.h"
#include "runtime/provider/async_result.h"
#include "support/api_error.h"
#include "support/command_runner.h"
#include "support/json_helpers.h"

namespace LifeCycle {

using ToolErrorPtr = std::shared_ptr<Lumo::Data::ErrorValue>;

/// The tool could not be run, or failed. `code` is read as an errno whatever it is.
inline ToolErrorPtr MakeCommandError(RunCommandResult const& run) {
  return MakeApiError<Com::Orbane::Lumo::Std::Errors::InternalServerError>(
      "com.orbane.ryn.host_settings.command.failed", std::string(std::strerror(run.code)));
}

template <typename E>
ToolErrorPtr MakeBareError() {
  return Lumo::Data::ErrorFactory::GetError<E>({});
}

/// Parses a tool's output and fills `native` from it. Null, or the error: a bare `NoValue` for a document
/// without a value, an InternalServerError with the adapter's messages, logged under `tag`, for one that
/// doesn't fit. Throws LumoJsonSerializationError.
template <typename NoValue, typename T>
ToolErrorPtr AdaptToolOutput(char const* tag, std::string const& output, T& native) {
  Lumo::Data::DataValuePtr const value = ParseJsonValue(output, false);
  if (!value) {
    return MakeBareError<NoValue>();
  }
  Lumo::MessageList messages;
  if (!Lumo::Data::FromValue(value, native, messages)) {
    LogAdaptMessages(tag, messages);
    return Lumo::Data::ErrorFactory::GetError<Com::Orbane::Lumo::Std::Errors::InternalServerError>(messages);
  }
  return nullptr;
}

/// Answers with the record that the tool printed. "null" is a bare NotFound, a document without a value a
/// bare InternalServerError.
template <typename Record>
void AnswerWithRecord(char const* tag, std::string const& output,
                      Lumo::AsyncResult<std::shared_ptr<Record const>> const& result) {
  if (output == "null") {
    CSLogger::Log(0, "[%s] Result is null ", tag);
    result.error(MakeBareError<Com::Orbane::Lumo::Std::Errors::NotFound>());
    return;
  }
  std::shared_ptr<Record const> record;
  auto const error =
      AdaptToolOutput<Com::Orbane::Lumo::Std::Errors::InternalServerError>(tag, output, record);
  error ? result.error(error) : result(record);
}

}  // namespace LifeCycle
