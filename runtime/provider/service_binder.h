// What generated binders are made of: a bound service out of a table of operations.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "runtime/data/adapt.h"
#include "runtime/provider/async_result.h"
#include "runtime/provider/interface.h"

namespace Lumo::Provider {

/// One operation as the generator describes it.
struct OperationBinding {
  std::string name;
  MethodDefinition definition;
  /// Adapts the input and runs the implementation, which answers through the sink. False, with the reason in
  /// the list, when the input doesn't fit: the implementation was not entered.
  std::function<bool(Data::DataValuePtr const& input, std::shared_ptr<ResultSink> const& sink,
                     MessageList& errors)>
      run;
};

/// The bound service. Each call is answered exactly once:
/// - input that doesn't fit with InvalidArgument, whose first message names the field;
/// - a std::exception that leaves the implementation is logged at priority 0 and answered with a bare
///   InternalServerError, or only logged after the answer;
/// - an implementation that drops its result object without an answer is answered for with
///   InternalServerError;
/// - second answers are logged at priority 1 and dropped.
/// What the caller's callback throws while it takes an answer of the binder's own leaves Invoke; what it
/// throws while it takes an answer of the implementation goes to the implementation first.
/// `localizer` renders what the service answers; it takes the place of the transport's, which is for messages
/// of its own.
std::shared_ptr<AsyncApiInterface const> BindService(std::string const& service,
                                                     std::shared_ptr<L10n::Localizer const> const& localizer,
                                                     std::vector<OperationBinding> operations);

/// The input record of an operation; null with a message when the value doesn't fit. Null and void stand for
/// a structure without fields.
template <typename Input>
std::shared_ptr<Input const> AdaptInput(Data::DataValuePtr const& input, MessageList& errors) {
  auto record = std::make_shared<Input>();
  bool const absent = !input || input->GetKind() == Data::Kind::Void;
  if (!Data::FromValue(absent ? Data::DataValuePtr(Data::StructValue::GetInstance("")) : input, *record,
                       errors, Data::ValueToNativeAdapter::UnknownFields::Refuse)) {
    return nullptr;
  }
  return record;
}

}  // namespace Lumo::Provider
