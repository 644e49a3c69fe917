// Rendering of messages, numbers and dates for a caller's locale.
#pragma once

#include <boost/utility/string_view.hpp>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "runtime/l10n/date_time.h"
#include "runtime/message.h"

namespace Lumo::Core {
class ExecutionContext;
}

namespace Lumo::L10n {

/// A parsed language tag, as "en_US" or "zh_CN"; "C" for the neutral format locale.
class LanguagePreference {
 public:
  LanguagePreference() = default;
  explicit LanguagePreference(std::string tag) : tag_(std::move(tag)) {}
  std::string const& ToString() const { return tag_; }
  friend bool operator==(LanguagePreference const&, LanguagePreference const&) = default;

 private:
  std::string tag_;
};

class TimezoneSpec {
 public:
  TimezoneSpec() = default;
  explicit TimezoneSpec(boost::string_view name) : name_(name.begin(), name.end()) {}
  std::string const& ToString() const { return name_; }

 private:
  std::string name_;
};

/// A caller's locale. `languages` holds all acceptable languages of accept-language, best first; `language`
/// is the first of them.
struct LocaleSpec {
  std::error_code languageError;
  std::error_code formatError;
  LanguagePreference language;
  LanguagePreference formatLocale;
  TimezoneSpec timezone;
  std::vector<LanguagePreference> languages;
};

enum class DateTimeFormat { Default, Short, Medium, Long };

struct ArgumentFormatter {
  std::function<std::string(long long, LanguagePreference const&, std::error_code&)> integer;
  std::function<std::string(double, long long precision, LanguagePreference const&, std::error_code&)> real;
  std::function<std::string(Lumo::DateTime const&, DateTimeFormat, TimezoneSpec const&,
                            LanguagePreference const&, std::error_code&)>
      dateTime;
};

struct LocalizerSpec {};

using MessageTemplateFunction =
    std::function<std::string(std::string const& id, boost::string_view locale, std::error_code&)>;

/// Immutable after construction; any thread.
class Localizer {
 public:
  /// The default localizer: "en_US", no templates, default formatter.
  Localizer();
  Localizer(std::vector<std::string> locales, MessageTemplateFunction templates, ArgumentFormatter formatter,
            LocalizerSpec spec);

  std::vector<std::string> const& locales() const { return locales_; }
  /// The template of an id in a locale; sets `ec` where there is none.
  std::string MessageTemplate(std::string const& id, boost::string_view locale, std::error_code& ec) const;
  ArgumentFormatter const& formatter() const { return formatter_; }

 private:
  std::vector<std::string> locales_;
  MessageTemplateFunction templates_;
  ArgumentFormatter formatter_;
  [[maybe_unused]] LocalizerSpec spec_;
};

/// The rendering context of one call.
class RequestLocalizer {
 public:
  RequestLocalizer(std::shared_ptr<Localizer const> localizer, std::shared_ptr<LocaleSpec const> spec)
      : localizer_(std::move(localizer)), spec_(std::move(spec)) {}
  Localizer const& localizer() const { return *localizer_; }
  LocaleSpec const& locale() const { return *spec_; }

 private:
  std::shared_ptr<Localizer const> localizer_;
  std::shared_ptr<LocaleSpec const> spec_;
};

namespace LocalizerHelpers {
std::shared_ptr<Localizer> GetDefaultLocalizer();
/// Sets code 4 of the localisation category and gives the id back.
std::string GetDefaultMessageTemplateCb(std::string const& id, boost::string_view locale,
                                        std::error_code& ec);
ArgumentFormatter GetDefaultFormatter();
}  // namespace LocalizerHelpers

namespace LocaleHelpers {
/// Normalises a tag: "de-at" and "de_AT" give "de_AT". Sets `ec` to code 3 and gives an empty one for no tag.
LanguagePreference MakeLanguagePreference(boost::string_view tag, std::error_code& ec);
/// True for English of any region: default texts are English.
bool IsDefaultLanguage(LanguagePreference const& language);
/// The names under which catalogues may hold the language, most exact first: "de_AT", "de".
std::vector<std::string> CatalogueNames(LanguagePreference const& language);
}  // namespace LocaleHelpers

namespace LocaleSpecHelpers {
/// "en_US", "C", "Etc/UTC".
std::shared_ptr<LocaleSpec const> GetFixedLocaleSpec();
/// From the entries accept-language (with q-values), lumo-ctx-format-locale and lumo-ctx-timezone; a bad
/// value sets `ec` to code 3 and leaves the fixed locale's part in its place.
std::shared_ptr<LocaleSpec const> ExtractLocaleSpec(std::shared_ptr<Core::ExecutionContext> const& context,
                                                    std::error_code& ec);
}  // namespace LocaleSpecHelpers

}  // namespace Lumo::L10n

namespace Lumo {

/// A message whose text is rendered later: id, default template and positional arguments.
class PositionalMessageBuilder {
 public:
  PositionalMessageBuilder(std::string id, std::string defaultTemplate, std::list<std::string> args = {})
      : id_(std::move(id)), defaultTemplate_(std::move(defaultTemplate)), args_(std::move(args)) {}
  std::string const& id() const { return id_; }
  std::string const& defaultTemplate() const { return defaultTemplate_; }
  std::list<std::string> const& args() const { return args_; }

 private:
  std::string id_;
  std::string defaultTemplate_;
  std::list<std::string> args_;
};

namespace L10n::LocalizableMessageHelpers {
/// The template of the best acceptable language that the localizer knows, else the default template,
/// formatted with the arguments.
std::string formatMessage(Localizer const& localizer, PositionalMessageBuilder const& message,
                          LocaleSpec const& locale, std::error_code& ec);
/// The same without a default: empty when the localizer knows no better language, or has a template that does
/// not fit the arguments.
std::string LocalizedText(Localizer const& localizer, std::string const& id,
                          std::list<std::string> const& args, LocaleSpec const& locale);
}  // namespace L10n::LocalizableMessageHelpers

}  // namespace Lumo
