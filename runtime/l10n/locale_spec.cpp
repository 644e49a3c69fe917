// Language tags and the accept-language header.
#include <algorithm>
#include <array>

#include "runtime/core/activation.h"
#include "runtime/errors/categories.h"
#include "runtime/l10n/localizer.h"

namespace Lumo::L10n {
namespace {

// RFC 5646, section 2.1: a subtag has at most eight characters.
constexpr std::size_t kMaxSubtagLength = 8;
// RFC 9110, section 12.4.2: a weight has at most three decimals.
constexpr int kFullWeight = 1000;
constexpr std::size_t kWeightDecimals = 3;

bool IsAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

boost::string_view Trim(boost::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
    text.remove_prefix(1);
  }
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
    text.remove_suffix(1);
  }
  return text;
}

/// Takes the text up to `separator` off the front of `text`, and the separator with it.
boost::string_view TakeUntil(boost::string_view& text, char separator) {
  std::size_t const end = text.find(separator);
  boost::string_view const front = text.substr(0, end);
  text.remove_prefix(end == boost::string_view::npos ? text.size() : end + 1);
  return front;
}

/// Appends a subtag in its usual spelling: language "de", script "Hant", region "TW", the rest in lower case.
void AppendSubtag(std::string& tag, boost::string_view subtag) {
  bool const first = tag.empty();
  if (!first) {
    tag += '_';
  }
  bool const region = !first && subtag.size() == 2;
  bool const script = !first && subtag.size() == 4 && IsAlpha(subtag.front());
  for (std::size_t i = 0; i < subtag.size(); ++i) {
    tag += region || (script && i == 0) ? Upper(subtag[i]) : Lower(subtag[i]);
  }
}

/// The weight "0.7", "1", "1.000" in thousandths; -1 when it is none.
int ParseWeight(boost::string_view text) {
  if (text.empty() || (text.front() != '0' && text.front() != '1')) {
    return -1;
  }
  int weight = (text.front() - '0') * kFullWeight;
  text.remove_prefix(1);
  if (text.empty()) {
    return weight;
  }
  if (text.front() != '.' || text.size() > kWeightDecimals + 1) {
    return -1;
  }
  int unit = kFullWeight / 10;
  for (char const c : text.substr(1)) {
    if (!IsDigit(c)) {
      return -1;
    }
    weight += (c - '0') * unit;
    unit /= 10;
  }
  return weight <= kFullWeight ? weight : -1;
}

/// Reads one element "de-AT;q=0.7" of accept-language; false when it is malformed.
bool ParseLanguageRange(boost::string_view element, LanguagePreference& language, int& weight) {
  boost::string_view const tag = Trim(TakeUntil(element, ';'));
  weight = kFullWeight;
  if (!element.empty()) {
    boost::string_view const name = Trim(TakeUntil(element, '='));
    weight = name == "q" || name == "Q" ? ParseWeight(Trim(element)) : -1;
  }
  if (weight < 0) {
    return false;
  }
  if (tag == "*") {
    language = LocaleSpecHelpers::GetFixedLocaleSpec()->language;
    return true;
  }
  std::error_code ec;
  language = LocaleHelpers::MakeLanguagePreference(tag, ec);
  return !ec;
}

/// All acceptable languages, best first, those of one weight in their order; empty with `ec` set for a bad
/// header.
std::vector<LanguagePreference> ParseAcceptLanguage(boost::string_view header, std::error_code& ec) {
  std::vector<std::pair<int, LanguagePreference>> weighted;
  while (!header.empty()) {
    boost::string_view const element = Trim(TakeUntil(header, ','));
    if (element.empty()) {
      continue;
    }
    LanguagePreference language;
    int weight = 0;
    if (!ParseLanguageRange(element, language, weight)) {
      ec = L10nErrc::IncorrectHeader;
      return {};
    }
    if (weight > 0) {
      weighted.emplace_back(weight, std::move(language));
    }
  }
  std::stable_sort(weighted.begin(), weighted.end(),
                   [](auto const& a, auto const& b) { return a.first > b.first; });
  std::vector<LanguagePreference> languages;
  languages.reserve(weighted.size());
  for (auto& [weight, language] : weighted) {
    languages.push_back(std::move(language));
  }
  return languages;
}

bool IsTimezoneName(boost::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return IsAlpha(c) || IsDigit(c) || c == '_' || c == '-' || c == '+' || c == '/';
  });
}

// Made once: each call looks for them.
std::string const kAcceptLanguage = "accept-language";
std::string const kFormatLocale = "lumo-ctx-format-locale";
std::string const kTimezone = "lumo-ctx-timezone";

std::string const* Entry(Core::ExecutionContext const& context, std::string const& name) {
  auto const& data = context.applicationData();
  auto const found = data.find(name);
  return found == data.end() ? nullptr : &found->second;
}

}  // namespace

namespace LocaleHelpers {

LanguagePreference MakeLanguagePreference(boost::string_view tag, std::error_code& ec) {
  if (tag == "C" || tag == "POSIX") {
    return LanguagePreference("C");
  }
  std::string normalised;
  do {
    std::size_t const end = tag.find_first_of("-_");
    boost::string_view const subtag = tag.substr(0, end);
    bool const last = end == boost::string_view::npos;
    bool const valid =
        !subtag.empty() && subtag.size() <= kMaxSubtagLength && (last || end + 1 < tag.size()) &&
        std::all_of(subtag.begin(), subtag.end(),
                    [&normalised](char c) { return IsAlpha(c) || (!normalised.empty() && IsDigit(c)); });
    if (!valid) {
      ec = L10nErrc::IncorrectHeader;
      return {};
    }
    AppendSubtag(normalised, subtag);
    tag.remove_prefix(last ? tag.size() : end + 1);
  } while (!tag.empty());
  return LanguagePreference(std::move(normalised));
}

bool IsDefaultLanguage(LanguagePreference const& language) {
  std::string const& tag = language.ToString();
  return tag == "en" || tag.starts_with("en_") || tag == "C";
}

std::vector<std::string> CatalogueNames(LanguagePreference const& language) {
  // Chinese is catalogued by region: a bare tag or a script stands for its main region, and no region for the
  // other.
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 7> kChinese = {
      {{"zh", "zh_CN"},
       {"zh_CN", ""},
       {"zh_Hans", "zh_CN"},
       {"zh_SG", "zh_CN"},
       {"zh_TW", ""},
       {"zh_Hant", "zh_TW"},
       {"zh_HK", "zh_TW"}}};
  std::vector<std::string> names;
  std::string tag = language.ToString();
  while (!tag.empty()) {
    auto const* const mapped =
        std::find_if(kChinese.begin(), kChinese.end(), [&tag](auto const& row) { return row.first == tag; });
    names.push_back(tag);
    if (mapped != kChinese.end()) {
      if (!mapped->second.empty()) {
        names.emplace_back(mapped->second);
      }
      break;
    }
    std::size_t const cut = tag.rfind('_');
    tag.resize(cut == std::string::npos ? 0 : cut);
  }
  return names;
}

}  // namespace LocaleHelpers

namespace LocaleSpecHelpers {

std::shared_ptr<LocaleSpec const> GetFixedLocaleSpec() {
  static std::shared_ptr<LocaleSpec const> const fixed = [] {
    auto spec = std::make_shared<LocaleSpec>();
    spec->language = LanguagePreference("en_US");
    spec->formatLocale = LanguagePreference("C");
    spec->timezone = TimezoneSpec("Etc/UTC");
    spec->languages = {spec->language};
    return spec;
  }();
  return fixed;
}

std::shared_ptr<LocaleSpec const> ExtractLocaleSpec(std::shared_ptr<Core::ExecutionContext> const& context,
                                                    std::error_code& ec) {
  std::string const* const language = context ? Entry(*context, kAcceptLanguage) : nullptr;
  std::string const* const format = context ? Entry(*context, kFormatLocale) : nullptr;
  std::string const* const timezone = context ? Entry(*context, kTimezone) : nullptr;
  if (!language && !format && !timezone) {
    return GetFixedLocaleSpec();
  }

  auto spec = std::make_shared<LocaleSpec>(*GetFixedLocaleSpec());
  if (language) {
    std::vector<LanguagePreference> languages = ParseAcceptLanguage(*language, spec->languageError);
    if (!languages.empty()) {
      spec->languages = std::move(languages);
      spec->language = spec->languages.front();
    }
  }
  if (format) {
    LanguagePreference const preference = LocaleHelpers::MakeLanguagePreference(*format, spec->formatError);
    if (!spec->formatError) {
      spec->formatLocale = preference;
    }
  }
  bool const badTimezone = timezone && !IsTimezoneName(*timezone);
  if (timezone && !badTimezone) {
    spec->timezone = TimezoneSpec(*timezone);
  }
  if (spec->languageError || spec->formatError || badTimezone) {
    ec = L10nErrc::IncorrectHeader;
  }
  return spec;
}

}  // namespace LocaleSpecHelpers
}  // namespace Lumo::L10n
