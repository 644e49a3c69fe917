// Texts of errors.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace Lumo::Protocol::Json {

inline std::string Concat(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (std::string_view const part : parts)
    text.append(part);
  return text;
}

/// A name out of a document in single quotes, cut when it is longer than any sensible one.
inline std::string Quoted(std::string_view name) {
  constexpr std::size_t kLongest = 64;
  return name.size() <= kLongest ? Concat({"'", name, "'"}) : Concat({"'", name.substr(0, kLongest), "…'"});
}

}  // namespace Lumo::Protocol::Json
