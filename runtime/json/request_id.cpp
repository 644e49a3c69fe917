#include "runtime/json/request_id.h"

namespace Lumo::Protocol::Json {

std::string EncodeRequestId(RequestId const& id) {
  std::string encoded;
  encoded.reserve(1 + id.json.size());
  encoded += static_cast<char>(id.dialect);
  encoded += id.json;
  return encoded;
}

RequestId DecodeRequestId(std::string_view encoded) {
  if (encoded.size() < 2)
    return {};
  auto const dialect = static_cast<Dialect>(encoded.front());
  if (dialect != Dialect::JsonRpc11 && dialect != Dialect::JsonRpc20)
    return {};
  return {dialect, encoded.substr(1)};
}

}  // namespace Lumo::Protocol::Json
