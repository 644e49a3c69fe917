#include "libc_seams.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <mutex>
#include <set>
#include <utility>

namespace {

std::recursive_mutex mutex;
std::vector<std::string> lines;
std::deque<int> socketErrors;
std::deque<int> bindErrors;
std::deque<int> closeErrors;
std::set<int> bound;
std::string lastAddress;

/// The errno that the next call shall fail with; 0 for none.
int Next(std::deque<int>& errors) {
  if (errors.empty()) {
    return 0;
  }
  int const error = errors.front();
  errors.pop_front();
  return error;
}

void Keep(int priority, char const* format, va_list arguments) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, arguments);
  std::lock_guard const lock(mutex);
  lines.push_back((priority == LOG_ERR ? "err " : "info ") + std::string(text));
}

}  // namespace

// These take the place of the C library's for the whole test program.
extern "C" {

void syslog(int priority, char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Keep(priority, format, arguments);
  va_end(arguments);
}

void __syslog_chk(int priority, int /*flag*/, char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Keep(priority, format, arguments);
  va_end(arguments);
}

int socket(int domain, int type, int protocol) noexcept {
  std::lock_guard const lock(mutex);
  if (int const error = Next(socketErrors); error != 0) {
    errno = error;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_socket, domain, type, protocol));
}

int bind(int fd, sockaddr const* address, socklen_t length) noexcept {
  std::lock_guard const lock(mutex);
  lastAddress.assign(reinterpret_cast<char const*>(address), length);
  bound.insert(fd);
  if (int const error = Next(bindErrors); error != 0) {
    errno = error;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_bind, fd, address, length));
}

int close(int fd) {
  std::lock_guard const lock(mutex);
  if (bound.count(fd) != 0) {
    if (int const error = Next(closeErrors); error != 0) {
      if (error != EINTR) {
        bound.erase(fd);
        ::syscall(SYS_close, fd);
      }
      errno = error;
      return -1;
    }
    bound.erase(fd);
  }
  return static_cast<int>(::syscall(SYS_close, fd));
}

}  // extern "C"

namespace LibcSeams {

std::vector<std::string> TakeSyslog() {
  std::lock_guard const lock(mutex);
  return std::exchange(lines, {});
}

void FailSocket(std::vector<int> errors) {
  socketErrors.assign(errors.begin(), errors.end());
}
void FailBind(std::vector<int> errors) {
  bindErrors.assign(errors.begin(), errors.end());
}
void FailClose(std::vector<int> errors) {
  closeErrors.assign(errors.begin(), errors.end());
}

std::string LastAddress() {
  std::lock_guard const lock(mutex);
  return lastAddress;
}

}  // namespace LibcSeams
