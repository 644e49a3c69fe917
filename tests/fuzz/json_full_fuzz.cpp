// The full form: what is read is written and read again as the same value.
#include <cstddef>
#include <cstdint>

#include "tests/fuzz/json_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace Lumo;
  using namespace Lumo::Protocol::Json;
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  std::shared_ptr<Data::ErrorValue const> error;
  auto const value = JsonDataDeserializer::Deserialize(text, error);
  if (!value) {
    Fuzz::RequireError(error);
    return 0;
  }
  Fuzz::Require(!error && Fuzz::IsJson(text));
  std::string const full = Fuzz::Write<JsonDataSerializer<0>>(value);
  auto const again = JsonDataDeserializer::Deserialize(full, error);
  // The written form of an entry-less structure or map is as deep as what was read, so it always comes back.
  Fuzz::Require(again && Data::DataValue::Equals(*again, *value));
  Fuzz::Require(!value->ToString().empty());
  return 0;
}
