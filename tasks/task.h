// A task that runs inside the daemon.
#pragma once

#include <exception>
#include <string>

namespace LifeCycle {

/// Run by TaskSchedular, in the order preRun, Run, postRun: these and onRunFailure on the worker thread,
/// without a lock. requestAbort, abort, name and id are called from any thread, mostly with the scheduler's
/// lock held: they must not call back into the scheduler, and requestAbort must return at once. isAborted is
/// for whoever does the work; the scheduler doesn't ask.
class Task {
 public:
  /// Preparation; an exception counts as a failure of the run.
  virtual void preRun() = 0;
  virtual void Run() = 0;
  /// Records the failure of preRun or Run.
  virtual void onRunFailure(std::exception const& failure) = 0;
  /// Finishes the task, after a failed Run too.
  virtual void postRun() = 0;
  virtual bool isAborted() const = 0;
  /// Asks the running task to stop.
  virtual void requestAbort() = 0;
  /// Ends the task as aborted.
  virtual void abort() = 0;
  virtual std::string name() const = 0;
  virtual std::string id() const = 0;
  virtual ~Task() = default;
};

}  // namespace LifeCycle
