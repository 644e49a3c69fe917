// In whose name the daemon speaks, and on what kind of host it runs.
#pragma once

#include <string>

namespace LifeCycle {

/// True on a data processing unit: "/etc/.rynio" exists, of whatever type. A status error counts as missing.
bool IsDpuFlavour();

/// "pak[" + name + "]".
std::string MakeOriginatorId(std::string const& name);

/// The daemon's own originator id, named by the base schema file that is installed. Found once, then kept;
/// throws std::runtime_error, and looks again next time, while there is none. Any thread.
std::string const& GetBaseOriginatorId();

/// What GetBaseOriginatorId does on each look: the first entry of `directory`, in its own order, that begins
/// with "rynio-base" or "ryn-base" or is no ".json" file.
std::string FindBaseOriginatorId(std::string const& directory, bool dpuFlavour);

}  // namespace LifeCycle
