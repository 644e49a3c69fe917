// Bytes that were read too early and wait to be read again.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <memory>

namespace Lumo::Asio {

/// A byte queue that grows at its front. Holds no memory while it is empty.
class ReadAhead {
 public:
  bool empty() const noexcept { return begin_ == end_; }
  std::size_t size() const noexcept { return end_ - begin_; }

  /// Puts bytes in front of those that wait: what is un-read comes before what was never read. One copy.
  boost::system::error_code PutFront(boost::asio::const_buffer bytes) noexcept;

  /// Moves as many bytes as fit into `buffer`; their number.
  std::size_t Take(boost::asio::mutable_buffer buffer) noexcept;

  /// The bytes that wait; valid until the next change.
  boost::asio::const_buffer Bytes() const noexcept { return {bytes_.get() + begin_, size()}; }
  void Clear() noexcept;

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace Lumo::Asio
