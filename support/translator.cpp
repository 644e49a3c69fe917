#include "support/translator.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include "platform/logging/logging.h"
#include "runtime/errors/categories.h"
#include "runtime/l10n/localization_bundle.h"

namespace LifeCycle {
namespace {

namespace fs = boost::filesystem;

using Lumo::L10n::L10nErrc;
using Lumo::L10n::LocalizationBundle;

char const* const kDefaultLanguage = "en";
char const* const kUnknownMessage = "Unknown message.";
char const* const kCatalogueExtension = ".omsg";

struct CatalogueFile {
  std::string locale;
  std::string path;
};

/// The catalogues below `directory`; those before the failure when the walk fails.
std::vector<CatalogueFile> _ExtractOmsgFiles(std::string const& directory) {
  std::vector<CatalogueFile> files;
  boost::system::error_code error;
  fs::recursive_directory_iterator entry(directory, error);
  fs::recursive_directory_iterator const end;
  while (!error && entry != end) {
    fs::path const& path = entry->path();
    boost::system::error_code ignored;
    if (fs::is_regular_file(path, ignored) && path.extension() == kCatalogueExtension) {
      files.push_back({path.parent_path().filename().string(), path.string()});
    }
    entry.increment(error);
  }
  if (error) {
    CSLogger::Log(0, "ExtractOmsgFiles: failed to iterate over \"%s\" : \"%s\"", directory.c_str(),
                  error.message().c_str());
  }
  return files;
}

void _AddCatalogue(CatalogueFile const& file, LocalizationBundle& bundle) {
  errno = 0;
  std::ifstream in(file.path, std::ios::binary);
  if (!in) {
    CSLogger::Log(0, "Opening file \"%s\" failed : \"%s\"", file.path.c_str(), std::strerror(errno));
    return;
  }
  std::error_code error;
  auto entries = LocalizationBundle::LoadIniFile(in, error);
  if (error) {
    CSLogger::Log(0, "LoadIniFile(\"%s\") failed = \"%s\", returning...", file.path.c_str(),
                  error.message().c_str());
    return;
  }
  bundle.AddLocale(file.locale, std::move(entries));
  CSLogger::Log(2, "Translator: Adding \"%s\" language file \"%s\"", file.locale.c_str(), file.path.c_str());
}

bool _IsSupported(std::string const& language) {
  auto const& languages = SupportedLanguages();
  return std::find(languages.begin(), languages.end(), language) != languages.end();
}

/// Whether loading the catalogues might help.
bool _MayBeUnloaded(std::error_code const& error) {
  return error == make_error_code(L10nErrc::LocaleNotSupported) ||
         error == make_error_code(L10nErrc::UnknownMessageId);
}

}  // namespace

std::vector<std::string> const& SupportedLanguages() {
  static std::vector<std::string> const languages{"en", "es", "de", "zh_CN", "zh_TW", "ko", "ja", "fr"};
  return languages;
}

Translator::Translator(std::vector<std::string> directories)
    : directories_(std::move(directories)), bundle_(std::make_shared<LocalizationBundle const>()) {}

Translator::~Translator() = default;

Translator& Translator::Instance() {
  static auto* const translator = new Translator(
      {"/usr/lib/orbane/configmanager/locale/en", "/usr/lib/orbane/configmanager/apply_modules"});
  return *translator;
}

std::string Translator::GetMessage(std::string const& id, std::string const& language,
                                   std::error_code& error) {
  if (!_IsSupported(language)) {
    error = make_error_code(L10nErrc::LocaleNotSupported);
    return {};
  }
  error.clear();
  std::string text = (*Bundle())(id, language, error);
  if (_MayBeUnloaded(error)) {
    Load();
    error.clear();
    text = (*Bundle())(id, language, error);
  }
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    return text.substr(1, text.size() - 2);
  }
  return text;
}

bool Translator::HasLanguage(std::string const& language) {
  if (!_IsSupported(language)) {
    return false;
  }
  if (!loaded_) {
    Load();
  }
  return Bundle()->HasLocale(language);
}

Translator::BundlePtr Translator::Bundle() const {
  std::lock_guard const lock(current_);
  return bundle_;
}

void Translator::Load() {
  std::lock_guard const oneLoad(loading_);
  auto const next = std::make_shared<LocalizationBundle>(*Bundle());
  for (std::string const& directory : directories_) {
    boost::system::error_code error;
    if (fs::status(directory, error).type() != fs::directory_file) {
      CSLogger::Log(2, "Cannot open dir \"%s\", error message: \"%s\"", directory.c_str(),
                    error.message().c_str());
      continue;
    }
    std::vector<CatalogueFile> const files = _ExtractOmsgFiles(directory);
    CSLogger::Log(2, "The translator found %lu .omsg files in directory \"%s\"",
                  static_cast<unsigned long>(files.size()), directory.c_str());
    for (CatalogueFile const& file : files) {
      _AddCatalogue(file, *next);
    }
  }
  std::lock_guard const lock(current_);
  bundle_ = next;
  loaded_ = true;
}

std::string GetMessage(std::string const& id, std::string const& language, std::error_code& error) {
  return Translator::Instance().GetMessage(id, language, error);
}

bool HasLanguage(std::string const& language) {
  return Translator::Instance().HasLanguage(language);
}

std::string GetDefaultMessageEx(std::string const& id, std::error_code& error) {
  std::string text = GetMessage(id, kDefaultLanguage, error);
  return error ? kUnknownMessage : text;
}

std::string GetDefaultMessage(std::string const& id) {
  std::error_code error;
  return GetDefaultMessageEx(id, error);
}

}  // namespace LifeCycle
