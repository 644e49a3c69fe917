// A task that a test drives.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tasks/task.h"

/// Opens once; waits are bounded at 20 seconds, and give false when it stayed shut.
class Latch {
 public:
  void Open();
  bool Wait();

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool open_ = false;
};

/// Writes down each call; the functions are what it does in them.
class ScriptedTask final : public LifeCycle::Task {
 public:
  explicit ScriptedTask(std::string id) : id_(std::move(id)) {}
  ~ScriptedTask() override;

  void preRun() override;
  void Run() override;
  void onRunFailure(std::exception const& failure) override;
  void postRun() override;
  bool isAborted() const override { return aborted_; }
  void requestAbort() override;
  void abort() override;
  std::string name() const override { return "task-" + id_; }
  std::string id() const override { return id_; }

  std::vector<std::string> Calls() const;

  std::function<void()> inPreRun = [] {};
  std::function<void()> inRun = [] {};
  std::function<void()> inPostRun = [] {};
  std::function<void()> inRequestAbort = [] {};
  /// Opened by the destructor.
  Latch* destroyed = nullptr;

 private:
  void Note(std::string call);

  std::string const id_;
  std::atomic<bool> aborted_{false};
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
};
