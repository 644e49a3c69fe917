#include "platform/process/child_start.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <string_view>

// The child shares the address space of the caller until it has become the program, as with vfork. What runs
// there must not be instrumented, and it makes system calls itself: interceptors of the library functions
// keep books that belong to the caller.
#define KEELD_IN_CHILD __attribute__((no_sanitize("address", "thread", "undefined"), noinline))

#if defined(__SANITIZE_THREAD__)
// The sanitizer takes `clone` for a fork and changes its own state from the child; this name it leaves alone.
extern "C" int __clone(int (*function)(void*), void* stack, int flags, void* argument, ...);
#define KEELD_CLONE __clone
#else
#define KEELD_CLONE clone
#endif

namespace Orbane {
namespace {

/// For each of the two children; they need some hundred bytes.
constexpr std::size_t kStackBytes = std::size_t{32} * 1024;
constexpr int kSignalCount = 64;
/// Size of the kernel's signal set in bytes.
constexpr std::size_t kSignalSetBytes = kSignalCount / 8;
constexpr char kDefaultPath[] = "/usr/sbin:/usr/bin:/sbin:/bin";

/// Read by the children; `error` is written by them.
struct ChildPlan {
  StartRequest const* request;
  char const* program;
  char** arguments;
  char** environment;
  int nullStream;
  rlimit dataLimit;
  char* innerStackTop;
  pid_t programPid;
  int error;
};

[[noreturn]] KEELD_IN_CHILD void EndChild() {
  for (;;) {
    syscall(SYS_exit_group, 127);
  }
}

[[noreturn]] KEELD_IN_CHILD void FailChild(ChildPlan& plan) {
  plan.error = errno;
  EndChild();
}

KEELD_IN_CHILD void ApplyLimits(ChildPlan& plan) {
  StartRequest const& request = *plan.request;
  bool const joined = request.joinGroup >= 0 && syscall(SYS_write, request.joinGroup, "0", 1) == 1;
  bool const limited = joined && request.groupLimitsMemory;
  if (plan.dataLimit.rlim_max != RLIM_INFINITY && !limited &&
      syscall(SYS_prlimit64, 0, RLIMIT_DATA, &plan.dataLimit, nullptr) != 0) {
    FailChild(plan);
  }
}

KEELD_IN_CHILD void ApplyStreams(ChildPlan& plan) {
  for (int stream = 0; stream < 3; ++stream) {
    int const source = plan.request->streams[stream];
    if (source != kStreamInherit &&
        syscall(SYS_dup3, source == kStreamNull ? plan.nullStream : source, stream, 0) < 0) {
      FailChild(plan);
    }
  }
  if (syscall(SYS_close_range, 3U, ~0U, 0U) != 0) {
    // A kernel before 5.9.
    rlimit files{};
    syscall(SYS_prlimit64, 0, RLIMIT_NOFILE, nullptr, &files);
    for (rlim_t descriptor = 3; descriptor < files.rlim_cur; ++descriptor) {
      syscall(SYS_close, static_cast<int>(descriptor));
    }
  }
}

KEELD_IN_CHILD void ApplySignals() {
  // All zero is the default action in the kernel's structure, which is smaller than this on every machine.
  char const byDefault[64] = {};
  for (int signal = 1; signal <= kSignalCount; ++signal) {
    syscall(SYS_rt_sigaction, signal, byDefault, nullptr, kSignalSetBytes);
  }
  char const empty[kSignalSetBytes] = {};
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, empty, nullptr, kSignalSetBytes);
}

KEELD_IN_CHILD int BecomeProgram(void* argument) {
  auto& plan = *static_cast<ChildPlan*>(argument);
  ApplyLimits(plan);
  ApplyStreams(plan);
  ApplySignals();
  syscall(SYS_execve, plan.program, plan.arguments, plan.environment);
  FailChild(plan);
}

KEELD_IN_CHILD int RunChild(void* argument) {
  auto& plan = *static_cast<ChildPlan*>(argument);
  StartRequest const& request = *plan.request;
  if ((request.newSession || request.detach) && syscall(SYS_setsid) < 0) {
    FailChild(plan);
  }
  if (!request.detach) {
    return BecomeProgram(argument);
  }
  plan.programPid =
      KEELD_CLONE(BecomeProgram, plan.innerStackTop, CLONE_VM | CLONE_VFORK | SIGCHLD, argument);
  if (plan.programPid < 0) {
    FailChild(plan);
  }
  EndChild();
}

bool IsExecutable(std::string const& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

/// The program's path; empty with `error` set when there is none in PATH.
std::string FindProgram(std::string const& word, int& error) {
  error = 0;
  if (word.find('/') != std::string::npos) {
    return word;
  }
  error = ENOENT;
  if (word.empty()) {
    return {};
  }
  char const* const variable = std::getenv("PATH");
  std::string_view rest = variable != nullptr ? variable : kDefaultPath;
  while (!rest.empty()) {
    std::size_t const end = std::min(rest.find(':'), rest.size());
    std::string_view const folder = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (folder.empty() || folder.front() != '/') {
      continue;  // a program of the current folder is never meant
    }
    std::string path = std::string(folder) + "/" + word;
    if (IsExecutable(path)) {
      error = 0;
      return path;
    }
    if (access(path.c_str(), F_OK) == 0) {
      error = EACCES;
    }
  }
  return {};
}

/// "/dev/null", above the standard streams, closed at the end.
class NullStream {
 public:
  NullStream() : descriptor_(open("/dev/null", O_RDWR | O_CLOEXEC)) {
    if (descriptor_ >= 0 && descriptor_ <= 2) {
      int const low = descriptor_;
      descriptor_ = fcntl(low, F_DUPFD_CLOEXEC, 3);
      close(low);
    }
  }
  ~NullStream() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  NullStream(NullStream const&) = delete;
  NullStream& operator=(NullStream const&) = delete;
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

/// Memory for the stacks of both children.
class ChildStacks {
 public:
  ChildStacks()
      : memory_(mmap(nullptr, 2 * kStackBytes, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0)) {}
  ~ChildStacks() {
    if (valid()) {
      munmap(memory_, 2 * kStackBytes);
    }
  }
  ChildStacks(ChildStacks const&) = delete;
  ChildStacks& operator=(ChildStacks const&) = delete;
  bool valid() const { return memory_ != MAP_FAILED; }
  char* innerTop() const { return static_cast<char*>(memory_) + kStackBytes; }
  char* outerTop() const { return static_cast<char*>(memory_) + 2 * kStackBytes; }

 private:
  void* memory_;
};

/// RLIMIT_DATA of the child: as asked, but never above what the caller may have. RLIM_INFINITY: leave it.
rlimit DataLimit(std::optional<std::uint64_t> const& asked) {
  if (!asked) {
    return {RLIM_INFINITY, RLIM_INFINITY};
  }
  rlimit own{RLIM_INFINITY, RLIM_INFINITY};
  getrlimit(RLIMIT_DATA, &own);
  rlim_t const limit = std::min<rlim_t>(*asked, own.rlim_max);
  return {limit, limit};
}

pid_t CloneWithSignalsBlocked(ChildPlan& plan, char* stackTop) {
  // A handler that ran in the child would work on the caller's memory. The library's own mask functions leave
  // out the two signals that it uses itself.
  unsigned char all[kSignalSetBytes];
  std::fill(std::begin(all), std::end(all), 0xff);
  unsigned char original[kSignalSetBytes];
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, all, original, kSignalSetBytes);
  pid_t const pid = KEELD_CLONE(RunChild, stackTop, CLONE_VM | CLONE_VFORK | SIGCHLD, &plan);
  int const error = errno;
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, original, nullptr, kSignalSetBytes);
  errno = error;
  return pid;
}

std::mutex leftMutex;
std::vector<pid_t>& LeftChildren() {
  static auto* const left =
      new std::vector<pid_t>;  // never destroyed: any thread may start programs to the end
  return *left;
}

void ReapLeftChildren() {
  std::lock_guard lock(leftMutex);
  std::vector<pid_t>& left = LeftChildren();
  left.erase(
      std::remove_if(left.begin(), left.end(), [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; }),
      left.end());
}

}  // namespace

Started StartProgram(StartRequest const& request) {
  ReapLeftChildren();
  Started started;
  if (request.words->empty()) {
    started.error = EINVAL;
    return started;
  }
  std::string const program = FindProgram(request.words->front(), started.error);
  if (started.error != 0) {
    return started;
  }
  NullStream const nullStream;
  ChildStacks const stacks;
  if (nullStream.get() < 0 || !stacks.valid()) {
    started.error = errno;
    return started;
  }
  std::vector<char*> arguments;
  arguments.reserve(request.words->size() + 1);
  for (std::string const& word : *request.words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);

  ChildPlan plan{};
  plan.request = &request;
  plan.program = program.c_str();
  plan.arguments = arguments.data();
  plan.environment = environ;
  plan.nullStream = nullStream.get();
  plan.dataLimit = DataLimit(request.dataLimit);
  plan.innerStackTop = stacks.innerTop();
  pid_t const pid = CloneWithSignalsBlocked(plan, stacks.outerTop());
  if (pid < 0) {
    started.error = errno;
    return started;
  }
  // The clone returned, so the child has become the program or ended.
  started.error = plan.error;
  started.pid = request.detach ? plan.programPid : pid;
  if (request.detach || plan.error != 0) {
    int status = 0;
    WaitForChild(pid, status);
  }
  return started;
}

int WaitForChild(pid_t pid, int& status) {
  status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno == EINTR) {
      continue;
    }
    return errno == ECHILD ? 0 : errno;
  }
  return 0;
}

void LeaveChild(pid_t pid) {
  std::lock_guard lock(leftMutex);
  LeftChildren().push_back(pid);
}

}  // namespace Orbane
