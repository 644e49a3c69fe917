// The direct form: it takes what another reader takes, but for the limits of its own, and comes back as it
// was.
#include <cstddef>
#include <cstdint>

#include "tests/fuzz/json_fuzz.h"

namespace {

// Refusals that are ours alone.
bool IsOwnRefusal(std::string const& error) {
  for (char const* reason :
       {"comes twice", "64 bits", "fit a double", "nested deeper", "byte order mark", "surrogate"}) {
    if (error.find(reason) != std::string::npos)
      return true;
  }
  return false;
}

bool HasExponent(std::string_view text) {
  return text.find_first_of("eE") != std::string_view::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace Lumo;
  using namespace Lumo::Protocol::Json;
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  std::shared_ptr<Data::ErrorValue const> error;
  auto const value = JsonDirectDataDeserializer::Deserialize(text, error);
  bool const isJson = Fuzz::IsJson(text);  // of a text with a number that is too large, only up to there
  if (!value) {
    Fuzz::RequireError(error);
    Fuzz::Require(!isJson || IsOwnRefusal(error->ToString()) || HasExponent(text));
    return 0;
  }
  Fuzz::Require(!error && isJson);
  std::string const direct = Fuzz::Write<JsonDirectDataSerializer<0>>(value);
  auto const again = JsonDirectDataDeserializer::Deserialize(direct, error);
  Fuzz::Require(again && Data::DataValue::Equals(*again, *value));
  return 0;
}
