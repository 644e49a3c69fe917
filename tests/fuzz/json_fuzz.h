// What the JSON fuzzers share.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/data/value.h"
#include "runtime/json/serializers.h"

namespace Lumo::Fuzz {

inline void Require(bool condition) {
  if (!condition)
    std::abort();
}

/// An error says where and prints.
inline void RequireError(std::shared_ptr<Data::ErrorValue const> const& error) {
  Require(error != nullptr);
  Require(!error->ToString().empty());
}

/// What another JSON reader, which validates the encoding too, thinks of the grammar of the text.
bool IsJson(std::string_view text);

template <typename Serializer>
std::string Write(Data::DataValuePtr const& value) {
  std::string text;
  std::shared_ptr<Data::ErrorValue const> error;
  Serializer::SerializeValue(value, text, error);
  Require(!error);
  return text;
}

}  // namespace Lumo::Fuzz
