// The one gate that every operation which may change the host passes, and the ways behind it: a forked task
// (GetTaskId, then RunTask), an in-process task (InitTask), a synchronous operation (InitOperation,
// CleanupOperation).
//
// The gate is the task sync file: it is shut while the file exists. Whoever passes leaves "PRECURSOR: " and
// an owner in it; a forked tool may rewrite it, and opens the gate when it ends. Test and write are not
// atomic between two callers. All of this blocks the calling thread: one second for each attempt that fails.
//
// An error is null on success, else it has exactly one message. `internalError` says whether failures that
// are this daemon's own fault are an InternalServerError or a plain Error.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "runtime/data/value.h"
#include "support/sleep.h"

namespace LifeCycle {

using ErrorPtr = std::shared_ptr<Lumo::Data::ErrorValue>;

/// A new task id: a UUID of 36 lower-case characters. Empty, with the error set, when there is none to be
/// had.
std::string GetTaskId(ErrorPtr& error, bool internalError);

/// Makes a task id, passes the gate (one attempt) and makes a record of that name. Empty, with the error set
/// and the gate as it was, when that fails. Afterwards the gate is the task's.
std::string InitTask(std::string const& name, ErrorPtr& error, bool internalError);

/// Passes the gate (`retries` + 1 attempts; none when negative), makes a record without name and starts
/// `command` detached (`retries` + 1 tries). `command` is complete, with interpreter, resource word and
/// "--task-id". When it can't be started the gate is open again, and the record stays PENDING.
void RunTask(std::string const& command, std::string const& id, ErrorPtr& error, bool internalError,
             int retries);

/// Passes the gate for an operation without task record: 31 attempts. Null, or the error.
ErrorPtr InitOperation(std::string const& name);
/// Opens the gate after an InitOperation that passed.
void CleanupOperation(std::string const& name);

/// What the launch path takes from outside.
struct LaunchEnvironment {
  SleepFunction sleep;
  /// Starts a command detached: 0 for success. May throw HostCtl::Lib::HostCtlException.
  std::function<int(std::string const& command)> startCommand;
  /// A text for free(), or null.
  std::function<char*()> createUuid;
};

/// The one in use; tests put their own into it while no operation runs.
LaunchEnvironment& CurrentLaunchEnvironment();

}  // namespace LifeCycle
