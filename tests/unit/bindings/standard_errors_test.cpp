#include <gtest/gtest.h>

#include "bindings/com/orbane/lumo/std.h"
#include "bindings/com/orbane/lumo/std/errors.h"
#include "runtime/data/adapt.h"
#include "runtime/json/error_code.h"

namespace {

namespace Errors = Com::Orbane::Lumo::Std::Errors;
using Lumo::BaseMessage;
using Lumo::MessageList;
using Lumo::Data::As;
using Lumo::Data::DataValue;
using Lumo::Data::ErrorFactory;
using Lumo::Data::ErrorValue;
using Lumo::Data::ListValue;
using Lumo::Data::MakeStandardError;
using Lumo::Data::NativeError;
using Lumo::Data::NativeErrorHelper;
using Lumo::Data::OptionalValue;
using Lumo::Data::StringValue;

Lumo::L10n::RequestLocalizer AnyLocalizer() {
  return {Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer(),
          Lumo::L10n::LocaleSpecHelpers::GetFixedLocaleSpec()};
}

template <typename E>
void ExpectError(std::string const& name, std::string const& type) {
  auto const bare = ErrorFactory::GetError<E>({});
  ASSERT_TRUE(bare) << name;
  EXPECT_EQ(bare->name(), "com.orbane.lumo.std.errors." + name);
  auto const* messages = As<ListValue>(bare->Find("messages"));
  ASSERT_TRUE(messages) << name;
  EXPECT_EQ(messages->size(), 0U);
  auto const* data = As<OptionalValue>(bare->Find("data"));
  ASSERT_TRUE(data) << name;
  EXPECT_FALSE(data->HasValue());
  auto const* errorType = As<OptionalValue>(bare->Find("error_type"));
  ASSERT_TRUE(errorType) << name;
  ASSERT_TRUE(As<StringValue>(errorType->Inner())) << name;
  EXPECT_EQ(As<StringValue>(errorType->Inner())->value(), type);

  EXPECT_EQ(Lumo::Protocol::Json::RpcCode(bare->name()), E::kCode) << name;

  MessageList const list = {BaseMessage("an.id", "some text", {"a", "b"})};
  EXPECT_TRUE(DataValue::Equals(*ErrorFactory::GetError<E>(list), *MakeStandardError(name, list))) << name;
}

TEST(StandardErrors, EachHasItsIdentifierAndItsType) {
  ExpectError<Errors::Error>("error", "ERROR");
  ExpectError<Errors::AlreadyExists>("already_exists", "ALREADY_EXISTS");
  ExpectError<Errors::InternalServerError>("internal_server_error", "INTERNAL_SERVER_ERROR");
  ExpectError<Errors::InvalidArgument>("invalid_argument", "INVALID_ARGUMENT");
  ExpectError<Errors::NotAllowedInCurrentState>("not_allowed_in_current_state",
                                                "NOT_ALLOWED_IN_CURRENT_STATE");
  ExpectError<Errors::NotFound>("not_found", "NOT_FOUND");
  ExpectError<Errors::OperationNotFound>("operation_not_found", "OPERATION_NOT_FOUND");
  ExpectError<Errors::ResourceInaccessible>("resource_inaccessible", "RESOURCE_INACCESSIBLE");
  ExpectError<Errors::ServiceUnavailable>("service_unavailable", "SERVICE_UNAVAILABLE");
  ExpectError<Errors::Unauthenticated>("unauthenticated", "UNAUTHENTICATED");
  ExpectError<Errors::Unauthorized>("unauthorized", "UNAUTHORIZED");
  ExpectError<Errors::Unsupported>("unsupported", "UNSUPPORTED");
  ExpectError<Errors::JsonParseError>("json_parse_error", "JSON_PARSE_ERROR");
  ExpectError<Errors::InvalidRequest>("invalid_request", "INVALID_REQUEST");
}

TEST(StandardErrors, MessagesKeepIdTextAndArguments) {
  auto const list =
      ErrorFactory::CastMessages({BaseMessage("one", "text {1}", {"x"}), BaseMessage("two", "", {})});
  ASSERT_EQ(list->size(), 2U);
  Com::Orbane::Lumo::Std::LocalizableMessage message;
  MessageList errors;
  ASSERT_TRUE(Lumo::Data::FromValue(list->GetItem(0), message, errors));
  EXPECT_EQ(message.id, "one");
  EXPECT_EQ(message.defaultMessage, "text {1}");
  EXPECT_EQ(message.args, std::list<std::string>{"x"});
  EXPECT_FALSE(message.localized);
}

TEST(StandardErrors, AnErrorsMessagesAreWhatTheRecordOfMessagesIs) {
  Com::Orbane::Lumo::Std::LocalizableMessage record;
  record.id = "one";
  record.defaultMessage = "text x";
  record.args = {"x"};
  MessageList errors;
  auto const expected = Lumo::Data::ToValue(record, errors);
  auto const list = ErrorFactory::CastMessages({BaseMessage("one", "text x", {"x"})});
  EXPECT_TRUE(DataValue::Equals(*list->GetItem(0), *expected)) << expected->ToString();
}

TEST(NativeErrorHelper, AnErrorValueComesBackItself) {
  auto const value = MakeStandardError("not_found", {});
  EXPECT_EQ(NativeErrorHelper::GetError(value, boost::none, AnyLocalizer()).get(), value.get());
}

TEST(NativeErrorHelper, ANativeErrorIsAdaptedAsItsOwnType) {
  auto record = std::make_shared<Errors::NotFound>();
  record->messages = {BaseMessage("one", "text", {})};
  std::shared_ptr<Errors::Error const> const asBase = record;
  auto const value = NativeErrorHelper::GetError(nullptr, NativeError(asBase), AnyLocalizer());
  EXPECT_TRUE(DataValue::Equals(*value, *MakeStandardError("not_found", record->messages)))
      << value->ToString();
}

TEST(NativeErrorHelper, ANativeErrorThatCannotBeAdaptedIsAnInternalError) {
  auto record = std::make_shared<Errors::NotFound>();
  record->data = Lumo::Data::DynamicStructure();
  auto const value = NativeErrorHelper::GetError(
      nullptr, NativeError(std::shared_ptr<Errors::NotFound const>(record)), AnyLocalizer());
  EXPECT_EQ(value->name(), "com.orbane.lumo.std.errors.internal_server_error");
  EXPECT_EQ(As<ListValue>(value->Find("messages"))->size(), 1U);
}

TEST(NativeErrorHelper, NothingAtAllIsABareInternalError) {
  auto const value = NativeErrorHelper::GetError(nullptr, boost::none, AnyLocalizer());
  EXPECT_TRUE(DataValue::Equals(*value, *MakeStandardError("internal_server_error", {})));
}

}  // namespace
