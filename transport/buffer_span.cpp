#include "transport/buffer_span.h"

#include <algorithm>

namespace Lumo::Asio {

WriteCursor::WriteCursor(PieceList& pieces, std::size_t first, std::size_t last)
    : pieces_(&pieces), next_(first), last_(last) {}

BufferSpan WriteCursor::Step() {
  std::size_t end = next_;
  std::size_t bytes = 0;
  while (end != last_ && end - next_ != kMaxPieces && bytes != kMaxWrite) {
    boost::asio::const_buffer& piece = (*pieces_)[end];
    if (piece.size() > kMaxWrite - bytes) {
      uncut_ = piece;
      cut_ = end;
      isCut_ = true;
      piece = boost::asio::const_buffer(piece.data(), kMaxWrite - bytes);
    }
    bytes += piece.size();
    ++end;
  }
  return {pieces_->data() + next_, pieces_->data() + end};
}

void WriteCursor::Advance(std::size_t count) {
  if (isCut_) {
    (*pieces_)[cut_] = uncut_;
    isCut_ = false;
  }
  while (next_ != last_ && count >= (*pieces_)[next_].size()) {
    count -= (*pieces_)[next_].size();
    ++next_;
  }
  if (next_ != last_) {
    (*pieces_)[next_] += count;
  }
}

}  // namespace Lumo::Asio
