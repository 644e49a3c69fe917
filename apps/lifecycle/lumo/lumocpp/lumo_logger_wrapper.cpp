#include "apps/lifecycle/lumo/lumocpp/lumo_logger_wrapper.h"

#include <new>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>

#include "platform/logging/logging.h"

namespace Host::Settings::SettingsApi {
namespace {

struct Level {
  int enabledAt;  // what Log_IsEnabled is asked
  int priority;   // of CSLogger
};

Level Translate(int level) {
  static constexpr Level kLevels[] = {{7, 4}, {6, 3}, {5, 2}, {3, 1}, {2, 0}, {1, 0}};
  if (level < 0 || level >= static_cast<int>(std::size(kLevels))) {
    NOT_REACHED();
  }
  return kLevels[level];
}

/// Collects text in a string whose memory stays for the next line.
class TextBuffer final : public std::streambuf {
 public:
  std::string_view text() const { return text_; }
  void Clear() {
    if (text_.capacity() > kKeptCapacity) {
      std::string().swap(text_);
    }
    text_.clear();
  }

 protected:
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      text_.push_back(traits_type::to_char_type(c));
    }
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(char const* text, std::streamsize count) override {
    text_.append(text, static_cast<std::size_t>(count));
    return count;
  }

 private:
  static constexpr std::size_t kKeptCapacity = 4096;
  std::string text_;
};

/// A stream with its buffer. Making one costs more than a line, so a thread keeps those that it made.
class LineStream {
 public:
  std::ostream& stream() { return stream_; }
  std::string_view text() const { return buffer_.text(); }

  /// As new again, whatever manipulators a line used.
  void Reset() {
    buffer_.Clear();
    stream_.clear();
    stream_.flags(std::ios_base::skipws | std::ios_base::dec);
    stream_.precision(6);
    stream_.width(0);
    stream_.fill(' ');
  }

 private:
  TextBuffer buffer_;
  std::ostream stream_{&buffer_};
};

/// What this thread keeps for its next record: a stream, and the memory of the record itself. One of each
/// suffices unless a record is made while another is open.
struct Spare {
  Spare() = default;
  Spare(Spare const&) = delete;
  Spare& operator=(Spare const&) = delete;
  ~Spare() { ::operator delete(memory); }

  std::unique_ptr<LineStream> line;
  void* memory = nullptr;
};

thread_local Spare spare;

}  // namespace

class LumoLoggerWrapper::Record final : public Lumo::Log::LogRecord {
 public:
  explicit Record(int level)
      : level_(level), line_(spare.line ? std::move(spare.line) : std::make_unique<LineStream>()) {}
  Record(Record const&) = delete;
  Record& operator=(Record const&) = delete;
  ~Record() override {
    CSLogger::LogText(Translate(level_).priority, line_->text());
    line_->Reset();
    spare.line = std::move(line_);
  }

  static void* operator new(std::size_t size) {
    return spare.memory ? std::exchange(spare.memory, nullptr) : ::operator new(size);
  }
  static void operator delete(void* memory) { ::operator delete(std::exchange(spare.memory, memory)); }

  std::ostream& stream() override { return line_->stream(); }

 private:
  int level_;
  std::unique_ptr<LineStream> line_;
};

void LumoLoggerWrapper::MakeRecord(int level, std::unique_ptr<Lumo::Log::LogRecord>& record) const {
  if (!Log_IsEnabled(Translate(level).enabledAt) || Log_DropIfFull()) {
    record.reset();
    return;
  }
  record = std::make_unique<Record>(level);
}

}  // namespace Host::Settings::SettingsApi
