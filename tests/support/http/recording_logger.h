// A logger that keeps its lines.
#pragma once

#include <memory>
#include <mutex>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/log/logger.h"

namespace Lumo::Transport::TestSupport {

/// Lines are kept as "<level> <text>", with pointers replaced by "P". Any thread.
class RecordingLogger final : public Log::Logger {
 public:
  void MakeRecord(int level, std::unique_ptr<Log::LogRecord>& record) const override {
    record = std::make_unique<Record>(*this, level);
  }

  std::vector<std::string> Lines() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return lines_;
  }
  /// The lines, and none are left.
  std::vector<std::string> TakeLines() {
    std::lock_guard<std::mutex> const guard(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  class Record final : public Log::LogRecord {
   public:
    Record(RecordingLogger const& logger, int level) : logger_(logger), level_(level) {}
    ~Record() override { logger_.Add(std::to_string(level_) + " " + stream_.str()); }
    std::ostream& stream() override { return stream_; }

   private:
    RecordingLogger const& logger_;
    int level_;
    std::ostringstream stream_;
  };

  void Add(std::string const& line) const {
    static std::regex const pointer("0x[0-9a-f]+");
    std::lock_guard<std::mutex> const guard(mutex_);
    lines_.push_back(std::regex_replace(line, pointer, "P"));
  }

  mutable std::mutex mutex_;
  mutable std::vector<std::string> lines_;
};

}  // namespace Lumo::Transport::TestSupport
