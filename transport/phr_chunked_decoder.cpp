#include "transport/phr_chunked_decoder.h"

#include <algorithm>
#include <cstring>

namespace Lumo::Transport::PicoHttp {

namespace {

/// The value of a hexadecimal digit, -1 for any other character.
int HexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

}  // namespace

PhrChunkedDecoder::State PhrChunkedDecoder::AfterSizeLine() {
  lineLength_ = 0;
  return remaining_ == 0 ? State::TrailerStart : State::Data;
}

PhrChunkedDecoder::State PhrChunkedDecoder::AfterSize(char byte) {
  switch (byte) {
    case ';':
      return State::Extension;
    case ' ':
    case '\t':
      return State::SizeBlank;
    case '\r':
      return state_ == State::Size ? State::SizeLineFeed : State::Malformed;
    case '\n':
      return state_ == State::Size ? AfterSizeLine() : State::Malformed;
    default:
      return State::Malformed;
  }
}

PhrChunkedDecoder::State PhrChunkedDecoder::StepSize(char byte) {
  int const digit = HexDigit(byte);
  if (digit < 0) {
    return haveDigits_ ? AfterSize(byte) : State::Malformed;
  }
  constexpr int kTopDigit = 60;  // the highest four of 64 bits
  if ((remaining_ >> kTopDigit) != 0) {
    return State::Malformed;
  }
  remaining_ = remaining_ << 4 | static_cast<std::uint64_t>(digit);
  haveDigits_ = true;
  return State::Size;
}

PhrChunkedDecoder::State PhrChunkedDecoder::Step(char byte) {
  bool const trailers = state_ == State::TrailerStart || state_ == State::Trailer;
  if (++lineLength_ > (trailers ? kMaxTrailers : kMaxChunkLine) ||
      ++framing_ > kFreeFraming + kFramingPerByte * decoded_) {
    return State::Malformed;
  }
  switch (state_) {
    case State::Size:
      return StepSize(byte);
    case State::SizeBlank:
      return AfterSize(byte);
    case State::Extension:
      return byte == '\r' ? State::SizeLineFeed : (byte == '\n' ? AfterSizeLine() : State::Extension);
    case State::SizeLineFeed:
      return byte == '\n' ? AfterSizeLine() : State::Malformed;
    case State::DataEnd:
      if (byte == '\r') {
        return State::DataLineFeed;
      }
      [[fallthrough]];
    case State::DataLineFeed:
      lineLength_ = 0;
      haveDigits_ = false;
      return byte == '\n' ? State::Size : State::Malformed;
    case State::TrailerStart:
      return byte == '\r' ? State::EndLineFeed : (byte == '\n' ? State::Done : State::Trailer);
    case State::Trailer:
      return byte == '\r' ? State::TrailerLineFeed : (byte == '\n' ? State::TrailerStart : State::Trailer);
    case State::TrailerLineFeed:
      return byte == '\n' ? State::TrailerStart : State::Malformed;
    case State::EndLineFeed:
      return byte == '\n' ? State::Done : State::Malformed;
    case State::Data:
    case State::Done:
    case State::Malformed:
      break;
  }
  return State::Malformed;
}

std::pair<long, std::size_t> PhrChunkedDecoder::Decode(boost::asio::mutable_buffer bytes) {
  auto* const begin = static_cast<char*>(bytes.data());
  char* const end = begin + bytes.size();
  char* out = begin;
  char* in = begin;
  while (in != end && state_ != State::Done && state_ != State::Malformed) {
    if (state_ != State::Data) {
      state_ = Step(*in++);
      continue;
    }
    auto const count =
        static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, static_cast<std::uint64_t>(end - in)));
    if (out != in) {
      std::memmove(out, in, count);
    }
    in += count;
    out += count;
    decoded_ += count;
    remaining_ -= count;
    if (remaining_ == 0) {
      lineLength_ = 0;
      state_ = State::DataEnd;
    }
  }
  auto const decoded = static_cast<std::size_t>(out - begin);
  if (state_ == State::Malformed) {
    return {-1, decoded};
  }
  if (state_ != State::Done) {
    return {-2, decoded};
  }
  auto const left = static_cast<std::size_t>(end - in);
  if (out != in) {
    std::memmove(out, in, left);
  }
  return {static_cast<long>(left), decoded};
}

}  // namespace Lumo::Transport::PicoHttp
