#include "tasks/remove_files.h"

#include <cstdio>

namespace LifeCycle {

void RemoveFiles(std::list<std::string> const& paths) {
  for (std::string const& path : paths) {
    static_cast<void>(std::remove(path.c_str()));
  }
}

}  // namespace LifeCycle
