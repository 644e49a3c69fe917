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

/// The template of `id` in the best acceptable language that the localizer has; false when it has none of
/// them.
bool FindTemplate(Localizer const& localizer, std::string const& id, LocaleSpec const& locale,
                  std::string& text) {
  auto const tryLanguage = [&](LanguagePreference const& language) {
    for (std::string const& candidate : LocaleHelpers::CatalogueNames(language)) {
      std::error_code missing;
      std::string found = localizer.MessageTemplate(id, candidate, missing);
      if (!missing && !found.empty()) {
        text = std::move(found);
        return true;
      }
    }
    return false;
  };
  if (locale.languages.empty()) {
    return tryLanguage(locale.language);
  }
  for (LanguagePreference const& language : locale.languages) {
    if (tryLanguage(language)) {
      return true;
    }
    if (LocaleHelpers::IsDefaultLanguage(language)) {
      return false;  // the default text is in this language
    }
  }
  return false;
}

}  // namespace

std::string formatMessage(Localizer const& localizer, PositionalMessageBuilder const& message,
                          LocaleSpec const& locale, std::error_code& ec) {
  std::string found;
  bool const inCatalogue = FindTemplate(localizer, message.id(), locale, found);
  return FormatMessage(inCatalogue ? found : message.defaultTemplate(), message.args(), ec);
}

}  // namespace LocalizableMessageHelpers

}  // namespace Lumo::L10n
