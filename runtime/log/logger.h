// The runtime's own logging interface; the process entry connects it to the system log.
#pragma once

#include <memory>
#include <ostream>

namespace Lumo::Log {

/// One line in the making; it is written when the record is destroyed. Belongs to the thread that made it.
class LogRecord {
 public:
  virtual std::ostream& stream() = 0;
  virtual ~LogRecord() = default;
};

/// Levels run from 0 (finest) to 5 (worst). Any thread.
class Logger {
 public:
  /// Makes a record, or leaves it null when the level is off: then nothing is formatted.
  virtual void MakeRecord(int level, std::unique_ptr<LogRecord>& record) const = 0;
  virtual ~Logger() = default;
};

/// Writes one line of the given parts; nothing for a null logger or a level that is off.
template <typename... Parts>
void Write(std::shared_ptr<Logger> const& logger, int level, Parts const&... parts) {
  if (!logger) {
    return;
  }
  std::unique_ptr<LogRecord> record;
  logger->MakeRecord(level, record);
  if (record) {
    (record->stream() << ... << parts);
  }
}

}  // namespace Lumo::Log
