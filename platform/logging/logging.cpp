#include "platform/logging/logging.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <mutex>

#include "platform/logging/audit_road.h"
#include "platform/logging/line_sink.h"
#include "platform/logging/syslog_line.h"
#include "platform/logging/syslog_writer.h"

struct LogCfgInterface {
  char const* socketPath;
};

struct LogOutput {
  LogOutput(std::string tag, std::string printableName, LogCfgInterface const& config)
      : name(std::move(printableName)), writer(std::move(tag), config.socketPath) {}

  std::string name;
  std::atomic<int> level{7};
  Orbane::SyslogWriter writer;
};

thread_local std::map<std::string, std::string> CSLogger::CurrentContext;

namespace {

constexpr std::chrono::seconds kFlushLimit{2};
constexpr int kOff = std::numeric_limits<int>::min();
constexpr int kFinestLevel = 7;
/// Lines up to this length are formatted without a heap allocation.
constexpr std::size_t kStackText = 1024;

/// The output that stands, never freed. Set once.
std::atomic<LogOutput*> standing{nullptr};
/// Level that passes: of the test-only sink if there is one, else of the output, else kOff.
std::atomic<int> passing{kOff};

std::mutex sinkMutex;
std::atomic<Orbane::LineSink*> sink{nullptr};
int sinkLevel = kOff;  // guarded by sinkMutex, as changes of `passing` are

void UpdatePassing() {
  LogOutput const* const output = standing.load(std::memory_order_acquire);
  int const outputLevel = output != nullptr ? output->level.load(std::memory_order_relaxed) : kOff;
  passing.store(sink.load(std::memory_order_relaxed) != nullptr ? sinkLevel : outputLevel,
                std::memory_order_release);
}

constexpr int LevelOfPriority(int priority) {
  constexpr int kLevels[] = {1, 3, 5, 6, kFinestLevel};
  return kLevels[std::clamp(priority, 0, 4)];
}

constexpr int PriorityOfLevel(int level) {
  if (level <= 2) {
    return 0;
  }
  if (level <= 4) {
    return 1;
  }
  return std::min(level - 3, 4);
}

std::string ContextText() {
  std::string text;
  for (auto const& [name, value] : CSLogger::CurrentContext) {
    Orbane::AppendContextEntry(text, name, value);
  }
  return text;
}

void GiveToSink(int priority, std::string_view context, std::string_view text) {
  std::string line(context);
  Orbane::AppendLogText(line, text);
  std::lock_guard lock(sinkMutex);
  if (Orbane::LineSink* const taker = sink.load(std::memory_order_relaxed)) {
    taker->Take(priority, line);
  }
}

/// The line of a level that passes.
void WriteLine(int priority, std::string_view text) {
  std::string context;
  if (!CSLogger::CurrentContext.empty()) {
    context = ContextText();
  }
  std::string storage;
  text = Orbane::CutLogText(text, storage);
  if (sink.load(std::memory_order_acquire) != nullptr) {
    GiveToSink(priority, context, text);
  } else if (LogOutput* const output = standing.load(std::memory_order_acquire)) {
    output->writer.Write(priority, context, text);
  }
}

/// Formats and writes a line whose level passes.
__attribute__((format(printf, 2, 0))) void FormatLine(int priority, char const* format, va_list arguments) {
  if (Log_DropIfFull()) {
    return;
  }
  char stackText[kStackText];
  va_list again;
  va_copy(again, arguments);
  int const length = std::vsnprintf(stackText, sizeof stackText, format, arguments);
  if (length < 0) {
    WriteLine(priority, format);  // it can't be formatted; the bare format says more than nothing
  } else if (static_cast<std::size_t>(length) < sizeof stackText) {
    WriteLine(priority, {stackText, static_cast<std::size_t>(length)});
  } else {
    auto const size = static_cast<std::size_t>(length) + 1;
    std::unique_ptr<char[]> const text(new char[size]);
    std::vsnprintf(text.get(), size, format, again);
    WriteLine(priority, {text.get(), size - 1});
  }
  va_end(again);
}

void PrepareFork() {
  standing.load(std::memory_order_acquire)->writer.PrepareFork();
}
void ParentAfterFork() {
  standing.load(std::memory_order_acquire)->writer.ParentAfterFork();
}
void ChildAfterFork() {
  standing.load(std::memory_order_acquire)->writer.ChildAfterFork();
}

}  // namespace

LogCfgInterface* Log_CfgInterface() {
  static LogCfgInterface config{"/dev/log"};
  return &config;
}

LogOutput* Log_NewSyslogOutput(char const* tag, char const* name, int /*flags*/, LogCfgInterface* config) {
  return new LogOutput(tag, name, *config);
}

void Log_SetOutputLevel(LogOutput* output, int level) {
  std::lock_guard lock(sinkMutex);
  output->level.store(level, std::memory_order_relaxed);
  UpdatePassing();
}

bool Log_AddOutput(LogOutput* output) {
  LogOutput* none = nullptr;
  if (output == nullptr || !standing.compare_exchange_strong(none, output, std::memory_order_acq_rel)) {
    return false;
  }
  pthread_atfork(PrepareFork, ParentAfterFork, ChildAfterFork);
  std::atexit(Log_Flush);
  std::lock_guard lock(sinkMutex);
  UpdatePassing();
  return true;
}

void Log_FreeOutput(LogOutput* output) {
  if (output != standing.load(std::memory_order_acquire)) {
    delete output;
  }
}

bool Log_IsEnabled(int level) {
  return level <= passing.load(std::memory_order_relaxed);
}

bool Log_DropIfFull() {
  LogOutput* const output = standing.load(std::memory_order_acquire);
  return output != nullptr && sink.load(std::memory_order_acquire) == nullptr && output->writer.DropIfFull();
}

void Log(int level, char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogV(level, format, arguments);
  va_end(arguments);
}

void LogV(int level, char const* format, va_list arguments) {
  if (Log_IsEnabled(level)) {
    FormatLine(PriorityOfLevel(level), format, arguments);
  }
}

void Log_Flush() {
  if (LogOutput* const output = standing.load(std::memory_order_acquire)) {
    output->writer.Flush(kFlushLimit);
  }
}

void Panic(char const* format, ...) {
  char text[kStackText];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  std::fputs(text, stderr);
  std::fflush(stderr);
  CSLogger::LogText(0, text);
  Log_Flush();
  std::abort();
}

void CSLogger::Log(int priority, char const* format, ...) {
  if (!Log_IsEnabled(LevelOfPriority(priority))) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  FormatLine(std::clamp(priority, 0, 4), format, arguments);
  va_end(arguments);
}

void CSLogger::LogText(int priority, std::string_view text) {
  if (Log_IsEnabled(LevelOfPriority(priority)) && !Log_DropIfFull()) {
    WriteLine(std::clamp(priority, 0, 4), text);
  }
}

void Orbane::LogAudit(bool succeeded, std::string_view text) {
  constexpr int kNotice = 2;
  constexpr int kWarning = 1;
  if (LogOutput* const output = standing.load(std::memory_order_acquire)) {
    std::string storage;
    output->writer.WriteAudit(succeeded ? kNotice : kWarning, CutLogText(text, storage));
  }
}

Orbane::LineSink* Orbane::SetTestOnlyLineSink(LineSink* newSink, int level) {
  std::lock_guard lock(sinkMutex);
  LineSink* const before = sink.exchange(newSink, std::memory_order_acq_rel);
  sinkLevel = level;
  UpdatePassing();
  return before;
}
