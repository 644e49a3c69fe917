#include "platform/taskdb/reserve.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TaskDB {

void Reserve::Ensure() const {
  struct stat status {};
  if (lstat(path_.c_str(), &status) == 0) {
    if (S_ISREG(status.st_mode) && status.st_size == kReserveBytes) {
      return;
    }
    unlink(path_.c_str());  // of a process that died in between
  }
  int const descriptor = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor < 0) {
    return;
  }
  bool const allocated = posix_fallocate(descriptor, 0, kReserveBytes) == 0;
  close(descriptor);
  if (!allocated) {
    unlink(path_.c_str());
  }
}

bool Reserve::Release() const {
  return unlink(path_.c_str()) == 0;
}

}  // namespace TaskDB
