#include "platform/process/zekuser.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "platform/process/child_start.h"
#include "platform/process/command_words.h"
#include "platform/process/resource_group.h"
#include "platform/process/resource_word.h"

struct ZekuserSpawnAttr {
  std::string group;
  std::optional<std::uint64_t> memoryBytes;
};

namespace {

constexpr unsigned kKnownFlags = 0x100 | 0x200;

/// A pipe whose ends lie above the standard streams, closed at the end unless taken.
class Pipe {
 public:
  Pipe() {
    int ends[2] = {-1, -1};
    error_ = pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno;
    for (int i = 0; i < 2; ++i) {
      ends_[i] = ends[i];
      if (ends[i] >= 0 && ends[i] <= 2) {
        ends_[i] = fcntl(ends[i], F_DUPFD_CLOEXEC, 3);
        error_ = ends_[i] >= 0 ? error_ : errno;
        close(ends[i]);
      }
    }
  }
  ~Pipe() {
    for (int const end : ends_) {
      if (end >= 0) {
        close(end);
      }
    }
  }
  Pipe(Pipe const&) = delete;
  Pipe& operator=(Pipe const&) = delete;

  int error() const { return error_; }
  int end(int which) const { return ends_[which]; }
  int Take(int which) {
    int const end = ends_[which];
    ends_[which] = -1;
    return end;
  }

 private:
  int ends_[2] = {-1, -1};
  int error_ = 0;
};

/// A write to a pipe that nobody reads must fail with EPIPE. The signal can't be turned off for a single
/// pipe, so its default action, the end of the process, goes; children get it back.
void IgnoreBrokenPipes() {
  static std::once_flag once;
  std::call_once(once, [] {
    struct sigaction action {};
    if (sigaction(SIGPIPE, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 &&
        action.sa_handler == SIG_DFL) {
      action.sa_handler = SIG_IGN;
      sigaction(SIGPIPE, &action, nullptr);
    }
  });
}

}  // namespace

int ZekuserCompat_SpawnAttrInit(ZekuserSpawnAttr** attr) {
  *attr = new (std::nothrow) ZekuserSpawnAttr;
  return *attr != nullptr ? 0 : ENOMEM;
}

int ZekuserCompat_SpawnAttrSetRP(ZekuserSpawnAttr* attr, char const* group) {
  if (!Orbane::IsGroupName(group)) {
    return EINVAL;
  }
  attr->group = group;
  return 0;
}

int ZekuserCompat_SpawnAttrSetMemMB(ZekuserSpawnAttr* attr, unsigned megabytes) {
  if (megabytes == 0) {
    return EINVAL;
  }
  attr->memoryBytes = std::uint64_t{megabytes} * 1024 * 1024;
  return 0;
}

int ZekuserCompat_SpawnAttrSetFlags(ZekuserSpawnAttr* /*attr*/, unsigned flags) {
  return (flags & ~kKnownFlags) == 0 ? 0 : EINVAL;
}

int ZekuserCompat_POpen_SpawnAttrs(ZekuserSpawnAttr const* attr, char const* command, char const* mode,
                                   ZekuserPipe** pipe) {
  *pipe = nullptr;
  std::string const direction = mode;
  std::vector<std::string> words;
  if ((direction != "r" && direction != "w") || !Orbane::SplitCommand(command, words)) {
    return EINVAL;
  }
  bool const reads = direction == "r";
  if (!reads) {
    IgnoreBrokenPipes();
  }
  Pipe ends;
  if (ends.error() != 0) {
    return ends.error();
  }
  auto opened = std::make_unique<ZekuserPipe>();
  Orbane::ResourceGroup group;
  Orbane::StartRequest request;
  request.words = &words;
  request.streams[reads ? 1 : 0] = ends.end(reads ? 1 : 0);
  if (attr != nullptr) {
    if (!attr->group.empty()) {
      group = Orbane::ResourceGroup::Open(attr->group, attr->memoryBytes);
    }
    request.dataLimit = attr->memoryBytes;
    request.joinGroup = group.procs();
    request.groupLimitsMemory = group.limitsMemory();
  }
  Orbane::Started const started = Orbane::StartProgram(request);
  if (started.error != 0) {
    return started.error;
  }
  opened->fd = ends.Take(reads ? 0 : 1);
  opened->pid = started.pid;
  *pipe = opened.release();
  return 0;
}

int ZekuserCompat_PClose(ZekuserPipe* pipe, int* status) {
  *status = 0;
  if (pipe == nullptr) {
    return EINVAL;
  }
  std::unique_ptr<ZekuserPipe> const owned(pipe);
  close(owned->fd);
  return Orbane::WaitForChild(owned->pid, *status);
}

void ZekuserCompat_PAbandon(ZekuserPipe* pipe) {
  std::unique_ptr<ZekuserPipe> const owned(pipe);
  if (owned) {
    Orbane::LeaveChild(owned->pid);
  }
}

char const* ZekuserStatus_CodeToString(int status, char* buffer, std::size_t size, int /*extra*/) {
  char scratch[128];
  std::snprintf(buffer, size, "%s", strerror_r(status, scratch, sizeof scratch));
  return buffer;
}

void ZekCtl::Util::SpawnAttrDestroyer::operator()(ZekuserSpawnAttr* attr) const {
  delete attr;
}
