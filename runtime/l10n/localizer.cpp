#include "runtime/l10n/localizer.h"

#include <cstdio>

#include "runtime/errors/categories.h"

namespace Lumo::L10n {

Localizer::Localizer()
    : Localizer({"en_US"}, &LocalizerHelpers::GetDefaultMessageTemplateCb,
                LocalizerHelpers::GetDefaultFormatter(), LocalizerSpec()) {}

Localizer::Localizer(std::vector<std::string> locales, MessageTemplateFunction templates,
                     ArgumentFormatter formatter, LocalizerSpec spec)
    : locales_(std::move(locales)),
      templates_(std::move(templates)),
      formatter_(std::move(formatter)),
      spec_(spec) {}

std::string Localizer::MessageTemplate(std::string const& id, boost::string_view locale,
                                       std::error_code& ec) const {
  return templates_(id, locale, ec);
}

namespace LocalizerHelpers {

std::shared_ptr<Localizer> GetDefaultLocalizer() {
  return std::make_shared<Localizer>(std::vector<std::string>{"en_US"}, &GetDefaultMessageTemplateCb,
                                     GetDefaultFormatter(), LocalizerSpec());
}

std::string GetDefaultMessageTemplateCb(std::string const& id, boost::string_view /*locale*/,
                                        std::error_code& ec) {
  ec = L10nErrc::NoFormatString;
  return id;
}

ArgumentFormatter GetDefaultFormatter() {
  ArgumentFormatter formatter;
  formatter.integer = [](long long value, LanguagePreference const& /*locale*/, std::error_code& /*ec*/) {
    return std::to_string(value);  // "%lld"
  };
  formatter.real = [](double value, long long /*precision*/, LanguagePreference const& /*locale*/,
                      std::error_code& /*ec*/) {
    return std::to_string(value);  // "%f"
  };
  formatter.dateTime = [](Lumo::DateTime const& value, DateTimeFormat /*format*/,
                          TimezoneSpec const& /*zone*/, LanguagePreference const& /*locale*/,
                          std::error_code& /*ec*/) { return value.ToString(); };
  return formatter;
}

}  // namespace LocalizerHelpers

namespace LocalizableMessageHelpers {
namespace {

/// The template of `id` in `language`; false when the localizer does not have it.
bool FindTemplate(Localizer const& localizer, std::string const& id, LanguagePreference const& language,
                  std::string& text) {
  for (std::string const& name : LocaleHelpers::CatalogueNames(language)) {
    std::error_code missing;
    std::string found = localizer.MessageTemplate(id, name, missing);
    if (!missing && !found.empty()) {
      text = std::move(found);
      return true;
    }
  }
  return false;
}

/// The template of `id` in the best acceptable language that is better than that of default texts.
bool FindBetterTemplate(Localizer const& localizer, std::string const& id, LocaleSpec const& locale,
                        std::string& text) {
  auto const better = [](LanguagePreference const& language) {
    return !LocaleHelpers::IsDefaultLanguage(language);
  };
  if (locale.languages.empty()) {
    return better(locale.language) && FindTemplate(localizer, id, locale.language, text);
  }
  for (LanguagePreference const& language : locale.languages) {
    if (!better(language)) {
      return false;
    }
    if (FindTemplate(localizer, id, language, text)) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string LocalizedText(Localizer const& localizer, std::string const& id,
                          std::list<std::string> const& args, LocaleSpec const& locale) {
  std::string found;
  std::error_code ec;
  if (FindBetterTemplate(localizer, id, locale, found)) {
    found = FormatMessage(found, args, ec);
  }
  return ec ? std::string() : found;
}

std::string formatMessage(Localizer const& localizer, PositionalMessageBuilder const& message,
                          LocaleSpec const& locale, std::error_code& ec) {
  std::string found;
  bool const inCatalogue = FindBetterTemplate(localizer, message.id(), locale, found);
  return FormatMessage(inCatalogue ? found : message.defaultTemplate(), message.args(), ec);
}

}  // namespace LocalizableMessageHelpers

}  // namespace Lumo::L10n
