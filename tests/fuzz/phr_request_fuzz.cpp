// Request heads: whatever the bytes, the parser stays inside of them, and a head that is complete in one
// piece comes to the same in two.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "transport/phr_request.h"

namespace {

using Lumo::Transport::PicoHttp::kMaxHeaders;
using Lumo::Transport::PicoHttp::PhrParse;
using Lumo::Transport::PicoHttp::PhrRequest;
using Lumo::Transport::PicoHttp::TolowerAndSortHeaders;

int Parse(std::vector<char> const& bytes, PhrRequest& request, std::size_t lastLength) {
  request = PhrRequest();
  request.headers.count = kMaxHeaders;
  return PhrParse(boost::asio::buffer(bytes), request, lastLength);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<char> bytes(data, data + size);
  PhrRequest request;
  int const whole = Parse(bytes, request, 0);
  if (whole > static_cast<int>(size)) {
    std::abort();
  }
  if (whole >= 0) {
    PhrRequest again;
    if (Parse(bytes, again, size / 2) != whole || again.headers.count != request.headers.count) {
      std::abort();
    }
    TolowerAndSortHeaders(request.headers);
  }
  return 0;
}
