// Chunked bodies: the decoder stays inside its buffer, and pieces come to the same as the whole.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

#include "transport/phr_chunked_decoder.h"

namespace {

using Lumo::Transport::PicoHttp::PhrChunkedDecoder;

/// What one result of the decoder tells, with the bytes that it left.
std::pair<long, std::string> DecodeAll(std::string const& wire, std::size_t step) {
  PhrChunkedDecoder decoder;
  std::string body;
  long result = -2;
  for (std::size_t at = 0; at < wire.size() && result == -2; at += step) {
    std::string piece = wire.substr(at, step);
    auto const [code, count] = decoder.Decode(boost::asio::buffer(piece));
    if (count > piece.size() || (code > 0 && count + static_cast<std::size_t>(code) > piece.size())) {
      std::abort();
    }
    body.append(piece, 0, count);
    result = code;
  }
  return {result < 0 ? result : 0, body};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const wire(reinterpret_cast<char const*>(data), size);
  if (DecodeAll(wire, wire.size() + 1) != DecodeAll(wire, 1)) {
    std::abort();
  }
  return 0;
}
