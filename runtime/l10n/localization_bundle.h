// Message catalogues by locale.
#pragma once

#include <boost/utility/string_view.hpp>
#include <functional>
#include <istream>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace Lumo {

/// Items one after the other, once.
template <typename T>
class ForwardRange {
 public:
  virtual bool Empty() const = 0;
  /// Valid until PopFront; only while not Empty.
  virtual T const& Front() const = 0;
  virtual void PopFront() = 0;
  virtual ~ForwardRange() = default;
};

namespace L10n {

/// Message templates by locale and id. Not locked: filled by one thread, then read by any.
class LocalizationBundle {
 public:
  using Entry = std::pair<std::string const, std::string>;
  using Entries = std::unique_ptr<ForwardRange<Entry>>;

  /// Reads one catalogue: UTF-8, one `id = text` a line, no sections; lines that begin with ";" or "#" are
  /// comments. Quotes around a text stay. Any other line, a repeated id or a failing stream sets `ec` to code
  /// 6 and gives null.
  static Entries LoadIniFile(std::istream& in, std::error_code& ec);

  /// Adds texts to a locale. An id that the locale already has keeps its text.
  void AddLocale(boost::string_view locale, Entries entries);

  /// Whether texts of that locale were added.
  bool HasLocale(boost::string_view locale) const;

  /// The template of an id. Sets `ec` to code 1 for a locale that the bundle does not have, to code 5 for an
  /// id that the locale does not have, and then gives an empty text.
  std::string operator()(std::string const& id, boost::string_view locale, std::error_code& ec) const;

 private:
  std::map<std::string, std::map<std::string, std::string>, std::less<>> locales_;
};

}  // namespace L10n
}  // namespace Lumo
