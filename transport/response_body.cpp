#include "transport/response_body.h"

#include <algorithm>
#include <cstring>

namespace Lumo::Transport::Http::HttpDetail {

namespace {
constexpr boost::string_view kLineEnd = "\r\n";
}  // namespace

void AppendChunks(Pieces const& payload, char (&scratch)[kSizeScratch], Pieces& pieces) {
  std::size_t left = boost::asio::buffer_size(payload);
  std::size_t room = 0;  // of the chunk being written
  for (boost::asio::const_buffer piece : payload) {
    while (piece.size() != 0) {
      if (room == 0) {
        room = std::min(left, kMaxChunk);
        AppendPiece(pieces, room == kMaxChunk ? boost::string_view("10000") : FormatSize(room, scratch));
        AppendPiece(pieces, kLineEnd);
      }
      std::size_t const count = std::min(room, piece.size());
      pieces.emplace_back(piece.data(), count);
      piece += count;
      room -= count;
      left -= count;
      if (room == 0) {
        AppendPiece(pieces, kLineEnd);
      }
    }
  }
}

void CompactPieces(Pieces& pieces, char (&scratch)[kCompactScratch]) {
  constexpr std::size_t kSmall = 512;
  std::size_t used = 0;
  std::size_t kept = 0;
  bool extends = false;  // whether the last kept piece ends where the next small one goes
  for (boost::asio::const_buffer const piece : pieces) {
    if (piece.size() > kSmall || piece.size() > kCompactScratch - used) {
      pieces[kept++] = piece;
      extends = false;
      continue;
    }
    std::memcpy(scratch + used, piece.data(), piece.size());
    if (extends) {
      boost::asio::const_buffer const& last = pieces[kept - 1];
      pieces[kept - 1] = boost::asio::const_buffer(last.data(), last.size() + piece.size());
    } else {
      pieces[kept++] = boost::asio::const_buffer(scratch + used, piece.size());
      extends = true;
    }
    used += piece.size();
  }
  pieces.resize(kept);
}

Pieces const& FrameBodyWriter::Writer::Frame(boost::string_view body) {
  pieces_.clear();
  AppendPiece(pieces_, FormatSize(body.size(), scratch_));
  AppendPiece(pieces_, kLineEnd);
  AppendPiece(pieces_, body);
  AppendPiece(pieces_, kLineEnd);
  return pieces_;
}

}  // namespace Lumo::Transport::Http::HttpDetail
