// JSON text to a value tree, in one pass and one arena.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "runtime/data/value.h"

namespace Lumo::Protocol::Json {

/// Deepest value of a document; its top has depth 1. Annotations' wrappers don't count.
inline constexpr unsigned kMostValueDepth = 128;
/// Most brackets that may stand open at one place.
inline constexpr unsigned kMostBrackets = 512;

enum class ReadForm {
  Full,
  Direct,
  /// An object whose members are in the full form, while its own are plain. A malformed annotation doesn't
  /// end the reading; it is reported when it is the first one below the member "params".
  Envelope,
};

/// What is wrong with a document and where.
struct ReadProblem {
  enum class Cause { None, Document, Annotation };

  Cause cause = Cause::None;
  std::size_t offset = 0;  // bytes from the document's start
  std::string reason;

  explicit operator bool() const noexcept { return cause != Cause::None; }
};

/// Reads one whole document. Null with `problem` set when it isn't one; in the form Envelope `problem` may be
/// set beside a value, with the cause Annotation.
Data::DataValuePtr ReadDocument(std::string_view text, ReadForm form, ReadProblem& problem);

}  // namespace Lumo::Protocol::Json
