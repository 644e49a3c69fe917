#pragma once

#include <list>
#include <string>

namespace LifeCycle {

/// Removes each path, in order, and ignores every failure. An empty directory is removed too. Any thread.
void RemoveFiles(std::list<std::string> const& paths);

}  // namespace LifeCycle
