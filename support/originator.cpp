#include "support/originator.h"

#include <boost/filesystem.hpp>
#include <stdexcept>

#include "platform/logging/logging.h"
#include "support/path_exists.h"

namespace LifeCycle {
namespace {

char const* const kFlavourMarker = "/etc/.rynio";
char const* const kSchemaDirectory = "/usr/lib/orbane/configmanager/schemas";
constexpr std::size_t kSchemaSuffixLength = sizeof "-schema" - 1;

}  // namespace

bool IsDpuFlavour() {
  return PathExists(kFlavourMarker);
}

std::string MakeOriginatorId(std::string const& name) {
  return "pak[" + name + "]";
}

std::string FindBaseOriginatorId(std::string const& directory, bool dpuFlavour) {
  std::string const baseName = dpuFlavour ? "rynio-base" : "ryn-base";
  boost::system::error_code error;
  boost::filesystem::directory_iterator entry(directory, error);
  boost::filesystem::directory_iterator const end;
  while (!error && entry != end) {
    boost::filesystem::path const name = entry->path().filename();
    if (name.string().compare(0, baseName.size(), baseName) == 0 || name.extension() != ".json") {
      std::string stem = name.stem().string();
      stem.resize(stem.size() > kSchemaSuffixLength ? stem.size() - kSchemaSuffixLength : 0);
      CSLogger::Log(2, "Using '%s' for ryn-base originator ID", stem.c_str());
      return MakeOriginatorId(stem);
    }
    entry.increment(error);
  }
  throw std::runtime_error("Unable to find ryn-base schema");
}

std::string const& GetBaseOriginatorId() {
  static std::string const id = FindBaseOriginatorId(kSchemaDirectory, IsDpuFlavour());
  return id;
}

}  // namespace LifeCycle
