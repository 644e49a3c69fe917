#include "runtime/l10n/localizer.h"

#include <gtest/gtest.h>

#include "runtime/errors/categories.h"

namespace {

using namespace Lumo::L10n;
using Lumo::PositionalMessageBuilder;

LocaleSpec Accepting(std::vector<std::string> const& tags) {
  LocaleSpec spec = *LocaleSpecHelpers::GetFixedLocaleSpec();
  spec.languages.clear();
  for (std::string const& tag : tags) {
    spec.languages.emplace_back(tag);
  }
  spec.language = spec.languages.front();
  return spec;
}

std::string Render(Localizer const& localizer, LocaleSpec const& locale, std::string const& id = "greet") {
  std::error_code ec;
  std::string const text = LocalizableMessageHelpers::formatMessage(
      localizer, PositionalMessageBuilder(id, "Hello {1}", {"Ann"}), locale, ec);
  EXPECT_FALSE(ec);
  return text;
}

Localizer GermanAndTaiwanese() {
  auto const templates = [](std::string const& id, boost::string_view locale,
                            std::error_code& ec) -> std::string {
    if (id == "greet" && locale == "de") {
      return "Hallo {1}";
    }
    if (id == "greet" && locale == "zh_TW") {
      return "你好 {1}";
    }
    ec = locale == "de" || locale == "zh_TW" ? L10nErrc::UnknownMessageId : L10nErrc::LocaleNotSupported;
    return {};
  };
  return Localizer({"en", "de", "zh_TW"}, templates, LocalizerHelpers::GetDefaultFormatter(),
                   LocalizerSpec());
}

TEST(DefaultLocalizer, KnowsOneLocaleAndNoTemplates) {
  for (auto const& localizer : {std::make_shared<Localizer>(), LocalizerHelpers::GetDefaultLocalizer()}) {
    EXPECT_EQ(localizer->locales(), std::vector<std::string>{"en_US"});
    std::error_code ec;
    EXPECT_EQ(localizer->MessageTemplate("any.id", "en_US", ec), "any.id");
    EXPECT_EQ(ec, make_error_code(L10nErrc::NoFormatString));
  }
}

TEST(DefaultLocalizer, GivesDefaultTexts) {
  EXPECT_EQ(Render(Localizer(), *LocaleSpecHelpers::GetFixedLocaleSpec(), "no.such.id"), "Hello Ann");
}

TEST(DefaultFormatter, Rendering) {
  ArgumentFormatter const formatter = LocalizerHelpers::GetDefaultFormatter();
  LanguagePreference const any("de");
  std::error_code ec;
  EXPECT_EQ(formatter.integer(-1234567, any, ec), "-1234567");
  EXPECT_EQ(formatter.real(1.5, 1, any, ec), "1.500000");
  EXPECT_EQ(formatter.real(2.0 / 3, 9, any, ec), "0.666667");
  EXPECT_EQ(formatter.dateTime(Lumo::DateTime(), DateTimeFormat::Short, TimezoneSpec("Asia/Tokyo"), any, ec),
            "1970-01-01T00:00:00.000Z");
  EXPECT_FALSE(ec);
}

TEST(FormatMessage, PicksTheBestLanguageThatTheLocalizerHas) {
  Localizer const localizer = GermanAndTaiwanese();
  EXPECT_EQ(Render(localizer, Accepting({"de"})), "Hallo Ann");
  EXPECT_EQ(Render(localizer, Accepting({"de_AT"})), "Hallo Ann");
  EXPECT_EQ(Render(localizer, Accepting({"fr", "de"})), "Hallo Ann");
  EXPECT_EQ(Render(localizer, Accepting({"zh_Hant_HK"})), "你好 Ann");
  EXPECT_EQ(Render(localizer, Accepting({"fr"})), "Hello Ann");
  EXPECT_EQ(Render(localizer, Accepting({"de"}), "unknown.id"), "Hello Ann");
  // English is what default texts are written in: a language that is wanted less does not replace it.
  EXPECT_EQ(Render(localizer, Accepting({"en_GB", "de"})), "Hello Ann");
}

TEST(FormatMessage, WithoutAListOfLanguagesTakesTheOne) {
  LocaleSpec spec = Accepting({"de"});
  spec.languages.clear();
  EXPECT_EQ(Render(GermanAndTaiwanese(), spec), "Hallo Ann");
}

TEST(FormatMessage, ReportsATemplateThatWantsMoreArguments) {
  std::error_code ec;
  EXPECT_EQ(LocalizableMessageHelpers::formatMessage(Localizer(), PositionalMessageBuilder("id", "a {1}"),
                                                     *LocaleSpecHelpers::GetFixedLocaleSpec(), ec),
            "a ");
  EXPECT_EQ(ec, make_error_code(Lumo::FormatErrc::TooManySpecifiers));
}

TEST(RequestLocalizer, HoldsBoth) {
  auto const localizer = LocalizerHelpers::GetDefaultLocalizer();
  auto const spec = LocaleSpecHelpers::GetFixedLocaleSpec();
  RequestLocalizer const request(localizer, spec);
  EXPECT_EQ(&request.localizer(), localizer.get());
  EXPECT_EQ(&request.locale(), spec.get());
}

}  // namespace
