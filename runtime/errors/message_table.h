#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Lumo::Detail {

/// The text of `code`, counted from 1, or `other` for a code outside the table.
template <std::size_t Count>
std::string MessageFromTable(std::string_view const (&table)[Count], std::string_view other, int code) {
  auto const index = static_cast<std::size_t>(code) - 1;
  return std::string(code >= 1 && index < Count ? table[index] : other);
}

inline std::string MessageFromTable(std::string_view only, std::string_view other, int code) {
  return std::string(code == 1 ? only : other);
}

}  // namespace Lumo::Detail
