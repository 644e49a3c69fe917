#include "platform/logging/syslog_writer.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <vector>

#include "platform/logging/syslog_line.h"
#include "platform/logging/syslog_socket.h"

namespace Orbane {
namespace {

/// Room for some 8,000 lines of usual length; a burst, not a backlog.
constexpr std::size_t kQueueBytes = std::size_t{1024} * 1024;
/// And for some 4,000 audit events behind them.
constexpr std::size_t kAuditBytes = std::size_t{1024} * 1024;
/// After a batch the thread sleeps so long without being woken by lines, so that under load a wake-up carries
/// many.
constexpr std::chrono::milliseconds kLinger{5};
/// What the system log gets of a lasting flood: 20,000 lines a second. Each line costs the host some 2 us
/// here and 2 us there, so this much takes a twelfth of a processor; what is beyond it is dropped and
/// counted. A burst that fits the queue passes whole.
constexpr std::chrono::microseconds kPauseOfALine{50};
/// What the system log gets to empty its socket, which holds 10 lines by the kernel's default. Waiting for
/// room instead would wake this thread for each line that was taken, and the system log for each that is
/// sent.
constexpr std::chrono::milliseconds kDrainPause{1};
/// So many of them in a row, then the system log stands still and room is waited for.
constexpr int kDrainPauses = 5;
/// Between attempts to reach a system log that isn't there.
constexpr std::chrono::milliseconds kReconnectPause{200};
/// Longest wait in one piece for a system log that is behind.
constexpr std::chrono::milliseconds kWritablePause{200};
/// The priority of what the log says about itself.
constexpr int kOwnPriority = 1;

std::time_t Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);  // lines show seconds
  return now.tv_sec;
}

/// Formats a batch piece by piece and sends it.
class BatchSender {
 public:
  BatchSender(std::string const& tag, std::string const& socketPath, LineQueue& queue)
      : head_(tag, getpid()), socket_(socketPath), queue_(queue), lines_(kMaxLinesPerSend) {}

  /// Gives how many lines the batch held.
  std::size_t Send(LineQueue::Batch& batch) {
    LineQueue::Batch::Line line;
    std::uint64_t lost = 0;
    std::size_t lines = 0;
    while (!batch.empty()) {
      std::size_t size = 0;
      while (size < kMaxLinesPerSend && batch.Next(line)) {
        Format(lines_[size++], line.priority, line.seconds, line.text,
               line.audit ? SyslogFacility::AuthPrivate : SyslogFacility::Daemon);
      }
      lost += SendAll(size);
      lines += size;
    }
    lost += batch.dropped;
    ReportLoss(lost, "log lines", SyslogFacility::Daemon);
    ReportLoss(batch.auditDropped, "audit events", SyslogFacility::AuthPrivate);
    return lines;
  }

 private:
  void Format(std::string& out, int priority, std::time_t seconds, std::string_view text,
              SyslogFacility facility) {
    out.clear();
    head_.Append(out, priority, seconds, facility);
    AppendLogText(out, text);
  }

  void ReportLoss(std::uint64_t count, char const* what, SyslogFacility facility) {
    if (count > 0) {
      Format(lines_[0], kOwnPriority, std::time(nullptr),
             std::to_string(count) + " " + what + " were dropped, the system log did not keep up", facility);
      SendAll(1);
    }
  }

  /// Sends the first `size` of lines_, waiting as long as it takes; gives how many can't be sent at all.
  std::uint64_t SendAll(std::size_t size) {
    std::uint64_t lost = 0;
    std::string_view views[kMaxLinesPerSend];
    for (std::size_t i = 0; i < size; ++i) {
      views[i] = lines_[i];
    }
    std::size_t first = 0;
    int pauses = 0;
    while (first < size) {
      if (!socket_.Connect()) {
        if (!socket_.wasConnected()) {
          queue_.GiveUpFlush();  // there may never be a system log here
        }
        queue_.Pause(kReconnectPause);
        continue;
      }
      std::size_t count = 0;
      switch (socket_.Send(views + first, size - first, count)) {
        case SyslogSocket::Result::Sent:
          first += count;
          pauses = 0;
          break;
        case SyslogSocket::Result::Full:
          if (pauses++ < kDrainPauses) {
            queue_.Pause(kDrainPause);
          } else {
            socket_.WaitWritable(kWritablePause);
          }
          break;
        case SyslogSocket::Result::TooLarge:
          ++first;
          ++lost;
          break;
        case SyslogSocket::Result::Gone:
          break;
      }
    }
    return lost;
  }

  SyslogHead head_;
  SyslogSocket socket_;
  LineQueue& queue_;
  std::vector<std::string> lines_;
};

}  // namespace

SyslogWriter::SyslogWriter(std::string tag, std::string socketPath)
    : tag_(std::move(tag)),
      socketPath_(std::move(socketPath)),
      queue_(new LineQueue(kQueueBytes, kAuditBytes)) {}

SyslogWriter::~SyslogWriter() {
  if (!started_.load(std::memory_order_acquire)) {
    delete queue_;
  }
}

bool SyslogWriter::Write(int priority, std::string_view context, std::string_view text) {
  bool const taken = queue_->Push(priority, Now(), context, text);
  EnsureThread();
  return taken;
}

bool SyslogWriter::WriteAudit(int priority, std::string_view text) {
  bool const taken = queue_->PushAudit(priority, Now(), text);
  EnsureThread();
  return taken;
}

void SyslogWriter::EnsureThread() {
  if (!started_.load(std::memory_order_acquire)) {
    StartThread();
  }
}

bool SyslogWriter::Flush(std::chrono::milliseconds limit) {
  return queue_->Flush(limit);
}

void SyslogWriter::StartThread() {
  std::lock_guard lock(startMutex_);
  if (started_.load(std::memory_order_relaxed)) {
    return;
  }
  sigset_t all;
  sigset_t original;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &original);
  pthread_t thread{};
  // When there can't be a thread now, the next line tries again.
  if (pthread_create(&thread, nullptr, &SyslogWriter::ThreadMain, this) == 0) {
    pthread_detach(thread);
    started_.store(true, std::memory_order_release);
  }
  pthread_sigmask(SIG_SETMASK, &original, nullptr);
}

void* SyslogWriter::ThreadMain(void* self) {
  pthread_setname_np(pthread_self(), "syslog");
  static_cast<SyslogWriter*>(self)->Run();
  return nullptr;
}

void SyslogWriter::Run() {
  BatchSender sender(tag_, socketPath_, *queue_);
  LineQueue::Batch batch;
  auto wait = LineQueue::Wait::Lines;
  std::chrono::milliseconds linger = kLinger;
  for (;;) {
    queue_->Take(batch, wait, linger);
    bool const idle = batch.empty() && batch.dropped == 0 && batch.auditDropped == 0;
    std::size_t const lines = idle ? 0 : sender.Send(batch);
    linger = std::max(kLinger, std::chrono::duration_cast<std::chrono::milliseconds>(lines * kPauseOfALine));
    queue_->Done();
    wait = idle ? LineQueue::Wait::Lines : LineQueue::Wait::Linger;
  }
}

void SyslogWriter::PrepareFork() {
  startMutex_.lock();
  queue_->LockForFork();
}

void SyslogWriter::ParentAfterFork() {
  queue_->UnlockAfterFork();
  startMutex_.unlock();
}

void SyslogWriter::ChildAfterFork() {
  // The old queue's condition variables count a thread that is not in this process: it is left alone.
  queue_->UnlockAfterFork();
  inherited_.push_back(queue_);
  queue_ = new LineQueue(kQueueBytes, kAuditBytes);
  started_.store(false, std::memory_order_relaxed);
  startMutex_.unlock();
}

}  // namespace Orbane
