#include "runtime/json/error_code.h"

#include <array>
#include <utility>

#include "runtime/json/document_reader.h"

namespace Lumo::Protocol::Json {
namespace {

constexpr std::string_view kStandardPrefix = "com.orbane.lumo.std.errors.";
constexpr int kOtherError = -32099;

// Sent to clients: fixed. The first five are those of JSON-RPC 2.0, section 5.1.
constexpr std::array<std::pair<std::string_view, int>, 14> kCodes{{
    {"json_parse_error", -32700},
    {"invalid_request", -32600},
    {"operation_not_found", -32601},
    {"invalid_argument", -32602},
    {"internal_server_error", -32603},
    {"error", -32000},
    {"already_exists", -32001},
    {"not_allowed_in_current_state", -32002},
    {"not_found", -32003},
    {"resource_inaccessible", -32004},
    {"service_unavailable", -32005},
    {"unauthenticated", -32006},
    {"unauthorized", -32007},
    {"unsupported", -32008},
}};

Data::StringValue const* TextField(Data::CompoundValue const& compound, std::string_view name) {
  Data::DataValue const* value = compound.Find(name);
  while (auto const* optional = Data::As<Data::OptionalValue>(value))
    value = optional->Inner();
  return Data::As<Data::StringValue>(value);
}

}  // namespace

int RpcCode(std::string_view identifier) {
  if (!identifier.starts_with(kStandardPrefix))
    return kOtherError;
  identifier.remove_prefix(kStandardPrefix.size());
  for (auto const& [name, code] : kCodes) {
    if (name == identifier)
      return code;
  }
  return kOtherError;
}

std::string_view RpcMessage(Data::ErrorValue const& error) {
  auto const* messages = Data::As<Data::ListValue>(error.Find("messages"));
  auto const* first =
      messages && messages->size() > 0 ? Data::As<Data::CompoundValue>(messages->Item(0)) : nullptr;
  if (first) {
    for (std::string_view const name : {"localized", "default_message"}) {
      if (auto const* text = TextField(*first, name))
        return text->value();
    }
  }
  return error.name();
}

std::shared_ptr<Data::ErrorValue const> MakeReadError(ReadProblem const& problem) {
  bool const isDocument = problem.cause == ReadProblem::Cause::Document;
  char const* const id = isDocument ? "lumo.json.parse.error" : "lumo.json.annotation.error";
  return Data::ErrorValue::Create(isDocument ? kJsonParseError : kInvalidArgument,
                                  {Message<CoreTag>::Make(id, problem.offset, problem.reason)});
}

std::shared_ptr<Data::ErrorValue const> MakeWriteError(char const* reason) {
  return Data::ErrorValue::Create(kInternalServerError,
                                  {Message<CoreTag>::Make("lumo.json.write.error", reason)});
}

}  // namespace Lumo::Protocol::Json
