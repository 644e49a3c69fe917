// A program in the place of every tool that tells which ones were started, and with which words.
#pragma once

#include <string>
#include <vector>

namespace Recorded {

using Words = std::vector<std::string>;

/// Puts the recorder in the place of the tools, the Python interpreter and the shells of the sandbox, once.
void Install();

/// What every tool prints and how it ends from now on; a signal other than 0 comes before the status.
void Answer(std::string const& output, int status = 0, int signal = 0);

/// The calls since the last time: the path of the program that was executed, then its words.
std::vector<Words> Take();
/// The same, once there is at least one; for tools that nobody waits for.
std::vector<Words> Await();

/// The number of the process that was started last in the sandbox. Each start adds one.
long LastProcess();

}  // namespace Recorded
