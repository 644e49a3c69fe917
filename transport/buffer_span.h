// Gather writes from a list of views.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/container/small_vector.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <utility>
#include <vector>

namespace Lumo::Asio {

/// Most bytes of one write operation.
inline constexpr std::size_t kMaxWrite = 65536;
/// Most pieces of one write operation; what the socket layer hands to one system call.
inline constexpr std::size_t kMaxPieces = 64;

/// Views that are written one behind the other; as many as an answer usually has cost no memory of their own.
using PieceList = boost::container::small_vector<boost::asio::const_buffer, 32>;

/// A range of const_buffer objects that somebody else holds: a buffer sequence that costs nothing to copy.
class BufferSpan {
 public:
  using value_type = boost::asio::const_buffer;
  using const_iterator = value_type const*;

  BufferSpan(const_iterator first, const_iterator last) : first_(first), last_(last) {}
  const_iterator begin() const { return first_; }
  const_iterator end() const { return last_; }

 private:
  const_iterator first_;
  const_iterator last_;
};

/// Walks a part of a piece list in steps that one write operation takes. The list is changed on the way and
/// must outlive the cursor.
class WriteCursor {
 public:
  /// The pieces [first, last) by index.
  WriteCursor(PieceList& pieces, std::size_t first, std::size_t last);

  bool Done() const { return next_ == last_; }
  /// The next step: at most kMaxPieces pieces and kMaxWrite bytes.
  BufferSpan Step();
  /// `count` bytes of the step were written.
  void Advance(std::size_t count);

 private:
  PieceList* pieces_;
  std::size_t next_;
  std::size_t last_;
  /// The last piece of the step, cut to the step's size, and what it was before.
  std::size_t cut_ = 0;
  boost::asio::const_buffer uncut_;
  bool isCut_ = false;
};

/// Writes pieces [first, last) of `pieces` whole, one write operation after the other. `handler` gets the
/// error and the number of bytes written, and must keep stream and pieces alive.
template <typename Stream, typename Handler>
class WriteAllOperation {
 public:
  WriteAllOperation(Stream& stream, WriteCursor cursor, Handler handler)
      : stream_(&stream), cursor_(cursor), handler_(std::move(handler)) {}

  void Start() {
    Stream& stream = *stream_;
    BufferSpan const step = cursor_.Step();
    stream.async_write_some(step, std::move(*this));
  }

  void operator()(boost::system::error_code const& error, std::size_t count) {
    total_ += count;
    cursor_.Advance(count);
    if (error || cursor_.Done()) {
      handler_(error, total_);
      return;
    }
    Start();
  }

 private:
  Stream* stream_;
  WriteCursor cursor_;
  std::size_t total_ = 0;
  Handler handler_;
};

/// At least one byte must be there to write.
template <typename Stream, typename Handler>
void AsyncWriteAll(Stream& stream, PieceList& pieces, std::size_t first, std::size_t last, Handler handler) {
  WriteAllOperation<Stream, Handler>(stream, WriteCursor(pieces, first, last), std::move(handler)).Start();
}

}  // namespace Lumo::Asio
