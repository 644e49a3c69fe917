#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "runtime/data/arena.h"

namespace Lumo::Protocol::Json {

/// Index of the first member whose name stood before; members.size() when all differ. Takes n log n steps at
/// most, whatever the names are. `scratch` is working space that callers keep between calls.
std::size_t FindDuplicate(std::span<Data::Arena::NamedChild const> members,
                          std::vector<std::uint32_t>& scratch);

}  // namespace Lumo::Protocol::Json
