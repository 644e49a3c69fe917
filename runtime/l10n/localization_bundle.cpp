#include "runtime/l10n/localization_bundle.h"

#include <string_view>

#include "platform/text/text.h"
#include "runtime/errors/categories.h"

namespace Lumo::L10n {
namespace {

using Texts = std::map<std::string, std::string>;

class TextRange final : public ForwardRange<LocalizationBundle::Entry> {
 public:
  explicit TextRange(Texts texts) : texts_(std::move(texts)), at_(texts_.begin()) {}
  bool Empty() const override { return at_ == texts_.end(); }
  LocalizationBundle::Entry const& Front() const override { return *at_; }
  void PopFront() override { ++at_; }

 private:
  Texts texts_;
  Texts::const_iterator at_;
};

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  std::size_t const begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// False for a line that is neither empty, a comment nor a new entry.
bool ReadLine(std::string_view line, Texts& texts) {
  line = Trim(line);
  if (line.empty() || line.front() == ';' || line.front() == '#') {
    return true;
  }
  std::size_t const equals = line.find('=');
  if (equals == std::string_view::npos || line.front() == '[') {
    return false;
  }
  std::string_view const id = Trim(line.substr(0, equals));
  return !id.empty() && texts.emplace(id, Trim(line.substr(equals + 1))).second;
}

}  // namespace

LocalizationBundle::Entries LocalizationBundle::LoadIniFile(std::istream& in, std::error_code& ec) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  Texts texts;
  std::string line;
  bool good = in.good();
  for (bool first = true; good && std::getline(in, line); first = false) {
    std::string_view text = line;
    if (first && text.starts_with(kByteOrderMark)) {
      text.remove_prefix(kByteOrderMark.size());
    }
    good = CodeSet_Validate(text.data(), text.size(), "UTF-8") && ReadLine(text, texts);
  }
  if (!good || in.bad()) {
    ec = L10nErrc::BundleLoadFailed;
    return nullptr;
  }
  return std::make_unique<TextRange>(std::move(texts));
}

void LocalizationBundle::AddLocale(boost::string_view locale, Entries entries) {
  auto& texts = locales_[std::string(locale.begin(), locale.end())];
  for (; entries && !entries->Empty(); entries->PopFront()) {
    texts.insert(entries->Front());
  }
}

bool LocalizationBundle::HasLocale(boost::string_view locale) const {
  return locales_.find(std::string_view(locale.data(), locale.size())) != locales_.end();
}

std::string LocalizationBundle::operator()(std::string const& id, boost::string_view locale,
                                           std::error_code& ec) const {
  auto const texts = locales_.find(std::string_view(locale.data(), locale.size()));
  if (texts == locales_.end()) {
    ec = L10nErrc::LocaleNotSupported;
    return {};
  }
  auto const text = texts->second.find(id);
  if (text == texts->second.end()) {
    ec = L10nErrc::UnknownMessageId;
    return {};
  }
  return text->second;
}

}  // namespace Lumo::L10n
