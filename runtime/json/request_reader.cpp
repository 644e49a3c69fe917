#include <array>
#include <string>
#include <string_view>
#include <system_error>

#include "runtime/core/recycled.h"
#include "runtime/json/document_reader.h"
#include "runtime/json/error_code.h"
#include "runtime/json/request_id.h"
#include "runtime/json/serializers.h"
#include "runtime/json/text_sink.h"

namespace Lumo::Protocol::Json {
namespace {

using ErrorPtr = std::shared_ptr<Data::ErrorValue const>;

// The members of a request's envelope, checked.
struct Request {
  Data::DataValuePtr document;
  std::string id;              // encoded
  std::string_view service;    // in the document
  std::string_view operation;  // in the document
  Data::DataValuePtr input;
};

// True for what is no object in any form.
bool IsPlainScalar(Data::DataValue const& value) {
  switch (value.GetKind()) {
    case Data::Kind::Void:
    case Data::Kind::Boolean:
    case Data::Kind::Integer:
    case Data::Kind::Double:
    case Data::Kind::String:
      return true;
    default:
      return false;
  }
}

// Each gives the reason why the envelope isn't one, or null.

char const* ReadDialect(Data::CompoundValue const& envelope, Dialect& dialect) {
  Data::DataValue const* const version11 = envelope.Find("version");
  Data::DataValue const* const version20 = envelope.Find("jsonrpc");
  if (version11 && version20)
    return "both 'version' and 'jsonrpc'";
  if (!version11 && !version20)
    return "neither 'version' nor 'jsonrpc'";
  auto const* text = Data::As<Data::StringValue>(version11 ? version11 : version20);
  if (!text || text->value() != (version11 ? "1.1" : "2.0")) {
    return version11 ? "'version' isn't \"1.1\"" : "'jsonrpc' isn't \"2.0\"";
  }
  dialect = version11 ? Dialect::JsonRpc11 : Dialect::JsonRpc20;
  return nullptr;
}

char const* ReadId(Data::CompoundValue const& envelope, Dialect dialect, std::string& id) {
  Data::DataValue const* const value = envelope.Find("id");
  std::string json;
  if (auto const* text = Data::As<Data::StringValue>(value)) {
    TextSink(json).Text(text->value());
  } else if (auto const* number = Data::As<Data::IntegerValue>(value)) {
    TextSink(json).Integer(number->value());
  } else if (!value || Data::As<Data::VoidValue>(value)) {
    json = "null";
  } else {
    return "'id' is neither a text nor an integer nor null";
  }
  id = EncodeRequestId({dialect, json});
  return nullptr;
}

char const* ReadMethod(Data::CompoundValue const& envelope, Request& request) {
  auto const* method = Data::As<Data::StringValue>(envelope.Find("method"));
  if (!method)
    return "'method' isn't a text";
  std::string_view const name = method->value();
  std::size_t const dot = name.rfind('.');
  if (dot == std::string_view::npos)
    return "'method' has no dot";
  bool const emptyPart =
      name.front() == '.' || name.back() == '.' || name.find("..") != std::string_view::npos;
  if (emptyPart)
    return "'method' has an empty part";
  request.service = name.substr(0, dot);
  request.operation = name.substr(dot + 1);
  return nullptr;
}

// Absent params are an empty structure; a malformed annotation among them is told apart later.
char const* ReadParams(Data::CompoundValue const& envelope, Data::DataValuePtr& params) {
  static Data::DataValuePtr const none = Data::StructValue::GetInstance("");
  MessageList ignored;
  params = none;
  if (!envelope.HasField("params"))
    return nullptr;
  envelope.GetField("params", params, ignored);
  auto const* list = Data::As<Data::ListValue>(params.get());
  bool const isObject = list ? list->form() != Data::ListValue::Form::List : !IsPlainScalar(*params);
  return isObject ? nullptr : "'params' isn't an object";
}

ErrorPtr InvalidRequest(char const* messageId, std::string const& reason) {
  return Data::ErrorValue::Create(kInvalidRequest, {Message<CoreTag>::Make(messageId, reason)});
}

bool ReadRequest(std::string_view body, Request& request, ErrorPtr& error) {
  error = nullptr;
  ReadProblem problem;
  request.document = ReadDocument(body, ReadForm::Envelope, problem);
  if (!request.document) {
    error = MakeReadError(problem);
    return false;
  }
  auto const* envelope = Data::As<Data::StructValue>(request.document.get());
  Dialect dialect = Dialect::JsonRpc20;
  char const* reason = envelope ? ReadDialect(*envelope, dialect) : "it isn't an object";
  if (!reason)
    reason = ReadId(*envelope, dialect, request.id);
  if (!reason)
    reason = ReadMethod(*envelope, request);
  if (!reason)
    reason = ReadParams(*envelope, request.input);
  if (reason) {
    error = InvalidRequest("lumo.json.invalid.request", reason);
  } else if (problem) {
    error = MakeReadError(problem);
  } else if (!Data::As<Data::StructValue>(request.input.get())) {
    error = Data::ErrorValue::Create(kInvalidArgument, {Message<CoreTag>::Make("lumo.json.invalid.params")});
  }
  return !error;
}

}  // namespace

bool JsonApiRequestDeserializer::Deserialize(std::streambuf& body, Core::ApiRequestVisitor& visitor,
                                             ErrorPtr& error) {
  std::string text;
  std::array<char, 16384> piece;
  while (auto const count = body.sgetn(piece.data(), piece.size()))
    text.append(piece.data(), static_cast<std::size_t>(count));
  return Deserialize(std::string_view(text), visitor, error);
}

bool JsonApiRequestDeserializer::Deserialize(std::string_view body, Core::ApiRequestVisitor& visitor,
                                             ErrorPtr& error) {
  Request request;
  if (!ReadRequest(body, request, error))
    return false;
  auto const method = Core::MakeRecycled<Core::MethodIdentifier const>(std::string(request.service),
                                                                       std::string(request.operation));
  std::error_code const refused =
      visitor.Visit(request.id, method, request.input, Core::MakeRecycled<Core::ExecutionContext>());
  if (refused)
    error = InvalidRequest("lumo.json.request.refused", refused.message());
  return !refused;
}

}  // namespace Lumo::Protocol::Json
