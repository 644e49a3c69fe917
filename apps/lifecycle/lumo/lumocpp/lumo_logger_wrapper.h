// The runtime's logging, brought to the system log.
#pragma once

#include <memory>

#include "runtime/log/logger.h"

namespace Host::Settings::SettingsApi {

/// Writes each record as one line through CSLogger when it ends. Without state; any thread.
class LumoLoggerWrapper final : public Lumo::Log::Logger {
 public:
  class Record;

  /// A level that the log does not let through gives a null record, and so does a line that a full log would
  /// drop; that one is counted. A level above 5 is a Panic.
  void MakeRecord(int level, std::unique_ptr<Lumo::Log::LogRecord>& record) const override;
};

}  // namespace Host::Settings::SettingsApi
