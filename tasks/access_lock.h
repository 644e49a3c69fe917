// A lock between processes over a path name.
#pragma once

#include <cstdint>
#include <string>

#include "platform/taskdb/errors.h"
#include "support/sleep.h"

namespace LifeCycle {

/// Held for the life of the object, by a local socket of the abstract name space that is bound to a name
/// derived from the path: "/com/orbane/" and the SHA-256 of the absolute path in hexadecimal. Free again when
/// the holder closes it or dies. The path itself is not touched and need not exist; its spelling counts, as
/// nothing is normalised.
class AccessLock {
 public:
  /// At most `retries` + 1 attempts, one second apart; only a held lock is tried again. Blocks the thread as
  /// long. Throws AccessLockError with the errno.
  AccessLock(std::string const& path, std::int32_t retries, SleepFunction const& sleep = SleepOnThread);
  /// Throws AccessLockError when the socket can't be closed.
  ~AccessLock() noexcept(false);
  AccessLock(AccessLock const&) = delete;
  AccessLock& operator=(AccessLock const&) = delete;

 private:
  int Attempt(std::int32_t count, std::int32_t retries);

  int socket_ = -1;
  std::string name_;
};

}  // namespace LifeCycle
