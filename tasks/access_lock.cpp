#include "tasks/access_lock.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "platform/text/text.h"

namespace LifeCycle {
namespace {

constexpr std::size_t kDigestSize = 32;  // SHA-256

std::string _SocketName(std::string const& path) {
  std::string const absolute = boost::filesystem::absolute(path, boost::filesystem::current_path()).string();
  std::uint8_t digest[kDigestSize] = {};
  if (!CryptoHash_ComputeSHA256(absolute.data(), absolute.size(), digest)) {
    throw AccessLockError(EIO);
  }
  std::string name = "/com/orbane/";
  for (std::uint8_t const byte : digest) {
    name += "0123456789abcdef"[byte >> 4];
    name += "0123456789abcdef"[byte & 0xf];
  }
  return name;
}

/// 0, or the errno.
int _Close(int socket) {
  while (::close(socket) != 0) {
    if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

AccessLock::AccessLock(std::string const& path, std::int32_t retries, SleepFunction const& sleep)
    : name_(_SocketName(path)) {
  ::syslog(LOG_INFO, "[AccessLock]: Create lock with retry count{%d}", retries);
  for (std::int32_t count = 0;;) {
    int const error = Attempt(count, retries);
    if (error == 0) {
      return;
    }
    ::syslog(LOG_ERR, "[AccessLock]: Acquiring lock failed on socket{%s}, count{%d/%d}: {%s}", name_.c_str(),
             count, retries, std::strerror(error));
    if (error != EADDRINUSE || count >= retries) {
      ::syslog(LOG_ERR, "[AccessLock]: Giving up on acquiring lock{%s}, count{%d/%d}: {%s}", name_.c_str(),
               count, retries, std::strerror(error));
      throw AccessLockError(error);
    }
    sleep(std::chrono::seconds(1));
    ++count;
    ::syslog(LOG_ERR, "[AccessLock]: Sleeping for a second and retrying to acquire lock{%s}, count{%d/%d}",
             name_.c_str(), count, retries);
  }
}

AccessLock::~AccessLock() noexcept(false) {
  if (int const error = _Close(socket_); error != 0) {
    throw AccessLockError(error);
  }
}

/// Binds the socket once; 0, or the errno.
int AccessLock::Attempt(std::int32_t count, std::int32_t retries) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // The first byte of the path stays 0: the abstract name space, where a name lives as long as its socket.
  name_.copy(address.sun_path + 1, sizeof address.sun_path - 1);

  socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket_ < 0) {
    int const error = errno;
    ::syslog(LOG_ERR, "[AccessLock]: Failed to create socket{%s}: {%s}", name_.c_str(), std::strerror(error));
    return error;
  }
  auto const length = static_cast<socklen_t>(name_.size() + 3);  // family (2), leading zero byte (1)
  static_assert(offsetof(sockaddr_un, sun_path) == 2);
  if (::bind(socket_, reinterpret_cast<sockaddr const*>(&address), length) == 0) {
    ::syslog(LOG_INFO, "[AccessLock]: Lock acquired on socket{%s}, count{%d/%d}", name_.c_str(), count,
             retries);
    return 0;
  }
  int const error = errno;
  ::syslog(LOG_ERR, "[AccessLock]: Failed to bind socket{%s}: {%s}", name_.c_str(), std::strerror(error));
  if (int const closeError = _Close(socket_); closeError != 0) {
    return closeError;
  }
  ::syslog(LOG_INFO, "[AccessLock]: socket{%s} closed", name_.c_str());
  socket_ = -1;
  return error;
}

}  // namespace LifeCycle
