// A thread that a test brings to a halt.
#pragma once

#include <sys/types.h>

#include <set>

/// Kernel ids of this process's threads.
std::set<pid_t> ThreadIds();

/// Keeps one thread where it stands, in a signal handler, until it is let go. One at a time.
class HeldThread {
 public:
  /// Returns once the thread stands still.
  explicit HeldThread(pid_t thread);
  ~HeldThread();
  HeldThread(HeldThread const&) = delete;
  HeldThread& operator=(HeldThread const&) = delete;

  void LetGo();

 private:
  bool held_ = true;
};
