// The errors of the readers and writers of this folder, and the numbers of all errors on the wire.
#pragma once

#include <memory>
#include <string_view>

#include "runtime/data/value.h"

namespace Lumo::Protocol::Json {

inline constexpr std::string_view kJsonParseError = "com.orbane.lumo.std.errors.json_parse_error";
inline constexpr std::string_view kInvalidRequest = "com.orbane.lumo.std.errors.invalid_request";
inline constexpr std::string_view kInvalidArgument = "com.orbane.lumo.std.errors.invalid_argument";
inline constexpr std::string_view kInternalServerError = "com.orbane.lumo.std.errors.internal_server_error";

/// The `code` of an error with this identifier in a JSON-RPC answer.
int RpcCode(std::string_view identifier);

/// The text for the `message` of an answer: the first message's `localized`, else its `default_message`, else
/// the error's identifier.
std::string_view RpcMessage(Data::ErrorValue const& error);

struct ReadProblem;

/// json_parse_error for what is no document, invalid_argument for a bad annotation.
std::shared_ptr<Data::ErrorValue const> MakeReadError(ReadProblem const& problem);

/// internal_server_error: a value can't be written, because `reason`.
std::shared_ptr<Data::ErrorValue const> MakeWriteError(char const* reason);

}  // namespace Lumo::Protocol::Json
