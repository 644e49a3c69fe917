#pragma once

#include <string>

namespace LifeCycle {

/// True when something is at `path`, of whatever type; a link counts as what it leads to. A path whose status
/// can't be had counts as missing.
bool PathExists(std::string const& path);

}  // namespace LifeCycle
