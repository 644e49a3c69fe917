// The parsed head of a request, and the parser.
#pragma once

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/utility/string_view.hpp>
#include <cstddef>

namespace Lumo::Transport::PicoHttp {

/// Views into the buffer that was parsed.
struct PhrHeader {
  boost::string_view name;
  boost::string_view value;
};

/// Most headers of one request.
inline constexpr std::size_t kMaxHeaders = 64;

struct PhrHeaders {
  std::array<PhrHeader, kMaxHeaders> entries;
  /// Into PhrParse: the capacity, at most kMaxHeaders. Out of a complete parse: the number parsed.
  std::size_t count;

  PhrHeader* begin() { return entries.data(); }
  PhrHeader* end() { return entries.data() + count; }
  PhrHeader const* begin() const { return entries.data(); }
  PhrHeader const* end() const { return entries.data() + count; }
};

/// Valid as long as the parsed buffer. An empty method is passed on: whether to take it is the caller's
/// decision.
struct PhrRequest {
  boost::string_view method;
  boost::string_view path;
  int minorVersion;
  PhrHeaders headers;
};

inline constexpr int kPhrMalformed = -1;
inline constexpr int kPhrIncomplete = -2;

/// Parses a request head: request line, header lines, empty line; a bare line feed ends a line, one empty
/// line in front is skipped. `lastLength` is the number of bytes that an earlier call has looked at already:
/// while the end of the head is missing, only the bytes behind are scanned. Returns the head's length in
/// bytes, kPhrMalformed, or kPhrIncomplete when more bytes are needed. `request` is meaningful only with a
/// length. Refused: anything but HTTP/1.x, folded header lines, blanks before the colon, control bytes, a
/// carriage return without line feed, more headers than `headers.count`.
int PhrParse(boost::asio::const_buffer head, PhrRequest& request, unsigned long lastLength);

/// Lower-cases all header names in place and sorts by name; headers of one name keep their order.
void TolowerAndSortHeaders(PhrHeaders& headers);

}  // namespace Lumo::Transport::PicoHttp
