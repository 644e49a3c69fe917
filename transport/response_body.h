// The body of an answer in its wire form: chunks, and frames inside of them.
#pragma once

#include <boost/utility/string_view.hpp>
#include <cstddef>

#include "transport/response_head.h"
#include "transport/text.h"

namespace Lumo::Transport::Http::HttpDetail {

/// Most bytes of payload of one chunk.
inline constexpr std::size_t kMaxChunk = 65536;

/// Ends a chunked body.
inline constexpr boost::string_view kLastChunk = "0\r\n\r\n";

/// Appends `payload`, a sequence of views, as chunks of at most kMaxChunk bytes: size in hexadecimal, line
/// end, bytes, line end. `scratch` holds the last chunk's size and must live as long as the pieces. No bytes,
/// no chunk.
void AppendChunks(Pieces const& payload, char (&scratch)[kSizeScratch], Pieces& pieces);

/// Room for the small pieces of one answer: its head and its sizes.
inline constexpr std::size_t kCompactScratch = 1024;

/// Copies small pieces that stand beside each other together, as far as `scratch` has room: a system call
/// takes a few pieces much faster than many. `scratch` must live as long as the pieces.
void CompactPieces(Pieces& pieces, char (&scratch)[kCompactScratch]);

/// Puts single results of a stream in frames: size in hexadecimal, line end, bytes, line end.
class FrameBodyWriter {
 public:
  /// One frame as a sequence of views.
  class Writer {
   public:
    /// `body` must outlive the use of the pieces; they are valid until the next call.
    Pieces const& Frame(boost::string_view body);

   private:
    Pieces pieces_;
    char scratch_[kSizeScratch];
  };
};

}  // namespace Lumo::Transport::Http::HttpDetail
