// Starting a program: the one place where processes are made.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Orbane {

/// A standard stream of the child: a descriptor of the caller, or one of these.
inline constexpr int kStreamNull = -1;     // "/dev/null"
inline constexpr int kStreamInherit = -2;  // the caller's own

struct StartRequest {
  /// Program and arguments. A program without a slash is looked up in PATH.
  std::vector<std::string> const* words = nullptr;
  int streams[3] = {kStreamNull, kStreamNull, kStreamNull};
  bool newSession = false;
  /// Started by a process in between that ends at once: the program is nobody's child and in a session that
  /// it does not lead.
  bool detach = false;
  /// RLIMIT_DATA in bytes.
  std::optional<std::uint64_t> dataLimit;
  /// Descriptor of a "cgroup.procs" to join, -1 for none. When joining fails, `dataLimit` holds all the same.
  int joinGroup = -1;
  /// Do without `dataLimit` once the group was joined.
  bool groupLimitsMemory = false;
};

struct Started {
  int error = 0;   // errno of what failed, 0 when the program runs
  pid_t pid = -1;  // of the program; with `detach` not a child of the caller
};

/// Starts the program with no descriptors but the three streams, and with default signals and an empty signal
/// mask. Returns when it runs or can't run; the calling thread is held for that time, the address space is
/// not copied. Any thread.
Started StartProgram(StartRequest const& request);

/// Waits for a child; 0 or an errno. Where children are reaped by the system (SIGCHLD ignored) the status is
/// 0.
int WaitForChild(pid_t pid, int& status);

/// Leaves a child to be reaped once it has ended, at a later start of any program.
void LeaveChild(pid_t pid);

}  // namespace Orbane
