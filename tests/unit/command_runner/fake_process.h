// The host's process control as a test scripts it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace FakeProcess {

struct Script {
  int openStatus = 0;
  /// The parent's end of the pipe: made by the test.
  int fd = -1;
  int closeStatus = 0;
  int waitStatus = 0;
  int execCode = 0;
  bool execThrows = false;
  int execErrno = 0;
};

/// Forgets what was called.
void Reset(Script const& script);

/// What was called since Reset, one line a call, with its arguments.
std::vector<std::string> const& Calls();

}  // namespace FakeProcess
