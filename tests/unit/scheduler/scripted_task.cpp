#include "scripted_task.h"

#include <chrono>

void Latch::Open() {
  std::lock_guard const lock(mutex_);
  open_ = true;
  condition_.notify_all();
}

bool Latch::Wait() {
  std::unique_lock lock(mutex_);
  return condition_.wait_for(lock, std::chrono::seconds(20), [this] { return open_; });
}

ScriptedTask::~ScriptedTask() {
  if (destroyed != nullptr) {
    destroyed->Open();
  }
}

void ScriptedTask::preRun() {
  Note("preRun");
  inPreRun();
}

void ScriptedTask::Run() {
  Note("Run");
  inRun();
}

void ScriptedTask::onRunFailure(std::exception const& failure) {
  Note(std::string("onRunFailure ") + failure.what());
}

void ScriptedTask::postRun() {
  Note("postRun");
  inPostRun();
}

void ScriptedTask::requestAbort() {
  Note("requestAbort");
  aborted_ = true;
  inRequestAbort();
}

void ScriptedTask::abort() {
  Note("abort");
}

std::vector<std::string> ScriptedTask::Calls() const {
  std::lock_guard const lock(mutex_);
  return calls_;
}

void ScriptedTask::Note(std::string call) {
  std::lock_guard const lock(mutex_);
  calls_.push_back(std::move(call));
}
