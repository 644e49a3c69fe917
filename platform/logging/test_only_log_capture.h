// Test-only: catches what the program logs.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "platform/logging/line_sink.h"

namespace Orbane {

struct CapturedLine {
  int priority;
  std::string text;
  bool operator==(CapturedLine const&) const = default;
  friend std::ostream& operator<<(std::ostream& out, CapturedLine const& line) {
    return out << line.priority << " \"" << line.text << '"';
  }
};

/// While it lives, lines of all threads are kept here and don't reach the system log. The innermost one
/// catches.
///
///   Orbane::TestOnlyLogCapture log;
///   Start();
///   EXPECT_EQ(log.lines(), (std::vector<Orbane::CapturedLine>{{2, "started"}}));
class TestOnlyLogCapture final : private LineSink {
 public:
  /// Lines up to that level, as Log_IsEnabled then tells.
  explicit TestOnlyLogCapture(int level = 7);
  ~TestOnlyLogCapture() override;
  TestOnlyLogCapture(TestOnlyLogCapture const&) = delete;
  TestOnlyLogCapture& operator=(TestOnlyLogCapture const&) = delete;

  std::vector<CapturedLine> lines() const;
  /// The texts alone, of the given priority or, with -1, of all.
  std::vector<std::string> texts(int priority = -1) const;
  /// True when a line holds `part`.
  bool Contains(std::string const& part) const;
  void Clear();

 private:
  void Take(int priority, std::string_view text) override;

  std::vector<CapturedLine> lines_;
  LineSink* outer_;
  int outerLevel_;
};

}  // namespace Orbane
