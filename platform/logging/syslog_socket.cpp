#include "platform/logging/syslog_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Orbane {

bool SyslogSocket::Connect() {
  if (descriptor_ >= 0) {
    return true;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof address.sun_path) {
    return false;
  }
  std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
  descriptor_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor_ < 0) {
    return false;
  }
  if (connect(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
    Close();
    return false;
  }
  wasConnected_ = true;
  return true;
}

void SyslogSocket::Close() {
  if (descriptor_ >= 0) {
    close(descriptor_);
    descriptor_ = -1;
  }
}

SyslogSocket::Result SyslogSocket::Send(std::string_view const* lines, std::size_t size, std::size_t& count) {
  iovec parts[kMaxLinesPerSend];
  mmsghdr messages[kMaxLinesPerSend];
  size = std::min(size, kMaxLinesPerSend);
  for (std::size_t i = 0; i < size; ++i) {
    parts[i] = {const_cast<char*>(lines[i].data()), lines[i].size()};
    messages[i] = {};
    messages[i].msg_hdr.msg_iov = &parts[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  count = 0;
  int const sent = sendmmsg(descriptor_, messages, static_cast<unsigned>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent > 0) {
    count = static_cast<std::size_t>(sent);
    return Result::Sent;
  }
  switch (errno) {
    case EAGAIN:
    case EINTR:
    case ENOBUFS:
    case ENOMEM:
      return Result::Full;
    case EMSGSIZE:
      return Result::TooLarge;
    default:
      Close();
      return Result::Gone;
  }
}

void SyslogSocket::WaitWritable(std::chrono::milliseconds limit) {
  pollfd entry{descriptor_, POLLOUT, 0};
  poll(&entry, 1, static_cast<int>(limit.count()));
}

}  // namespace Orbane
