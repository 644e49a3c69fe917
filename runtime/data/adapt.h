// Conversion between native records and values, and the delivery of native results. Generated code includes
// this.
#pragma once

#include <memory>

#include "runtime/core/activation.h"
#include "runtime/data/error_factory.h"
#include "runtime/data/native_to_value.h"
#include "runtime/data/value_to_native.h"
#include "runtime/l10n/localizer.h"
#include "runtime/provider/async_result.h"

namespace Lumo::Data {

/// Adapts any type that a field or result may have. Null, with the reason in `errors`, when it can't be.
template <typename T>
DataValuePtr ToValue(T const& native, MessageList& errors, L10n::RequestLocalizer const& localizer) {
  DataValuePtr value;
  if (!NativeToValueAdapter::Adapt(NativeConstPtr(&native), NativeToValueAdapter::MethodOf<T>(), &value,
                                   errors, localizer)) {
    return nullptr;
  }
  return value;
}

/// The same under the program's fixed locale.
template <typename T>
DataValuePtr ToValue(T const& native, MessageList& errors) {
  return ToValue(native, errors,
                 L10n::RequestLocalizer(L10n::LocalizerHelpers::GetDefaultLocalizer(),
                                        L10n::LocaleSpecHelpers::GetFixedLocaleSpec()));
}

/// Fills `native` from a value. False, with the reason in `errors` and `native` half filled, when it doesn't
/// fit.
template <typename T>
bool FromValue(DataValuePtr const& value, T& native, MessageList& errors,
               ValueToNativeAdapter::UnknownFields unknown = ValueToNativeAdapter::UnknownFields::Ignore) {
  return ValueToNativeAdapter::Adapt(value, ValueToNativeAdapter::MethodOf<T>(), NativePtr(&native), errors,
                                     unknown);
}

}  // namespace Lumo::Data

namespace Lumo::Provider {

template <typename T>
void DeliverNative(ResultSink& sink, T const& value) {
  MessageList errors;
  Data::DataValuePtr const output = Data::ToValue(value, errors, sink.activation()->requestLocalizer());
  if (errors.empty()) {
    sink.Deliver(output);
  } else {
    sink.Fail(Data::MakeStandardError("internal_server_error", errors));
  }
}

}  // namespace Lumo::Provider
