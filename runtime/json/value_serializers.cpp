#include <string>
#include <utility>

#include "runtime/json/document_reader.h"
#include "runtime/json/error_code.h"
#include "runtime/json/serializers.h"
#include "runtime/json/text_sink.h"
#include "runtime/json/value_writer.h"

namespace Lumo::Protocol::Json {
namespace {

using ErrorPtr = std::shared_ptr<Data::ErrorValue const>;

void Write(WriteForm form, unsigned long indent, Data::DataValuePtr const& value, ORange& out,
           ErrorPtr& error) {
  error = nullptr;
  std::size_t const before = out.size();
  char const* problem = nullptr;
  {
    TextSink sink(out);
    problem = ValueWriter(sink, form, indent).Write(value.get());
  }
  if (!problem)
    return;
  out.resize(before);
  error = MakeWriteError(problem);
}

Data::DataValuePtr Read(ReadForm form, std::string_view text, ErrorPtr& error) {
  ReadProblem problem;
  Data::DataValuePtr value = ReadDocument(text, form, problem);
  error = problem ? MakeReadError(problem) : nullptr;
  return value;
}

}  // namespace

namespace Detail {
void WriteFull(unsigned long indent, Data::DataValuePtr const& value, ORange& out, ErrorPtr& error) {
  Write(WriteForm::Full, indent, value, out, error);
}
void WriteDirect(unsigned long indent, Data::DataValuePtr const& value, ORange& out, ErrorPtr& error) {
  Write(WriteForm::Direct, indent, value, out, error);
}
}  // namespace Detail

Data::DataValuePtr JsonDataDeserializer::Deserialize(std::string_view text, ErrorPtr& error) {
  return Read(ReadForm::Full, text, error);
}

Data::DataValuePtr JsonDirectDataDeserializer::Deserialize(std::string_view text, ErrorPtr& error) {
  return Read(ReadForm::Direct, text, error);
}

}  // namespace Lumo::Protocol::Json
