// The JSON forms of values and the JSON-RPC envelopes, as the transport and the services use them.
#pragma once

#include <memory>
#include <streambuf>
#include <string>
#include <string_view>
#include <system_error>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"
#include "runtime/data/value.h"

namespace Lumo {

/// Growing output buffer of serialisers.
using ORange = std::string;

namespace Core {

/// Told of each well-formed request by a request deserialiser.
class ApiRequestVisitor {
 public:
  /// A returned error makes the deserialiser answer with an error of its own, under the request's id.
  virtual std::error_code Visit(std::string const& requestId,
                                std::shared_ptr<MethodIdentifier const> const& method,
                                Data::DataValuePtr const& input,
                                std::shared_ptr<ExecutionContext> const& context) = 0;
  virtual ~ApiRequestVisitor() = default;
};

/// Writes the answers to calls. Stateless; any thread.
class ApiResponseSerializer {
 public:
  /// Appends one response. `requestId` is the encoded id (request_id.h). Sets `error` if it cannot.
  virtual void SerializeInvoke(std::string const& requestId,
                               std::shared_ptr<MethodResult const> const& result, ORange& out,
                               std::shared_ptr<Data::ErrorValue const>& error, bool isStream) = 0;
  virtual void SerializeInvokeProgress(std::string const& requestId, Progress const& progress, ORange& out,
                                       std::shared_ptr<Data::ErrorValue const>& error) = 0;
  /// Appends a bare error: a 2.0 envelope with id null; "code" and "message" from the value's own fields
  /// where it has them, else from its identifier and first message; "data" the value.
  virtual void SerializeError(std::shared_ptr<Data::ErrorValue const> const& value, ORange& out,
                              std::shared_ptr<Data::ErrorValue const>& error) = 0;
  virtual ~ApiResponseSerializer() = default;
};

}  // namespace Core

namespace Protocol::Json {

/// Reads one JSON-RPC request of either dialect and calls the visitor.
class JsonApiRequestDeserializer {
 public:
  virtual ~JsonApiRequestDeserializer() = default;
  /// True: the request was well formed and the visitor has been called without an error. False: `error` says
  /// why. Anything thrown by the visitor passes through.
  virtual bool Deserialize(std::streambuf& body, Core::ApiRequestVisitor& visitor,
                           std::shared_ptr<Data::ErrorValue const>& error);
  /// The same over contiguous bytes, which is what the transport has.
  virtual bool Deserialize(std::string_view body, Core::ApiRequestVisitor& visitor,
                           std::shared_ptr<Data::ErrorValue const>& error);
};

namespace Detail {
using ErrorPtr = std::shared_ptr<Data::ErrorValue const>;

void WriteFull(unsigned long indent, Data::DataValuePtr const& value, ORange& out, ErrorPtr& error);
void WriteDirect(unsigned long indent, Data::DataValuePtr const& value, ORange& out, ErrorPtr& error);
void WriteInvoke(bool direct, unsigned long indent, std::string const& requestId,
                 Core::MethodResult const& result, ORange& out, ErrorPtr& error);
void WriteProgress(bool direct, unsigned long indent, std::string const& requestId, Progress const& progress,
                   ORange& out, ErrorPtr& error);
void WriteError(bool direct, unsigned long indent, Data::ErrorValue const& value, ORange& out,
                ErrorPtr& error);
}  // namespace Detail

/// Full form. The template parameter is the number of blanks of indentation. On failure `out` is as before.
template <unsigned long Indent>
class JsonDataSerializer {
 public:
  static void SerializeValue(Data::DataValuePtr const& value, ORange& out,
                             std::shared_ptr<Data::ErrorValue const>& error) {
    Detail::WriteFull(Indent, value, out, error);
  }
};

/// Direct form.
template <unsigned long Indent>
class JsonDirectDataSerializer {
 public:
  static void SerializeValue(Data::DataValuePtr const& value, ORange& out,
                             std::shared_ptr<Data::ErrorValue const>& error) {
    Detail::WriteDirect(Indent, value, out, error);
  }
};

/// Full form to value. A document that is just `null` gives a void value; `error` says what is wrong and
/// where.
class JsonDataDeserializer {
 public:
  static Data::DataValuePtr Deserialize(std::string_view text,
                                        std::shared_ptr<Data::ErrorValue const>& error);
};

/// Direct form to value: objects become structures with the empty name, arrays lists, `null` inside a
/// document void.
class JsonDirectDataDeserializer {
 public:
  static Data::DataValuePtr Deserialize(std::string_view text,
                                        std::shared_ptr<Data::ErrorValue const>& error);
};

/// What the two response serialisers share.
template <bool Direct, unsigned long Indent>
class BasicResponseSerializer : public Core::ApiResponseSerializer {
 public:
  void SerializeInvoke(std::string const& requestId, std::shared_ptr<Core::MethodResult const> const& result,
                       ORange& out, std::shared_ptr<Data::ErrorValue const>& error,
                       bool /*isStream*/) override {
    Detail::WriteInvoke(Direct, Indent, requestId, *result, out, error);
  }
  void SerializeInvokeProgress(std::string const& requestId, Progress const& progress, ORange& out,
                               std::shared_ptr<Data::ErrorValue const>& error) override {
    Detail::WriteProgress(Direct, Indent, requestId, progress, out, error);
  }
  void SerializeError(std::shared_ptr<Data::ErrorValue const> const& value, ORange& out,
                      std::shared_ptr<Data::ErrorValue const>& error) override {
    Detail::WriteError(Direct, Indent, *value, out, error);
  }
};

/// Answers in the full form.
template <unsigned long Indent>
class JsonApiResponseSerializer final : public BasicResponseSerializer<false, Indent> {};

/// Answers in the direct form.
template <unsigned long Indent>
class JsonApiDirectResponseSerializer final : public BasicResponseSerializer<true, Indent> {};

}  // namespace Protocol::Json
}  // namespace Lumo
