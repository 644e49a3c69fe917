// The task database as a tool writes it: in another process, in Python.
#pragma once

#include <string>

namespace OtherProcess {

/// Runs Python statements with `tasks` as the TaskManager of the daemon's database, and `sql(statement,
/// *values)` for records that no tool would write. False, with its words on standard error, when they fail.
bool Run(std::string const& statements);

}  // namespace OtherProcess
