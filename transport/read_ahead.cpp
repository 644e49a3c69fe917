#include "transport/read_ahead.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Lumo::Asio {

boost::system::error_code ReadAhead::PutFront(boost::asio::const_buffer bytes) noexcept {
  if (bytes.size() == 0) {
    return {};
  }
  if (begin_ < bytes.size()) {
    std::size_t const waiting = size();
    std::unique_ptr<char[]> grown(new (std::nothrow) char[bytes.size() + waiting]);
    if (!grown) {
      return make_error_code(boost::system::errc::not_enough_memory);
    }
    if (waiting != 0) {
      std::memcpy(grown.get() + bytes.size(), bytes_.get() + begin_, waiting);
    }
    bytes_ = std::move(grown);
    begin_ = bytes.size();
    end_ = begin_ + waiting;
  }
  begin_ -= bytes.size();
  std::memcpy(bytes_.get() + begin_, bytes.data(), bytes.size());
  return {};
}

std::size_t ReadAhead::Take(boost::asio::mutable_buffer buffer) noexcept {
  std::size_t const count = std::min(buffer.size(), size());
  if (count != 0) {
    std::memcpy(buffer.data(), bytes_.get() + begin_, count);
    begin_ += count;
  }
  if (empty()) {
    Clear();
  }
  return count;
}

void ReadAhead::Clear() noexcept {
  bytes_.reset();
  begin_ = 0;
  end_ = 0;
}

}  // namespace Lumo::Asio
