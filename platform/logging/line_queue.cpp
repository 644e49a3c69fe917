#include "platform/logging/line_queue.h"

#include <cstring>
#include <utility>

namespace Orbane {

/// Stored before each line.
struct LineQueue::Head {
  std::int64_t seconds;
  std::uint32_t size;  // of the text behind it, in bytes
  std::int16_t priority;
  std::int16_t audit;  // 1 for an audit line
};

bool LineQueue::DropIfFull() {
  if (!refusing_.load(std::memory_order_relaxed)) {
    return false;
  }
  dropped_.fetch_add(1, std::memory_order_relaxed);
  return true;
}

bool LineQueue::Push(int priority, std::time_t seconds, std::string_view context, std::string_view text) {
  Head const head{seconds, static_cast<std::uint32_t>(context.size() + text.size()),
                  static_cast<std::int16_t>(priority), 0};
  bool wake = false;
  {
    std::lock_guard lock(mutex_);
    if (refusing_.load(std::memory_order_relaxed) || bytes_.size() + sizeof head + head.size > capacity_) {
      refusing_.store(true, std::memory_order_relaxed);
      dropped_.fetch_add(1, std::memory_order_relaxed);
      return false;
    }
    wake = Store(head, context, text);
  }
  if (wake) {
    readerWake_.notify_one();
  }
  return true;
}

bool LineQueue::PushAudit(int priority, std::time_t seconds, std::string_view text) {
  Head const head{seconds, static_cast<std::uint32_t>(text.size()), static_cast<std::int16_t>(priority), 1};
  bool wake = false;
  {
    std::lock_guard lock(mutex_);
    if (bytes_.size() + sizeof head + head.size > capacity_ + auditRoom_) {
      ++auditDropped_;
      return false;
    }
    wake = Store(head, {}, text);
    if (!hurry_ && bytes_.size() > capacity_ + auditRoom_ / 2) {
      hurry_ = true;
      wake = true;
    }
  }
  if (wake) {
    readerWake_.notify_one();
  }
  return true;
}

bool LineQueue::Store(Head const& head, std::string_view context, std::string_view text) {
  if (bytes_.capacity() < capacity_ + auditRoom_) {
    bytes_.reserve(capacity_ + auditRoom_);  // untouched pages cost nothing
  }
  bytes_.append(reinterpret_cast<char const*>(&head), sizeof head);
  bytes_.append(context);
  bytes_.append(text);
  ++pushed_;
  bool const wake = readerSleeps_;
  readerSleeps_ = false;
  return wake;
}

bool LineQueue::Batch::Next(Line& line) {
  if (position_ == bytes_.size()) {
    return false;
  }
  Head head;
  std::memcpy(&head, bytes_.data() + position_, sizeof head);
  line = {head.priority, head.seconds, head.audit != 0,
          std::string_view(bytes_).substr(position_ + sizeof head, head.size)};
  previous_ = position_;
  position_ += sizeof head + head.size;
  return true;
}

void LineQueue::Take(Batch& batch, Wait wait, std::chrono::milliseconds linger) {
  std::unique_lock lock(mutex_);
  if (wait == Wait::Linger) {
    readerWake_.wait_for(lock, linger, [this] { return flushers_ > 0 || hurry_; });
  } else {
    while (bytes_.empty() && dropped_.load(std::memory_order_relaxed) == 0 && auditDropped_ == 0) {
      readerSleeps_ = true;
      readerWake_.wait(lock);
    }
    readerSleeps_ = false;
  }
  batch.bytes_.clear();
  batch.position_ = batch.previous_ = 0;
  batch.bytes_.swap(bytes_);
  batch.dropped = dropped_.exchange(0, std::memory_order_relaxed);
  batch.auditDropped = std::exchange(auditDropped_, 0);
  refusing_.store(false, std::memory_order_relaxed);
  hurry_ = false;
  taken_ = pushed_;
}

void LineQueue::Done() {
  std::lock_guard lock(mutex_);
  done_ = taken_;
  if (flushers_ > 0) {
    flushWake_.notify_all();
  }
}

void LineQueue::Pause(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  readerWake_.wait_for(lock, time, [this, before = flushes_] { return flushes_ != before; });
}

bool LineQueue::Flush(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  std::uint64_t const wanted = pushed_;
  std::uint64_t const givenUp = givenUp_;
  if (done_ >= wanted) {
    return true;
  }
  ++flushers_;
  ++flushes_;
  readerWake_.notify_one();
  flushWake_.wait_for(lock, limit, [&] { return done_ >= wanted || givenUp_ != givenUp; });
  --flushers_;
  return done_ >= wanted;
}

void LineQueue::GiveUpFlush() {
  std::lock_guard lock(mutex_);
  ++givenUp_;
  if (flushers_ > 0) {
    flushWake_.notify_all();
  }
}

}  // namespace Orbane
