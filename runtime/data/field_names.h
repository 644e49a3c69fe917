#pragma once

#include <string_view>

namespace Lumo::Data {

/// A copy of `name` that lives as long as the process, so that structures of the same type share their field
/// names. Null when the name is too long or the table is full: the table never grows. Any thread, without
/// locks.
char const* InternFieldName(std::string_view name);

}  // namespace Lumo::Data
