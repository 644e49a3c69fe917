// The word "++…" that asks for resources of a started program.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Orbane {

struct ResourceRequest {
  std::string group;                        // empty: none
  std::optional<unsigned> memoryMegabytes;  // "mem=200"
  bool memoryOfGroup = false;               // "mem=groupMax": what the group allows
  bool stats = false;                       // the group's usage is to be kept
};

/// True when `word` is meant as resources.
inline bool IsResourceWord(std::string_view word) {
  return word.substr(0, 2) == "++";
}

/// Reads "++group=NAME,mem=groupMax|MEGABYTES,stats", the parts in any order, each once at most. False for
/// anything else, so that a limit can't be lost by a slip of the pen.
bool ParseResourceWord(std::string_view word, ResourceRequest& request);

/// True for a name that may become a folder below the daemon's control group: letters, digits, "-", "_" and,
/// not at the front, ".".
bool IsGroupName(std::string_view name);

}  // namespace Orbane
