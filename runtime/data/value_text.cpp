#include <string>

#include "runtime/data/value.h"
#include "runtime/json/text_sink.h"
#include "runtime/json/value_writer.h"

namespace Lumo::Data {

std::string DataValue::ToString() const {
  constexpr std::size_t kLimit = 16384;  // a log line that is longer helps nobody
  std::string text;
  {
    Protocol::Json::TextSink sink(text);
    Protocol::Json::ValueWriter(sink, Protocol::Json::WriteForm::Log, 0, kLimit).Write(this);
  }
  if (text.size() > kLimit) {
    std::size_t end = kLimit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
      --end;
    text.resize(end);
  }
  return text;
}

}  // namespace Lumo::Data
