#include "transport/body_reader.h"

#include <algorithm>

namespace Lumo::Transport::Http {

namespace {
constexpr std::size_t kFirstRoom = 1024;
/// As much as a declared length is trusted for before any byte of the body is there: what may have been read
/// together with the head.
constexpr std::size_t kTrusted = 4096;
}  // namespace

boost::asio::mutable_buffer BodyBuffer::Room() {
  if (size_ == capacity_) {
    // One byte more than declared, so that the end is seen without growing once more.
    std::uint64_t wanted = std::max<std::uint64_t>(declared_ + 1, kFirstRoom);
    if (capacity_ == 0) {
      wanted = std::min<std::uint64_t>(wanted, kTrusted);
    } else {
      wanted = std::max<std::uint64_t>(wanted, 2 * static_cast<std::uint64_t>(capacity_));
    }
    auto const capacity = static_cast<std::size_t>(std::min(wanted, max_));
    if (capacity == capacity_) {
      return {};
    }
    // realloc: large blocks are moved by remapping instead of copying.
    void* const grown = std::realloc(bytes_.get(), capacity);
    if (grown == nullptr) {
      return {};
    }
    static_cast<void>(bytes_.release());
    bytes_.reset(static_cast<char*>(grown));
    capacity_ = capacity;
  }
  return {bytes_.get() + size_, capacity_ - size_};
}

}  // namespace Lumo::Transport::Http
