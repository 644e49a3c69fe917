#include "support/json_helpers.h"

#include <memory>
#include <string_view>

#include "platform/logging/logging.h"
#include "runtime/json/serializers.h"
#include "support/gzip.h"

namespace LifeCycle {

using Lumo::Data::DataValuePtr;
using Lumo::Data::ErrorValue;

std::string SerializeToJson(DataValuePtr const& value) {
  std::string text;
  std::shared_ptr<ErrorValue const> error;
  Lumo::Protocol::Json::JsonDirectDataSerializer<0>::SerializeValue(value, text, error);
  if (error) {
    throw LumoJsonSerializationError();
  }
  return text;
}

bool SerializeCompressed(DataValuePtr const& value, std::string& out) {
  std::string text;
  std::shared_ptr<ErrorValue const> error;
  Lumo::Protocol::Json::JsonDataSerializer<0>::SerializeValue(value, text, error);
  if (error) {
    return false;
  }
  out = GzipCompress(text);
  return true;
}

DataValuePtr ParseJsonValue(std::string const& text, bool full) {
  std::string inflated;
  std::string_view document = text;
  if (IsGzip(text)) {
    try {
      inflated = GzipDecompress(text);
    } catch (GzipError const& e) {
      CSLogger::Log(0, "Decompression failed: %s", e.what());
      throw LumoJsonSerializationError();
    }
    document = inflated;
  }
  std::shared_ptr<ErrorValue const> error;
  DataValuePtr const value =
      full ? Lumo::Protocol::Json::JsonDataDeserializer::Deserialize(document, error)
           : Lumo::Protocol::Json::JsonDirectDataDeserializer::Deserialize(document, error);
  if (error) {
    CSLogger::Log(0, "Deserialize from JSON failed: %s", error->ToString().c_str());
    throw LumoJsonSerializationError();
  }
  bool const isNull = value && value->GetKind() == Lumo::Data::Kind::Void;
  return isNull ? nullptr : value;
}

}  // namespace LifeCycle
