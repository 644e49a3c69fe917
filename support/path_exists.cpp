#include "support/path_exists.h"

#include <boost/filesystem.hpp>

namespace LifeCycle {

bool PathExists(std::string const& path) {
  boost::system::error_code error;
  return boost::filesystem::status(path, error).type() > boost::filesystem::file_not_found;
}

}  // namespace LifeCycle
