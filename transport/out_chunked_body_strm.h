// The open response body of a transaction.
#pragma once

#include <boost/asio/buffer.hpp>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "runtime/core/method.h"
#include "transport/buffer_span.h"
#include "transport/response_body.h"

namespace Lumo::Transport::Http {

/// Stands for the body while no response head has been sent.
struct EmptyOutStrm {};

namespace HttpDetail {

/// Writes one result after the other: the first with the response head in front, the last with the last chunk
/// behind. Holds what is being written; one write may be outstanding.
template <typename StreamType>
class OutChunkedBodyStrm {
 public:
  using Stream = StreamType;
  using ResultPtr = std::shared_ptr<Core::MethodResult const>;

  explicit OutChunkedBodyStrm(Stream& stream) : stream_(&stream) {}
  OutChunkedBodyStrm(OutChunkedBodyStrm const&) = delete;
  OutChunkedBodyStrm& operator=(OutChunkedBodyStrm const&) = delete;

  /// Forgets the last write. `result` is kept until the next: its error's name is part of the head.
  void Reset(ResultPtr result) {
    result_ = std::move(result);
    headers_.reset();
    body_.clear();
    pieces_.clear();
    headEnd_ = 0;
    bodyEnd_ = 0;
  }
  /// Where the result is serialised, before Fill.
  std::string& body() { return body_; }
  /// Where the head is made, before EndHead.
  Pieces& pieces() { return pieces_; }
  void EndHead(std::shared_ptr<ResponseHeaders> headers) {
    headers_ = std::move(headers);
    headEnd_ = pieces_.size();
  }
  /// Appends the body, in a frame when `framed`; then, when `last`, the last chunk.
  void Fill(bool framed, bool last) {
    boost::string_view const body(body_);
    if (framed) {
      AppendChunks(frames_.Frame(body), scratch_, pieces_);
    } else {
      AppendChunks({boost::asio::const_buffer(body.data(), body.size())}, scratch_, pieces_);
    }
    bodyEnd_ = pieces_.size();
    if (last) {
      AppendPiece(pieces_, kLastChunk);
    }
  }

  /// Borders between head, body and last chunk, as indices of pieces.
  std::size_t headEnd() const { return headEnd_; }
  std::size_t bodyEnd() const { return bodyEnd_; }
  std::size_t end() const { return pieces_.size(); }
  std::size_t BytesUpTo(std::size_t piece) const {
    return boost::asio::buffer_size(Asio::BufferSpan(pieces_.data(), pieces_.data() + piece));
  }

  /// Makes few pieces of many, for one write of them all; the borders are no longer valid.
  void Compact() { CompactPieces(pieces_, small_); }

  /// Writes the pieces [first, last); `handler` gets error and byte count and must keep this object alive.
  template <typename Handler>
  void AsyncWrite(std::size_t first, std::size_t last, Handler handler) {
    Asio::AsyncWriteAll(*stream_, pieces_, first, last, std::move(handler));
  }

 private:
  Stream* stream_;
  Pieces pieces_;
  char scratch_[kSizeScratch];
  char small_[kCompactScratch];
  FrameBodyWriter::Writer frames_;
  std::string body_;
  ResultPtr result_;
  std::shared_ptr<ResponseHeaders> headers_;
  std::size_t headEnd_ = 0;
  std::size_t bodyEnd_ = 0;
};

}  // namespace HttpDetail
}  // namespace Lumo::Transport::Http
