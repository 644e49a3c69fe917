// The texts of message ids, from the catalogue files of the daemon and of plugins.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

namespace Lumo::L10n {
class LocalizationBundle;
}

namespace LifeCycle {

/// Catalogues are files "*.omsg" below the directories, in INI form without sections; a file's locale is the
/// name of the directory that holds it. They are loaded at the first miss and again at every further one. Any
/// thread: the bundle in use is never changed, a new one takes its place.
class Translator {
 public:
  explicit Translator(std::vector<std::string> directories);
  ~Translator();
  Translator(Translator const&) = delete;
  Translator& operator=(Translator const&) = delete;

  /// The process-wide one, over the installed catalogues; lives until the process ends.
  static Translator& Instance();

  /// The template of `id`, without the quotes that a catalogue may put around it. Sets `error`, of the
  /// localisation category, and gives an empty text when the language is none of the supported or the id is
  /// unknown.
  std::string GetMessage(std::string const& id, std::string const& language, std::error_code& error);

  /// Whether a loaded catalogue is in that language, which is one of the supported; they are loaded if they
  /// never were. For whoever goes through a caller's languages: a message that is asked for in a language
  /// without catalogue costs a load.
  bool HasLanguage(std::string const& language);

 private:
  using BundlePtr = std::shared_ptr<Lumo::L10n::LocalizationBundle const>;

  BundlePtr Bundle() const;
  void Load();

  std::vector<std::string> const directories_;
  std::mutex loading_;          // one load at a time
  mutable std::mutex current_;  // guards bundle_, never held for long
  BundlePtr bundle_;
  std::atomic<bool> loaded_{false};  // once at least
};

/// "en", "es", "de", "zh_CN", "zh_TW", "ko", "ja", "fr".
std::vector<std::string> const& SupportedLanguages();

/// The look-ups of the process-wide translator.
std::string GetMessage(std::string const& id, std::string const& language, std::error_code& error);
/// The text in "en", or "Unknown message.".
std::string GetDefaultMessage(std::string const& id);
std::string GetDefaultMessageEx(std::string const& id, std::error_code& error);
bool HasLanguage(std::string const& language);

}  // namespace LifeCycle
