#include "tasks/task_schedular.h"

#include <system_error>

#include "platform/logging/logging.h"

namespace LifeCycle {
namespace {

enum State : std::int32_t { kConstructed = 0, kIdle = 1, kAccepted = 2, kRunning = 3, kFinished = 4 };

enum ScheduleResult : int { kScheduled = 0, kRefused = 2 };

}  // namespace

TaskSchedular& TaskSchedular::GetInstance() {
  static std::once_flag made;
  static TaskSchedular* instance = nullptr;
  std::call_once(made, [] { instance = new TaskSchedularImpl; });
  return *instance;
}

int TaskSchedularImpl::Initialize() {
  std::call_once(started_, [this] {
    Lock const lock(mutex_);
    try {
      scheduler_ = std::thread(&TaskSchedularImpl::Loop, this);
    } catch (std::system_error const&) {  // no thread to be had: the empty handle tells
    }
  });
  Lock const lock(mutex_);
  if (!scheduler_.joinable()) {
    CSLogger::Log(0, "TaskSchedular failed to initialize.");
    return 1;
  }
  return 0;
}

int TaskSchedularImpl::Schedule(std::shared_ptr<Task> const& task) {
  CSLogger::Log(2, "TaskSchedular received new task: %s", task->name().c_str());
  Lock lock(mutex_);
  if (state_ == kIdle && !stop_) {
    task_ = task;
    state_ = kAccepted;
    lock.unlock();
    condition_.notify_all();
    return kScheduled;
  }
  CSLogger::Log(0, "TaskSchedular in state=%d, stopped=%d, doesn't accept requests", state_, stop_ ? 1 : 0);
  return kRefused;
}

int TaskSchedularImpl::AbortTask(std::string const& id) {
  Lock const lock(mutex_);
  if (task_ && task_->id() == id) {
    CSLogger::Log(2, "TaskSchedular aborting task: %s", id.c_str());
    task_->requestAbort();
    return 1;
  }
  CSLogger::Log(2, "TaskSchedular not aborting task that is not running: %s", id.c_str());
  return 0;
}

void TaskSchedularImpl::Stop() {
  CSLogger::Log(2, "TaskSchedular abort requested.");
  std::thread scheduler;
  {
    Lock const lock(mutex_);
    stop_ = true;
    scheduler.swap(scheduler_);
  }
  condition_.notify_all();
  if (scheduler.joinable()) {
    scheduler.join();
  }
}

/// The lock is given up in waits only, so nothing that is done under it and then notified can be missed.
void TaskSchedularImpl::Loop() {
  Lock lock(mutex_);
  state_ = kIdle;
  CSLogger::Log(2, "TaskSchedular started.");
  while (!stop_) {  // may have been set before this thread was up
    condition_.wait(lock);
    if (state_ == kFinished) {
      Collect();
    }
    if (!stop_ && state_ == kAccepted) {
      Dispatch();
    }
  }
  Shutdown(lock);
  leftBusy_ = state_ != kIdle;
}

void TaskSchedularImpl::Dispatch() {
  try {
    worker_ = std::thread(&TaskSchedularImpl::Work, this, task_);
  } catch (std::system_error const& e) {
    CSLogger::Log(0, "Task: %s failed to run: %s", task_->name().c_str(), e.what());
    task_->abort();
    task_.reset();
    state_ = kIdle;
    return;
  }
  state_ = kRunning;
  CSLogger::Log(2, "Task dispatched: %s", task_->name().c_str());
}

void TaskSchedularImpl::Shutdown(Lock& lock) {
  CSLogger::Log(2, "TaskSchedular stopped.");
  if (state_ == kAccepted) {
    CSLogger::Log(2, "Skip task=%s in state=%d", task_->name().c_str(), state_);
    task_->abort();
  } else if (state_ == kRunning) {
    CSLogger::Log(2, "Abort task requested: %s", task_->name().c_str());
    task_->requestAbort();
    AwaitAbortedTask(lock);
  }
}

void TaskSchedularImpl::AwaitAbortedTask(Lock& lock) {
  using SystemClock = std::chrono::system_clock;
  using SteadyClock = std::chrono::steady_clock;
  auto const deadline = SteadyClock::now() + abortGrace_;
  while (state_ != kFinished) {
    // Measured against the system clock, and over only when the steady one agrees.
    auto const remaining = std::chrono::ceil<SystemClock::duration>(deadline - SteadyClock::now());
    if (condition_.wait_until(lock, SystemClock::now() + remaining) == std::cv_status::timeout &&
        SteadyClock::now() >= deadline) {
      break;
    }
  }
  if (state_ == kFinished) {
    Collect();
    return;
  }
  CSLogger::Log(0, "Task did not respond to abort request: %s", task_->name().c_str());
  task_->abort();
  CSLogger::Log(0, "Task aborted: %s", task_->name().c_str());
}

void TaskSchedularImpl::Collect() {
  worker_.join();
  CSLogger::Log(2, "Task completed: %s", task_->name().c_str());
  task_.reset();
  state_ = kIdle;
}

void TaskSchedularImpl::Work(std::shared_ptr<Task> const& task) {
  try {
    task->preRun();
    if (StopRequested(*task)) {
      CSLogger::Log(0, "Worker aborting task before Run(): %s", task->name().c_str());
      return;
    }
    task->Run();
  } catch (std::exception const& e) {
    CSLogger::Log(0, "Task: %s failed to run: %s", task->name().c_str(), e.what());
    task->onRunFailure(e);
  }
  if (StopRequested(*task)) {
    CSLogger::Log(0, "Worker aborting task after Run(): %s", task->name().c_str());
    return;
  }
  try {
    task->postRun();
  } catch (std::exception const& e) {
    CSLogger::Log(0, "PostRun script failed to run: %s", e.what());
  }
  {
    Lock const lock(mutex_);
    state_ = kFinished;
  }
  condition_.notify_all();
}

/// Ends the task as aborted when the whole scheduler is stopping.
bool TaskSchedularImpl::StopRequested(Task& task) {
  Lock const lock(mutex_);
  if (stop_) {
    task.abort();
    state_ = kFinished;
    condition_.notify_all();
  }
  return stop_;
}

}  // namespace LifeCycle
