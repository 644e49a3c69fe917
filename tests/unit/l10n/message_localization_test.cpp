#include "runtime/l10n/message_localization.h"

#include <gtest/gtest.h>

#include "runtime/errors/categories.h"

namespace {

using namespace Lumo::Data;
using namespace Lumo::L10n;

/// Knows "greet" in German.
std::shared_ptr<Localizer const> German() {
  auto const templates = [](std::string const& id, boost::string_view locale,
                            std::error_code& ec) -> std::string {
    if (id == "greet" && locale == "de") {
      return "Hallo {1}";
    }
    ec = L10nErrc::UnknownMessageId;
    return {};
  };
  return std::make_shared<Localizer const>(std::vector<std::string>{"en", "de"}, templates,
                                           LocalizerHelpers::GetDefaultFormatter(), LocalizerSpec());
}

RequestLocalizer Reader(std::string const& language) {
  auto spec = std::make_shared<LocaleSpec>(*LocaleSpecHelpers::GetFixedLocaleSpec());
  spec->language = LanguagePreference(language);
  spec->languages = {spec->language};
  return {German(), spec};
}

std::shared_ptr<StructValue> MessageValue(std::string const& id) {
  auto const args = ListValue::GetInstance(ListValue::Form::List);
  args->Add(StringValue::GetInstance("Ann"));
  auto message = StructValue::GetInstance("com.orbane.lumo.std.localizable_message");
  message->SetField("id", StringValue::GetInstance(id));
  message->SetField("default_message", StringValue::GetInstance("Hello Ann"));
  message->SetField("args", args);
  message->SetField("localized", OptionalValue::GetInstance());
  return message;
}

std::shared_ptr<StructValue> Pair(DataValuePtr const& first, DataValuePtr const& second) {
  auto pair = StructValue::GetInstance("pair");
  pair->SetField("first", first);
  pair->SetField("second", second);
  return pair;
}

/// The text of "localized"; empty when it is unset.
std::string LocalizedOf(DataValue const* message) {
  auto const* const optional = As<OptionalValue>(As<CompoundValue>(message)->Find("localized"));
  auto const* const text = optional ? As<StringValue>(optional->Inner()) : nullptr;
  return text ? std::string(text->value()) : std::string();
}

TEST(WantsLocalization, OfReadersOfOtherLanguages) {
  EXPECT_FALSE(WantsLocalization(*LocaleSpecHelpers::GetFixedLocaleSpec()));
  EXPECT_FALSE(WantsLocalization(Reader("en_GB").locale()));
  EXPECT_TRUE(WantsLocalization(Reader("de").locale()));
}

TEST(LocalizeMessages, FillsTheMessageItself) {
  auto const message = MessageValue("greet");
  auto const localized = LocalizeMessages(message, Reader("de_AT"));
  EXPECT_EQ(LocalizedOf(localized.get()), "Hallo Ann");
  EXPECT_EQ(LocalizedOf(message.get()), "") << "the original is shared and must not change";
  EXPECT_EQ(As<StructValue>(localized)->name(), message->name());
  EXPECT_EQ(As<StructValue>(localized)->size(), message->size());
}

TEST(LocalizeMessages, AsksOnceForEachTemplate) {
  std::vector<std::string> asked;
  auto const templates = [&asked](std::string const& id, boost::string_view locale,
                                  std::error_code& ec) -> std::string {
    asked.push_back(id + " " + std::string(locale.begin(), locale.end()));
    if (id == "greet" && locale == "de") {
      return "Hallo {1}";
    }
    ec = L10nErrc::UnknownMessageId;
    return {};
  };
  auto const localizer =
      std::make_shared<Localizer const>(std::vector<std::string>{"en", "de"}, templates,
                                        LocalizerHelpers::GetDefaultFormatter(), LocalizerSpec());
  RequestLocalizer const reader(localizer, std::make_shared<LocaleSpec>(Reader("de_AT").locale()));
  auto const list = ListValue::GetInstance(ListValue::Form::List);
  for (int i = 0; i < 100; ++i) {
    list->Add(MessageValue(i % 2 == 0 ? "greet" : "other"));
  }
  auto const localized = LocalizeMessages(list, reader);
  for (std::size_t i = 0; i < 100; ++i) {
    EXPECT_EQ(LocalizedOf(As<ListValue>(localized.get())->Item(i)), i % 2 == 0 ? "Hallo Ann" : "") << i;
  }
  EXPECT_EQ(asked, (std::vector<std::string>{"greet de_AT", "greet de", "other de_AT", "other de"}));
  LocalizeMessages(list, reader);
  EXPECT_EQ(asked.size(), 8U) << "the next answer may find what was added meanwhile";
}

TEST(LocalizeMessages, AddsTheFieldWhereItIsMissing) {
  auto const message = StructValue::GetInstance("com.orbane.lumo.std.localizable_message");
  message->SetField("id", StringValue::GetInstance("greet"));
  auto const args = ListValue::GetInstance(ListValue::Form::List);
  args->Add(StringValue::GetInstance("Bo"));
  message->SetField("args", args);
  EXPECT_EQ(LocalizedOf(LocalizeMessages(message, Reader("de")).get()), "Hallo Bo");
}

TEST(LocalizeMessages, GivesTheSameValueWhenNothingIsBetter) {
  DataValuePtr const values[] = {nullptr,
                                 VoidValue::GetInstance(),
                                 IntegerValue::GetInstance(1),
                                 MessageValue("unknown.id"),
                                 Pair(MessageValue("unknown.id"), VoidValue::GetInstance()),
                                 OptionalValue::GetInstance(),
                                 ListValue::GetInstance(ListValue::Form::List)};
  for (DataValuePtr const& value : values) {
    EXPECT_EQ(LocalizeMessages(value, Reader("de")), value);
  }
  DataValuePtr const known = MessageValue("greet");
  EXPECT_EQ(LocalizeMessages(known, Reader("en")), known);
  EXPECT_EQ(LocalizeMessages(known, Reader("fr")), known);
}

TEST(LocalizeMessages, ReachesMessagesAnywhere) {
  auto const list = ListValue::GetInstance(ListValue::Form::Set);
  list->Add(IntegerValue::GetInstance(1));
  list->Add(MessageValue("greet"));
  auto const optional = OptionalValue::GetInstance();
  optional->value(list);
  auto const error = ErrorValue::GetInstance("some.error");
  error->SetField("number", IntegerValue::GetInstance(7));
  error->SetField("inner", optional);
  auto const untouched = MessageValue("unknown.id");
  auto const root = Pair(error, untouched);

  auto const localized = As<StructValue>(LocalizeMessages(root, Reader("de")));
  ASSERT_NE(localized, nullptr);
  EXPECT_EQ(localized->name(), "pair");
  EXPECT_EQ(localized->FieldName(0), "first");
  EXPECT_EQ(localized->Find("second"), untouched.get()) << "what does not change is shared";

  auto const* const newError = As<ErrorValue>(localized->Find("first"));
  ASSERT_NE(newError, nullptr);
  EXPECT_EQ(newError->name(), "some.error");
  EXPECT_EQ(As<IntegerValue>(newError->Find("number"))->value(), 7);
  auto const* const newList = As<ListValue>(As<OptionalValue>(newError->Find("inner"))->Inner());
  ASSERT_NE(newList, nullptr);
  EXPECT_EQ(newList->form(), ListValue::Form::Set);
  EXPECT_EQ(newList->Item(0), list->Item(0));
  EXPECT_EQ(LocalizedOf(newList->Item(1)), "Hallo Ann");
}

TEST(LocalizeMessages, ResultOutlivesTheOriginal) {
  auto root = Pair(MessageValue("greet"), StringValue::GetInstance("a text too long to be kept in place"));
  auto const localized = As<StructValue>(LocalizeMessages(root, Reader("de")));
  root.reset();
  EXPECT_EQ(As<StringValue>(localized->Find("second"))->value(), "a text too long to be kept in place");
}

TEST(LocalizeMessages, DeepValuesNeedNoStack) {
  DataValuePtr value = MessageValue("greet");
  for (int i = 0; i < 200000; ++i) {
    auto const outer = OptionalValue::GetInstance();
    outer->value(value);
    value = outer;
  }
  DataValuePtr const localized = LocalizeMessages(value, Reader("de"));
  DataValue const* inner = localized.get();
  while (auto const* const optional = As<OptionalValue>(inner)) {
    inner = optional->Inner();
  }
  EXPECT_EQ(LocalizedOf(inner), "Hallo Ann");
}

}  // namespace
