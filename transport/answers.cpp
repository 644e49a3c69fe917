#include "transport/answers.h"

#include "runtime/errors/string_of_error.h"
#include "runtime/json/serializers.h"
#include "runtime/message.h"

namespace Lumo::Transport::Http {

namespace {

constexpr long long kBadRequest = 400;

using CoreMessage = Message<CoreTag>;

}  // namespace

ErrorPtr ToErrorValue(boost::system::error_code const& error, Direction direction) {
  if (!error) {
    return nullptr;
  }
  char const* const id = direction == Direction::Receive ? "lumo.recv.failed" : "lumo.send.failed";
  return Data::ErrorValue::Create("system_error", {CoreMessage::Make(id, StringOfError(error))});
}

ResultPlan PlanResult(bool next, bool stream, Core::MethodResult const& result) {
  if (!stream) {
    return {.internalError = result.final() && !result.error(), .isStream = false, .last = true};
  }
  return {.internalError = false, .isStream = true, .last = !next || result.final()};
}

std::shared_ptr<Core::MethodResult const> InternalErrorResult() {
  return Core::MethodResult::GetErrorInstance(
      Data::ErrorValue::Create("com.orbane.lumo.std.errors.internal_server_error", {}));
}

std::shared_ptr<Data::ErrorValue const> InvalidRequestError(RequestSpecExtractor const& spec,
                                                            std::uint64_t bodySizeLimit) {
  char const* name = "invalid_request";
  BaseMessage message;
  if (spec.contentTypeMask == 0) {
    name = "invalid_content_type";
    message = CoreMessage::Make("lumo.invalid.content.type", spec.contentType);
  } else if (spec.contentLength > bodySizeLimit) {
    name = "request_exceeds_max_size";
    message = CoreMessage::Make("lumo.request.exceeds.max.size");
  } else {
    message = CoreMessage::Make("lumo.invalid.request");
  }
  auto error = Data::ErrorValue::GetInstance(name);
  error->SetField("code", Data::IntegerValue::GetInstance(kBadRequest));
  error->SetField("message", Data::StringValue::GetInstance(message.defaultMessage()));
  return error;
}

std::string InvalidRequestBody(RequestSpecExtractor const& spec, std::uint64_t bodySizeLimit) {
  std::string body;
  ErrorPtr failed;
  Protocol::Json::JsonApiResponseSerializer<0UL>().SerializeError(InvalidRequestError(spec, bodySizeLimit),
                                                                  body, failed);
  return body;
}

}  // namespace Lumo::Transport::Http
