// How a request's dialect and id travel from the request reader to the response writer: as one text.
#pragma once

#include <string>
#include <string_view>

namespace Lumo::Protocol::Json {

enum class Dialect : char { JsonRpc11 = '1', JsonRpc20 = '2' };

struct RequestId {
  Dialect dialect = Dialect::JsonRpc20;
  std::string_view json = "null";  // the id as JSON text
};

/// The dialect's digit followed by the id's JSON text: `2"a"`, `217` for the id 17, `1null`.
std::string EncodeRequestId(RequestId const& id);

/// The parts of an encoded id, as views into it. A text that no encoder made is the id null of a 2.0 request.
RequestId DecodeRequestId(std::string_view encoded);

}  // namespace Lumo::Protocol::Json
