// Runs the in-process tasks, one at a time. No queue: a task that comes while one runs is refused.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "tasks/task.h"

namespace LifeCycle {

class TaskSchedular {
 public:
  /// The one of the process; never destroyed.
  static TaskSchedular& GetInstance();

  /// Starts the scheduler's thread, once. 0; 1 if there is none.
  virtual int Initialize() = 0;
  /// Final. Asks a running task to stop, gives it 5 seconds, and returns when the scheduler's thread has
  /// ended.
  virtual void Stop() = 0;
  /// 0 accepted; 2 refused. Any thread.
  virtual int Schedule(std::shared_ptr<Task> const& task) = 0;
  /// 1 when the task of that id is held and was told; 0 when it is not. Any thread.
  virtual int AbortTask(std::string const& id) = 0;
  virtual ~TaskSchedular() = default;
};

/// States and who moves them:
///
///   0 constructed -> 1 idle            scheduler thread, when it is up
///   1 idle        -> 2 accepted        Schedule
///   2 accepted    -> 3 running         scheduler thread: the worker is started
///   3 running     -> 4 finished        worker, at its end or when it sees the stop flag
///   4 finished    -> 1 idle            scheduler thread: the worker is joined, the task released
class TaskSchedularImpl final : public TaskSchedular {
 public:
  /// How long Stop waits for a running task.
  static constexpr std::chrono::seconds kAbortGrace{5};

  explicit TaskSchedularImpl(std::chrono::milliseconds abortGrace = kAbortGrace) : abortGrace_(abortGrace) {}

  int Initialize() override;
  void Stop() override;
  int Schedule(std::shared_ptr<Task> const& task) override;
  int AbortTask(std::string const& id) override;

 private:
  using Lock = std::unique_lock<std::mutex>;

  void Loop();
  void Dispatch();
  void Shutdown(Lock& lock);
  void AwaitAbortedTask(Lock& lock);
  void Collect();
  void Work(std::shared_ptr<Task> const& task);
  bool StopRequested(Task& task);

  std::shared_ptr<Task> task_;
  std::thread worker_;
  std::thread scheduler_;
  std::mutex mutex_;  // guards all other fields
  std::condition_variable condition_;
  std::int32_t state_ = 0;
  bool stop_ = false;
  bool leftBusy_ = false;  // for a debugger
  std::once_flag started_;
  std::chrono::milliseconds const abortGrace_;
};

}  // namespace LifeCycle
