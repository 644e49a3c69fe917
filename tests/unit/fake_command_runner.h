// Stands in for the runner of foreground commands in a whole test program, one of whose files includes this.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/command_runner.h"

namespace FakeCommandRunner {

/// How each command ends, and what it prints before.
inline LifeCycle::RunCommandResult ending;
inline std::string printed;
/// Those that were run.
inline std::vector<std::string> commands;

}  // namespace FakeCommandRunner

/// In place of the real runner, for callers that read the output and write no input.
LifeCycle::RunCommandResult LifeCycle::RunCommand(std::string const& command,
                                                  std::string const* standardInput, std::string* output) {
  EXPECT_EQ(standardInput, nullptr);
  EXPECT_EQ(*output, "");
  FakeCommandRunner::commands.push_back(command);
  *output += FakeCommandRunner::printed;
  return FakeCommandRunner::ending;
}

LifeCycle::RunCommandResult LifeCycle::RunCommand(std::string const& command) {
  ADD_FAILURE() << command;
  return {};
}
