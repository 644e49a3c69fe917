#include <gtest/gtest.h>

#include "runtime/core/activation.h"
#include "runtime/errors/categories.h"
#include "runtime/l10n/localizer.h"

namespace {

using namespace Lumo::L10n;

struct Extracted {
  std::shared_ptr<LocaleSpec const> spec;
  std::error_code ec;
};

Extracted Extract(std::map<std::string, std::string> const& headers) {
  auto const context = std::make_shared<Lumo::Core::ExecutionContext>();
  context->applicationData() = headers;
  Extracted extracted;
  extracted.spec = LocaleSpecHelpers::ExtractLocaleSpec(context, extracted.ec);
  return extracted;
}

std::vector<std::string> Languages(LocaleSpec const& spec) {
  std::vector<std::string> tags;
  for (LanguagePreference const& language : spec.languages) {
    tags.push_back(language.ToString());
  }
  return tags;
}

TEST(LocaleSpec, FixedOne) {
  auto const spec = LocaleSpecHelpers::GetFixedLocaleSpec();
  EXPECT_EQ(spec->language.ToString(), "en_US");
  EXPECT_EQ(spec->formatLocale.ToString(), "C");
  EXPECT_EQ(spec->timezone.ToString(), "Etc/UTC");
  EXPECT_FALSE(spec->languageError);
  EXPECT_FALSE(spec->formatError);
}

TEST(LocaleSpec, WithoutHeadersIsTheFixedOne) {
  Extracted const extracted = Extract({});
  EXPECT_EQ(extracted.spec, LocaleSpecHelpers::GetFixedLocaleSpec());
  EXPECT_FALSE(extracted.ec);
}

TEST(LocaleSpec, AcceptLanguageWithWeights) {
  using Tags = std::vector<std::string>;
  struct Case {
    char const* header;
    Tags tags;
  };
  for (Case const& c : {
           Case{"de", {"de"}},
           Case{"de-at", {"de_AT"}},
           Case{"de_AT", {"de_AT"}},
           Case{"ZH-hant-tw", {"zh_Hant_TW"}},
           Case{"es-419", {"es_419"}},
           Case{"fr;q=0.5, de", {"de", "fr"}},
           Case{"fr;q=0.5,de;q=0.501,ja;q=0.5", {"de", "fr", "ja"}},
           Case{"da, en-gb;q=0.8, en;q=0.7", {"da", "en_GB", "en"}},
           Case{"de ; q=0.3 , fr ; Q=1", {"fr", "de"}},
           Case{"de;q=0, fr", {"fr"}},
           Case{"*", {"en_US"}},
           Case{"ko, *;q=0.1", {"ko", "en_US"}},
           Case{",, de ,", {"de"}},
       }) {
    Extracted const extracted = Extract({{"accept-language", c.header}});
    EXPECT_EQ(Languages(*extracted.spec), c.tags) << c.header;
    EXPECT_EQ(extracted.spec->language.ToString(), c.tags.front()) << c.header;
    EXPECT_FALSE(extracted.ec) << c.header;
    EXPECT_FALSE(extracted.spec->languageError) << c.header;
  }
}

TEST(LocaleSpec, NothingAcceptableLeavesTheFixedLanguage) {
  for (char const* header : {"", "  ", ",", "de;q=0", "*;q=0.000"}) {
    Extracted const extracted = Extract({{"accept-language", header}});
    EXPECT_EQ(extracted.spec->language.ToString(), "en_US") << header;
    EXPECT_FALSE(extracted.ec) << header;
  }
}

TEST(LocaleSpec, BadAcceptLanguageGivesCodeThree) {
  for (char const* header :
       {"d e", "1de", "de-", "-de", "de--at", "abcdefghi", "de;q", "de;q=", "de;q=2", "de;q=1.001",
        "de;q=0.1234", "de;q=-1", "de;q=0,5x", "de;r=1", "de;q=0.5;q=1", "de\n", "d\xC3\xA9", "fr, de;q=x"}) {
    Extracted const extracted = Extract({{"accept-language", header}});
    EXPECT_EQ(extracted.ec, make_error_code(L10nErrc::IncorrectHeader)) << header;
    EXPECT_EQ(extracted.spec->languageError, make_error_code(L10nErrc::IncorrectHeader)) << header;
    EXPECT_EQ(extracted.spec->language.ToString(), "en_US") << header;
    EXPECT_FALSE(extracted.spec->formatError) << header;
  }
}

TEST(LocaleSpec, FormatLocaleAndTimezone) {
  Extracted const good =
      Extract({{"lumo-ctx-format-locale", "fr-ch"}, {"lumo-ctx-timezone", "Europe/Zurich"}});
  EXPECT_EQ(good.spec->formatLocale.ToString(), "fr_CH");
  EXPECT_EQ(good.spec->timezone.ToString(), "Europe/Zurich");
  EXPECT_EQ(good.spec->language.ToString(), "en_US");
  EXPECT_FALSE(good.ec);

  EXPECT_EQ(Extract({{"lumo-ctx-format-locale", "C"}}).spec->formatLocale.ToString(), "C");
  EXPECT_EQ(Extract({{"lumo-ctx-format-locale", "POSIX"}}).spec->formatLocale.ToString(), "C");
}

TEST(LocaleSpec, BadFormatLocaleOrTimezone) {
  Extracted const format = Extract({{"lumo-ctx-format-locale", "??"}, {"accept-language", "de"}});
  EXPECT_EQ(format.ec, make_error_code(L10nErrc::IncorrectHeader));
  EXPECT_EQ(format.spec->formatError, make_error_code(L10nErrc::IncorrectHeader));
  EXPECT_EQ(format.spec->formatLocale.ToString(), "C");
  EXPECT_EQ(format.spec->language.ToString(), "de");

  Extracted const zone = Extract({{"lumo-ctx-timezone", "Europe Zurich"}});
  EXPECT_EQ(zone.ec, make_error_code(L10nErrc::IncorrectHeader));
  EXPECT_EQ(zone.spec->timezone.ToString(), "Etc/UTC");
}

TEST(LocaleSpec, WithoutAContextIsTheFixedOne) {
  std::error_code ec;
  EXPECT_EQ(LocaleSpecHelpers::ExtractLocaleSpec(nullptr, ec), LocaleSpecHelpers::GetFixedLocaleSpec());
}

TEST(CatalogueNames, GoFromExactToGeneral) {
  using Names = std::vector<std::string>;
  auto const names = [](char const* tag) { return LocaleHelpers::CatalogueNames(LanguagePreference(tag)); };
  EXPECT_EQ(names("de"), (Names{"de"}));
  EXPECT_EQ(names("de_AT"), (Names{"de_AT", "de"}));
  EXPECT_EQ(names("zh_CN"), (Names{"zh_CN"}));
  EXPECT_EQ(names("zh"), (Names{"zh", "zh_CN"}));
  EXPECT_EQ(names("zh_Hant_HK"), (Names{"zh_Hant_HK", "zh_Hant", "zh_TW"}));
  EXPECT_EQ(names(""), (Names{}));
}

TEST(DefaultLanguage, IsEnglish) {
  for (char const* tag : {"en", "en_US", "en_GB", "C"}) {
    EXPECT_TRUE(LocaleHelpers::IsDefaultLanguage(LanguagePreference(tag))) << tag;
  }
  for (char const* tag : {"", "de", "eng", "zh_CN"}) {
    EXPECT_FALSE(LocaleHelpers::IsDefaultLanguage(LanguagePreference(tag))) << tag;
  }
}

}  // namespace
