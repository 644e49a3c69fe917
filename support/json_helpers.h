// Values to text and back, for files, the tools' output and the task records.
#pragma once

#include <exception>
#include <string>

#include "runtime/data/value.h"

namespace LifeCycle {

/// A text is not a value, or a value can't be written. What happened is in the log.
class LumoJsonSerializationError : public std::exception {};

/// The direct form, for everything that goes to a tool. Throws LumoJsonSerializationError.
std::string SerializeToJson(Lumo::Data::DataValuePtr const& value);

/// The full form as one gzip member, for task records. False, leaving `out` alone, on failure.
bool SerializeCompressed(Lumo::Data::DataValuePtr const& value, std::string& out);

/// Plain or gzip text, told apart by the first two bytes, of the full or the direct form. A document that is
/// just `null` gives a null pointer. Inflates to 64 MiB at most. Throws LumoJsonSerializationError.
Lumo::Data::DataValuePtr ParseJsonValue(std::string const& text, bool full);

}  // namespace LifeCycle
