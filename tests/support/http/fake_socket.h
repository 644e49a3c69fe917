// A socket without a network: the test feeds it, reads what was written, and makes operations fail.
#pragma once

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Lumo::Transport::TestSupport {

/// The far side of a FakeSocket; outlives it. Each piece of input is what one read finds at most.
class FakeWire {
 public:
  static constexpr int kNever = -1;

  /// Adds input; an empty piece is no input.
  void Feed(std::string piece) {
    if (!piece.empty()) {
      input_.push_back(std::move(piece));
    }
    Wake();
  }
  /// Behind the input reads fail with `error`.
  void End(boost::system::error_code const& error = boost::asio::error::eof) {
    end_ = error;
    Wake();
  }

  /// Forgets pending operations. They hold the stream, and with it this object: the test's end calls this.
  void Drop() {
    std::exchange(pending_, nullptr);
    std::exchange(pendingWrite_, nullptr);
  }

  std::string output;
  /// Bytes of each write operation.
  std::vector<std::size_t> writes;
  /// Number of reads that moved bytes or failed.
  int reads = 0;
  /// The write of this number, from 0, and all behind it fail after `writeRoom` bytes.
  int failWrite = kNever;
  std::size_t writeRoom = 0;
  /// Writes stay pending.
  bool blockWrites = false;
  bool open = true;
  bool shutDown = false;
  /// Whether the socket object is gone.
  bool destroyed = false;
  boost::asio::ip::tcp::endpoint peer{boost::asio::ip::address_v4::loopback(), 50000};
  boost::system::error_code peerError;

  std::size_t PendingInput() const {
    std::size_t bytes = 0;
    for (std::string const& piece : input_) {
      bytes += piece.size();
    }
    return bytes;
  }

 private:
  friend class FakeSocket;

  bool Readable() const { return !input_.empty() || end_ || shutDown; }
  void Wake() {
    if (Readable() && pending_) {
      std::exchange(pending_, nullptr)();
    }
  }

  std::deque<std::string> input_;
  boost::system::error_code end_;
  std::function<void()> pending_;
  std::function<void()> pendingWrite_;
};

/// The part of a stream socket that the transport uses. Completions are posted, as those of a real one.
class FakeSocket {
 public:
  using executor_type = boost::asio::io_context::executor_type;
  enum shutdown_type { shutdown_both };

  explicit FakeSocket(executor_type const& executor)
      : executor_(executor), wire_(std::make_shared<FakeWire>()) {}
  FakeSocket(FakeSocket const&) = delete;
  FakeSocket& operator=(FakeSocket const&) = delete;
  ~FakeSocket() {
    wire_->open = false;
    wire_->destroyed = true;
  }

  std::shared_ptr<FakeWire> const& wire() const { return wire_; }

  executor_type get_executor() { return executor_; }
  bool is_open() const { return wire_->open; }
  bool non_blocking() const { return nonBlocking_; }
  void non_blocking(bool mode, boost::system::error_code& /*error*/) { nonBlocking_ = mode; }
  boost::asio::ip::tcp::endpoint remote_endpoint(boost::system::error_code& error) const {
    error = wire_->peerError;
    return wire_->peer;
  }

  void close(boost::system::error_code& error) {
    error = {};
    wire_->open = false;
    Abort();
  }
  void shutdown(shutdown_type /*what*/, boost::system::error_code& error) {
    if (!wire_->open) {
      error = boost::asio::error::bad_descriptor;
      return;
    }
    error = {};
    wire_->shutDown = true;
    wire_->Wake();
    if (wire_->pendingWrite_) {
      std::exchange(wire_->pendingWrite_, nullptr)();
    }
  }

  std::size_t read_some(boost::asio::mutable_buffer buffer, boost::system::error_code& error) {
    if (!wire_->Readable()) {
      error = boost::asio::error::would_block;
      return 0;
    }
    return Take(buffer, error);
  }

  template <typename Handler>
  void async_read_some(boost::asio::mutable_buffer buffer, Handler handler) {
    WhenReadable([this, buffer, handler = std::move(handler)]() mutable {
      boost::system::error_code error = boost::asio::error::operation_aborted;
      std::size_t const count = wire_->open ? Take(buffer, error) : 0;
      Post(std::move(handler), error, count);
    });
  }

  template <typename Buffers, typename Handler>
  void async_write_some(Buffers const& buffers, Handler handler) {
    std::string bytes(boost::asio::buffer_size(buffers), '\0');
    boost::asio::buffer_copy(boost::asio::buffer(bytes), buffers);
    int const number = static_cast<int>(wire_->writes.size());
    boost::system::error_code error;
    if (!wire_->open) {
      error = boost::asio::error::bad_descriptor;
    } else if (wire_->shutDown) {
      error = boost::asio::error::broken_pipe;
    } else if (wire_->blockWrites) {
      wire_->pendingWrite_ = [this, handler = std::move(handler)]() mutable {
        Post(std::move(handler), boost::asio::error::broken_pipe, std::size_t{0});
      };
      return;
    } else if (wire_->failWrite != FakeWire::kNever && number >= wire_->failWrite) {
      if (wire_->writeRoom == 0) {
        error = boost::asio::error::connection_reset;
      }
      bytes.resize(std::min(bytes.size(), wire_->writeRoom));
      wire_->writeRoom = 0;
    }
    if (error) {
      bytes.clear();
    }
    wire_->output += bytes;
    wire_->writes.push_back(bytes.size());
    Post(std::move(handler), error, bytes.size());
  }

 private:
  template <typename Handler, typename... Arguments>
  void Post(Handler handler, Arguments... arguments) {
    boost::asio::post(executor_,
                      [handler = std::move(handler), arguments...]() mutable { handler(arguments...); });
  }

  template <typename Function>
  void WhenReadable(Function function) {
    if (!wire_->open || wire_->Readable()) {
      function();
    } else {
      wire_->pending_ = std::move(function);
    }
  }

  void Abort() {
    if (wire_->pending_) {
      std::exchange(wire_->pending_, nullptr)();
    }
    if (wire_->pendingWrite_) {
      std::exchange(wire_->pendingWrite_, nullptr)();
    }
  }

  std::size_t Take(boost::asio::mutable_buffer buffer, boost::system::error_code& error) {
    ++wire_->reads;
    if (wire_->shutDown) {
      error = boost::asio::error::eof;
      return 0;
    }
    if (wire_->input_.empty()) {
      error = wire_->end_;
      return 0;
    }
    error = {};
    std::string& piece = wire_->input_.front();
    std::size_t const count = std::min(buffer.size(), piece.size());
    std::memcpy(buffer.data(), piece.data(), count);
    piece.erase(0, count);
    if (piece.empty()) {
      wire_->input_.pop_front();
    }
    return count;
  }

  executor_type executor_;
  std::shared_ptr<FakeWire> wire_;
  bool nonBlocking_ = false;
};

}  // namespace Lumo::Transport::TestSupport
