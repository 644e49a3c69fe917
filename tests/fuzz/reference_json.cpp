// The other reader, RapidJSON. In a file of its own, since its stack does arithmetic on a null pointer, which
// the sanitiser for undefined behaviour doesn't let pass.
#include <rapidjson/reader.h>

#include "tests/fuzz/json_fuzz.h"

namespace Lumo::Fuzz {

bool IsJson(std::string_view text) {
  if (text.find('\0') != std::string_view::npos)
    return false;  // to RapidJSON it ends a document
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::BaseReaderHandler<> handler;
  rapidjson::Reader reader;
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                              rapidjson::kParseNumbersAsStringsFlag;
  reader.Parse<kFlags>(stream, handler);
  // It looks at the exponent alone and so refuses 0e999; whether a number is too large is no matter of
  // grammar.
  return !reader.HasParseError() || reader.GetParseErrorCode() == rapidjson::kParseErrorNumberTooBig;
}

}  // namespace Lumo::Fuzz
