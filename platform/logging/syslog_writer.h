// The thread that hands queued lines to the system log.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/logging/line_queue.h"

namespace Orbane {

/// Writes the lines of its queue as datagrams to a local socket. The thread starts with the first line and
/// never ends; objects of this class must live as long as the process. It blocks all signals. The socket is
/// opened when there is something to write, and opened again when the other side went away; meanwhile lines
/// wait in the queue.
class SyslogWriter {
 public:
  SyslogWriter(std::string tag, std::string socketPath);
  ~SyslogWriter();
  SyslogWriter(SyslogWriter const&) = delete;
  SyslogWriter& operator=(SyslogWriter const&) = delete;

  /// Any thread. Never blocks. False when the line was dropped.
  bool Write(int priority, std::string_view context, std::string_view text);
  /// The same for an audit line.
  bool WriteAudit(int priority, std::string_view text);
  /// True when a line would be dropped anyway; it then counts as dropped.
  bool DropIfFull() { return queue_->DropIfFull(); }
  bool Flush(std::chrono::milliseconds limit);

  void PrepareFork();
  void ParentAfterFork();
  /// The child starts with an empty queue and, when it logs, a thread of its own: what was queued is the
  /// parent's.
  void ChildAfterFork();

 private:
  static void* ThreadMain(void* self);
  void Run();
  void EnsureThread();
  void StartThread();

  std::string const tag_;
  std::string const socketPath_;
  std::mutex startMutex_;
  std::atomic<bool> started_{false};
  LineQueue* queue_;                   // never freed: the thread may outlive main
  std::vector<LineQueue*> inherited_;  // of the processes this one was forked from
};

}  // namespace Orbane
