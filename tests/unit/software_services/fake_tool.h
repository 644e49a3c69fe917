// An image manager that says what the test wants, at the real one's place. For tests that run in the sandbox.
#pragma once

#include <string>
#include <vector>

namespace FakeTool {

/// From now on the tool prints `output` and ends with `exitCode`. Forgets earlier calls.
void Install(std::string const& output, int exitCode = 0);
/// There is no interpreter to run the tool.
void RemoveInterpreter();
void RestoreInterpreter();

/// The arguments of each call, joined by "|".
std::vector<std::string> Calls();

}  // namespace FakeTool
