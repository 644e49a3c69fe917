// Non-blocking datagram socket to the system log.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace Orbane {

/// One thread.
class SyslogSocket {
 public:
  explicit SyslogSocket(std::string path) : path_(std::move(path)) {}
  ~SyslogSocket() { Close(); }
  SyslogSocket(SyslogSocket const&) = delete;
  SyslogSocket& operator=(SyslogSocket const&) = delete;

  /// Connects unless connected. False when nobody listens.
  bool Connect();
  void Close();
  /// True once a Connect succeeded.
  bool wasConnected() const { return wasConnected_; }

  enum class Result {
    Sent,      // `count` lines went out, one at least
    Full,      // the other side is behind: wait with WaitWritable
    TooLarge,  // the first line can't be sent
    Gone,      // the other side went away; the socket was closed
  };
  /// Sends the first lines of `lines` and sets `count`.
  Result Send(std::string_view const* lines, std::size_t size, std::size_t& count);
  void WaitWritable(std::chrono::milliseconds limit);

 private:
  std::string const path_;
  int descriptor_ = -1;
  bool wasConnected_ = false;
};

/// Most lines that go into one system call.
inline constexpr std::size_t kMaxLinesPerSend = 64;

}  // namespace Orbane
