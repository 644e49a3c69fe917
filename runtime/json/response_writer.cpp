#include <string>
#include <string_view>

#include "runtime/json/error_code.h"
#include "runtime/json/request_id.h"
#include "runtime/json/serializers.h"
#include "runtime/json/text_sink.h"
#include "runtime/json/value_writer.h"

namespace Lumo::Protocol::Json {
namespace {

using ErrorPtr = std::shared_ptr<Data::ErrorValue const>;

// One answer's object, member by member. Envelopes are written without blanks; the indentation is the
// values'.
class EnvelopeWriter {
 public:
  EnvelopeWriter(WriteForm form, unsigned long indent, ORange& out)
      : sink_(out), form_(form), indent_(indent) {}

  void Begin(RequestId const& id) {
    dialect_ = id.dialect;
    sink_.Raw(dialect_ == Dialect::JsonRpc11 ? R"({"version":"1.1","id":)" : R"({"jsonrpc":"2.0","id":)");
    sink_.Raw(id.json);
  }

  void Result(Data::DataValue const* output) {
    sink_.Raw(R"(,"result":)");
    Value(output);
  }

  void Error(long long code, std::string_view message, Data::ErrorValue const& error) {
    sink_.Raw(dialect_ == Dialect::JsonRpc11 ? R"(,"error":{"name":"JSONRPCError","code":)"
                                             : R"(,"error":{"code":)");
    sink_.Integer(code);
    sink_.Raw(R"(,"message":)");
    sink_.Text(message);
    sink_.Raw(R"(,"data":)");
    Value(&error);
    sink_.Put('}');
  }

  void Progress(Lumo::Progress const& progress) {
    sink_.Raw(R"(,"progress":{"min":)");
    sink_.Integer(progress.min);
    sink_.Raw(R"(,"max":)");
    sink_.Integer(progress.max);
    sink_.Raw(R"(,"current":)");
    sink_.Integer(progress.current);
    sink_.Put('}');
  }

  // The reason why a value couldn't be written, or null.
  char const* End() {
    sink_.Put('}');
    return problem_;
  }

 private:
  void Value(Data::DataValue const* value) {
    char const* const problem = ValueWriter(sink_, form_, indent_).Write(value);
    if (problem)
      problem_ = problem;
  }

  TextSink sink_;
  WriteForm const form_;
  unsigned long const indent_;
  Dialect dialect_ = Dialect::JsonRpc20;
  char const* problem_ = nullptr;
};

// Runs `write` on a writer. When it gives a problem, `out` is as before and `error` is set.
template <typename Write>
void WriteEnvelope(bool direct, unsigned long indent, ORange& out, ErrorPtr& error, Write const& write) {
  error = nullptr;
  std::size_t const before = out.size();
  char const* problem = nullptr;
  {
    EnvelopeWriter writer(direct ? WriteForm::Direct : WriteForm::Full, indent, out);
    write(writer);
    problem = writer.End();
  }
  if (!problem)
    return;
  out.resize(before);
  error = MakeWriteError(problem);
}

}  // namespace

namespace Detail {

void WriteInvoke(bool direct, unsigned long indent, std::string const& requestId,
                 Core::MethodResult const& result, ORange& out, ErrorPtr& error) {
  WriteEnvelope(direct, indent, out, error, [&](EnvelopeWriter& writer) {
    writer.Begin(DecodeRequestId(requestId));
    if (ErrorPtr const& failure = result.error()) {
      writer.Error(RpcCode(failure->name()), RpcMessage(*failure), *failure);
    } else {
      writer.Result(result.output().get());
    }
  });
}

void WriteProgress(bool direct, unsigned long indent, std::string const& requestId, Progress const& progress,
                   ORange& out, ErrorPtr& error) {
  WriteEnvelope(direct, indent, out, error, [&](EnvelopeWriter& writer) {
    writer.Begin(DecodeRequestId(requestId));
    writer.Progress(progress);
  });
}

void WriteError(bool direct, unsigned long indent, Data::ErrorValue const& value, ORange& out,
                ErrorPtr& error) {
  WriteEnvelope(direct, indent, out, error, [&](EnvelopeWriter& writer) {
    auto const* code = Data::As<Data::IntegerValue>(value.Find("code"));
    auto const* message = Data::As<Data::StringValue>(value.Find("message"));
    writer.Begin({});
    writer.Error(code ? code->value() : RpcCode(value.name()), message ? message->value() : RpcMessage(value),
                 value);
  });
}

}  // namespace Detail
}  // namespace Lumo::Protocol::Json
