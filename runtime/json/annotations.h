// The members with an "@" by which the full form says what kind of value an object stands for.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "runtime/data/arena.h"

namespace Lumo::Protocol::Json {

namespace Annotation {
inline constexpr std::string_view kBinary = "@binary";
inline constexpr std::string_view kSecret = "@secret";
inline constexpr std::string_view kOptional = "@optional";
inline constexpr std::string_view kSet = "@set";
inline constexpr std::string_view kEnumSet = "@enumset";
inline constexpr std::string_view kMap = "@map";
inline constexpr std::string_view kStruct = "@struct";
inline constexpr std::string_view kError = "@error";
/// In front of the name of a field that itself begins with "@".
inline constexpr char kEscape = '@';
}  // namespace Annotation

/// Name and fields of the structures in the list form of a map.
inline constexpr std::string_view kMapEntryName = "map-entry";
inline constexpr std::string_view kMapKey = "key";
inline constexpr std::string_view kMapValue = "value";

/// True for a member whose value is a value of its own, and one level deeper than the object. False for the
/// rest of the annotations: what they hold is part of the object's own value.
bool HoldsNestedValue(std::string_view memberName);

/// The value that an object stands for, given its members in the full form; their names may be changed. Null,
/// with `problem` set, for annotations that are unknown, malformed or don't go together. The members belong
/// to `arena`.
Data::DataValue const* ResolveAnnotations(Data::Arena& arena, std::span<Data::Arena::NamedChild> members,
                                          std::string& problem);

}  // namespace Lumo::Protocol::Json
