// Value trees to JSON text.
#pragma once

#include <cstddef>
#include <string>

#include "runtime/data/value.h"
#include "runtime/json/text_sink.h"

namespace Lumo::Protocol::Json {

enum class WriteForm {
  Full,
  Direct,
  /// Direct, with the names in front of structures and errors, and secrets as "***".
  Log,
};

/// Writes values to a sink. The functions give the reason why a value can't be written, null when all is
/// well; then part of it may be written already. A null value is written as `null`.
class ValueWriter {
 public:
  /// With `indent` blanks a level on lines of their own; all on one line when it is zero. `limit` is the size
  /// of the sink's text at which the writing may stop.
  ValueWriter(TextSink& sink, WriteForm form, unsigned long indent = 0, std::size_t limit = ~std::size_t{0})
      : sink_(sink), form_(form), indent_(indent), limit_(limit) {}

  char const* Write(Data::DataValue const* value);

 private:
  TextSink& sink_;
  WriteForm form_;
  unsigned long indent_;
  std::size_t limit_;
};

}  // namespace Lumo::Protocol::Json
