// Foreground commands: started without a shell, waited for, summed up in one small result.
#pragma once

#include <cstdint>
#include <string>

namespace LifeCycle {

enum RunCommandKind : std::uint32_t {
  RunOk = 0,           // ended with status 0; code 0
  RunSpawnFailed = 1,  // could not be started; code: the host status, or errno in the form of one argument
  RunNonZeroExit = 2,  // code: the exit code, or the raw wait status where the command did not end normally
  RunWriteFailed = 3,  // writing to its standard input failed; code: errno
  RunReadFailed = 4,   // reading its output failed; code: errno
};

struct RunCommandResult {
  std::uint32_t kind = RunOk;
  std::int32_t code = 0;
  friend bool operator==(RunCommandResult const&, RunCommandResult const&) = default;
};

/// Runs `command` in the resource group "keeld-nontask-forks" with 200 MB of memory. Either pointer may be
/// null, and at most one is given: `standardInput` goes to the command in one write, and a short one is not
/// noticed; `output` is appended to, each chunk of up to a memory page cut at its first NUL. Blocks until the
/// command has ended, without a time limit. Any thread.
RunCommandResult RunCommand(std::string const& command, std::string const* standardInput,
                            std::string* output);

/// Runs a command whose output nobody reads, without group and limit. Blocks until it has ended. Any thread.
RunCommandResult RunCommand(std::string const& command);

}  // namespace LifeCycle
