// The bounded queue between those who log and the thread that writes.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <string>
#include <string_view>

namespace Orbane {

/// Lines in order of arrival, any number of writers, one reader. Writers never wait for the reader; they wake
/// it only when it sleeps without a time limit, so a burst of lines costs one wake-up.
class LineQueue {
 public:
  /// Holds lines of `capacity` bytes together, heads of 16 bytes each included, and `auditRoom` bytes more of
  /// audit lines.
  explicit LineQueue(std::size_t capacity, std::size_t auditRoom = 0)
      : capacity_(capacity), auditRoom_(auditRoom) {}

  /// False when the queue is full: the line then counts as dropped, and so do all that follow until the
  /// reader has taken what is there. `context` and `text` are stored one behind the other, the raw bytes.
  bool Push(int priority, std::time_t seconds, std::string_view context, std::string_view text);
  /// The same for an audit line, which is taken as long as there is room of either kind, while other lines
  /// are refused too. One that finds half of the audit room taken wakes the reader from Linger.
  bool PushAudit(int priority, std::time_t seconds, std::string_view text);
  /// True when a Push would surely be refused. Counts one drop if so; meant to save the formatting.
  bool DropIfFull();

  /// What the reader gets at once.
  class Batch {
   public:
    struct Line {
      int priority;
      std::time_t seconds;
      bool audit;
      std::string_view text;  // valid until the batch is changed
    };
    /// The next line in `line`; false at the end.
    bool Next(Line& line);
    /// Goes one line back in effect: the line that Next gave last is given again.
    void PutBack() { position_ = previous_; }
    bool empty() const { return position_ == bytes_.size(); }
    /// Lines that were refused before the batch was taken, audit lines apart.
    std::uint64_t dropped = 0;
    std::uint64_t auditDropped = 0;

   private:
    friend class LineQueue;
    std::string bytes_;
    std::size_t position_ = 0;
    std::size_t previous_ = 0;
  };

  enum class Wait { Lines, Linger };
  /// Reader only. With `Lines` sleeps until there is something, with `Linger` for `linger` or until a flush
  /// is asked for, unwoken by lines but for those of PushAudit. Then swaps what is there into `batch`, whose
  /// former content is discarded.
  void Take(Batch& batch, Wait wait, std::chrono::milliseconds linger);
  /// Reader only: the batch taken last was handed on.
  void Done();
  /// Reader only: sleeps for `time` or until another flush is asked for.
  void Pause(std::chrono::milliseconds time);

  /// Waits until all lines that are in the queue now were handed on, for `limit` at most, or until
  /// `GiveUpFlush`.
  bool Flush(std::chrono::milliseconds limit);
  /// Reader only: lets those go who wait in Flush, since the lines can't be handed on for now.
  void GiveUpFlush();

  /// For a fork: lock before, unlock in the parent, and in the child reset to an empty queue without reader.
  void LockForFork() { mutex_.lock(); }
  void UnlockAfterFork() { mutex_.unlock(); }

 private:
  struct Head;

  /// With the lock held. The line is stored; true when the reader has to be woken.
  bool Store(Head const& head, std::string_view context, std::string_view text);

  std::size_t const capacity_;
  std::size_t const auditRoom_;
  std::mutex mutex_;
  std::condition_variable readerWake_;
  std::condition_variable flushWake_;
  std::string bytes_;                  // records: a head, then the text
  std::atomic<bool> refusing_{false};  // a line was refused since the reader took the others
  std::atomic<std::uint64_t> dropped_{0};
  std::uint64_t auditDropped_ = 0;
  bool hurry_ = false;         // half of the audit room is taken
  bool readerSleeps_ = false;  // in Take(Lines)
  unsigned flushers_ = 0;      // waiting in Flush
  std::uint64_t flushes_ = 0;  // calls of Flush that had to wait
  std::uint64_t pushed_ = 0;   // counts of lines
  std::uint64_t taken_ = 0;
  std::uint64_t done_ = 0;
  std::uint64_t givenUp_ = 0;  // counts of GiveUpFlush
};

}  // namespace Orbane
