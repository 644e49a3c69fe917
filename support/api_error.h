// API errors with the daemon's own messages.
#pragma once

#include <memory>
#include <string>

#include "runtime/data/error_factory.h"
#include "runtime/message.h"
#include "support/translator.h"

namespace LifeCycle {

/// The message of an id, with its default text formatted with `args`, which are texts or integers.
template <typename... Args>
Lumo::BaseMessage MakeDefaultMessage(std::string const& id, Args const&... args) {
  return Lumo::MakeMessage(id, GetDefaultMessage(id), args...);
}

/// An error of the generated record `E` with that one message.
template <typename E, typename... Args>
std::shared_ptr<Lumo::Data::ErrorValue> MakeApiError(std::string const& id, Args const&... args) {
  return Lumo::Data::ErrorFactory::GetError<E>({MakeDefaultMessage(id, args...)});
}

/// Logs what an adapter reported, at priority 0, in the name of `tag`.
void LogAdaptMessages(char const* tag, Lumo::MessageList const& messages);

}  // namespace LifeCycle
