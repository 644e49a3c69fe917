#include "runtime/data/error_factory.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <string>

#include "runtime/l10n/localizer.h"

namespace Lumo::Data {

namespace {

L10n::RequestLocalizer FixedLocalizer() {
  return {std::make_shared<L10n::Localizer const>(), L10n::LocaleSpecHelpers::GetFixedLocaleSpec()};
}

}  // namespace

std::shared_ptr<ListValue const> ErrorFactory::CastMessages(MessageList const& messages) {
  DataValuePtr list;
  MessageList dropped;
  NativeToValueAdapter::Adapt(NativeConstPtr(&messages), NativeToValueAdapter::MethodOf<MessageList>(), &list,
                              dropped, FixedLocalizer());
  return As<ListValue>(list);
}

std::shared_ptr<ErrorValue> ErrorFactory::Build(NativeConstPtr const& record, NativeToValueMethod method,
                                                MessageList const& messages) {
  DataValuePtr value;
  MessageList dropped;
  NativeToValueAdapter::Adapt(record, method, &value, dropped, FixedLocalizer());
  // The value was built just now and is not shared yet.
  auto error = std::const_pointer_cast<ErrorValue>(As<ErrorValue>(value));
  error->SetField("messages", CastMessages(messages));
  return error;
}

std::shared_ptr<ErrorValue const> NativeErrorHelper::GetError(std::shared_ptr<ErrorValue const> const& value,
                                                              boost::optional<NativeError> const& native,
                                                              L10n::RequestLocalizer const& localizer) {
  if (value) {
    return value;
  }
  if (!native) {
    return MakeStandardError("internal_server_error", {});
  }
  DataValuePtr adapted;
  MessageList errors;
  if (!NativeToValueAdapter::Adapt(native->pointer(), native->method(), &adapted, errors, localizer)) {
    return MakeStandardError("internal_server_error", errors);
  }
  return As<ErrorValue>(adapted);
}

std::shared_ptr<ErrorValue> MakeStandardError(std::string_view name, MessageList const& messages) {
  auto error = ErrorValue::GetInstance("com.orbane.lumo.std.errors." + std::string(name));
  auto const type = OptionalValue::GetInstance();
  type->value(StringValue::GetInstance(boost::algorithm::to_upper_copy(std::string(name))));
  error->ReserveFields(3);
  error->SetField("messages", ErrorFactory::CastMessages(messages));
  error->SetField("data", OptionalValue::GetInstance());
  error->SetField("error_type", type);
  return error;
}

}  // namespace Lumo::Data
