// Decoder of chunked bodies, a pure function over bytes.
#pragma once

#include <boost/asio/buffer.hpp>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Lumo::Transport::PicoHttp {

/// Decodes one chunked body, piece by piece and in place. Chunk extensions and trailers are read and dropped;
/// a bare line feed ends a line. Refused: a chunk size without digits or beyond 64 bits, anything but ";" and
/// the line's end behind a size, a carriage return without line feed, chunk data without a line's end behind
/// it, a chunk size line longer than kMaxChunkLine, trailers longer than kMaxTrailers, and framing out of all
/// proportion to the data.
class PhrChunkedDecoder {
 public:
  /// Bytes of one chunk size line, extensions included.
  static constexpr std::size_t kMaxChunkLine = 1024;
  /// Bytes of all trailer lines; as many as a request head may have.
  static constexpr std::size_t kMaxTrailers = 4096;
  /// Framing bytes that a body may have for nothing, and more for each byte of data: the smallest chunks need
  /// five bytes of framing a byte of data.
  static constexpr std::uint64_t kFreeFraming = 16384;
  static constexpr std::uint64_t kFramingPerByte = 8;

  /// Decodes `bytes` in place: the body bytes end up at its front. First of the result: -1 malformed, -2 more
  /// bytes needed, otherwise the number of bytes left over behind the body's end, which follow the body bytes
  /// directly. Second: the number of body bytes decoded in this call, in every case. Not to be called again
  /// after a first result other than -2.
  std::pair<long, std::size_t> Decode(boost::asio::mutable_buffer bytes);

 private:
  enum class State {
    Size,          // digits of a chunk size
    SizeBlank,     // blanks behind them, only before an extension
    Extension,     // dropped up to the line's end
    SizeLineFeed,  // the line feed behind a carriage return
    Data,          // chunk data
    DataEnd,       // the line's end behind chunk data
    DataLineFeed,
    TrailerStart,  // first byte of a trailer line, or of the empty line that ends the body
    Trailer,       // dropped up to the line's end
    TrailerLineFeed,
    EndLineFeed,  // the line feed of that empty line
    Done,
    Malformed,
  };

  /// The state behind one byte of framing.
  State Step(char byte);
  State StepSize(char byte);
  State AfterSize(char byte);
  State AfterSizeLine();

  State state_ = State::Size;
  bool haveDigits_ = false;
  /// Of the size being read, then what is left of the chunk's data.
  std::uint64_t remaining_ = 0;
  /// Bytes of the current chunk size line, or of all trailers.
  std::size_t lineLength_ = 0;
  std::uint64_t framing_ = 0;
  std::uint64_t decoded_ = 0;
};

}  // namespace Lumo::Transport::PicoHttp
