// System log of the daemon: outputs, priorities, the per-thread context, and Panic.
#pragma once

#include <cstdarg>
#include <map>
#include <string>
#include <string_view>

struct LogCfgInterface;
struct LogOutput;

/// Configuration of the process; static lifetime.
LogCfgInterface* Log_CfgInterface();
/// A new output to the system log under `tag`; `name` is its printable name, `flags` is 0. The system log is
/// reached lazily, and again after it was restarted.
LogOutput* Log_NewSyslogOutput(char const* tag, char const* name, int flags, LogCfgInterface* config);
/// Highest level that passes, 0 to 7.
void Log_SetOutputLevel(LogOutput* output, int level);
/// Registers the output and takes it over; false if refused (one stands already).
bool Log_AddOutput(LogOutput* output);
/// Frees an output that was refused.
void Log_FreeOutput(LogOutput* output);
/// True when an output stands and `level` is at most its level.
bool Log_IsEnabled(int level);
/// True when a line that is logged now would be dropped, the queue being full: the line counts as dropped,
/// and need not be formatted.
bool Log_DropIfFull();
/// One line at a level from 0 (worst) to 7 (finest); the levels 2, 3, 5, 6, 7 are the priorities 0 to 4 of
/// CSLogger, and what lies between belongs to the next finer one.
void Log(int level, char const* format, ...) __attribute__((format(printf, 2, 3)));
void LogV(int level, char const* format, va_list arguments) __attribute__((format(printf, 2, 0)));
/// Waits until all queued lines were handed to the system log, 2 seconds at most.
void Log_Flush();

/// Flushes the log, writes the text to stderr and aborts.
[[noreturn]] void Panic(char const* format, ...) __attribute__((format(printf, 1, 2)));

/// Start-up conditions that must hold.
#define VERIFY(condition)                          \
  do {                                             \
    if (!(condition)) {                            \
      Panic("VERIFY %s:%d\n", __FILE__, __LINE__); \
    }                                              \
  } while (false)
#define NOT_REACHED() Panic("NOT_REACHED %s:%d\n", __FILE__, __LINE__)

class CSLogger {
 public:
  /// One call is one line, whatever is in the text: a control character or a byte that is no UTF-8 is written
  /// as
  /// "#" and three octal digits, one trailing line feed is dropped, and a text beyond 32 KiB is cut.
  /// Priorities 0 (failure) to 4 (finest) are the severities err, warning, notice, info, debug of the
  /// facility daemon. Never blocks: lines are queued for a thread that writes them, and when the queue of 1
  /// MiB is full they are dropped, counted, and the count is logged once there is room. Any thread; also in a
  /// forked child.
  static void Log(int priority, char const* format, ...) __attribute__((format(printf, 2, 3)));
  /// The same for a text that is ready.
  static void LogText(int priority, std::string_view text);

  /// Entries that precede each line of this thread, each as `[opId=…]` and a blank, ordered by name. Brackets
  /// in them are escaped like control characters.
  static thread_local std::map<std::string, std::string> CurrentContext;
};
