// Where lines go instead of the system log while tests look at them.
#pragma once

#include <string_view>

namespace Orbane {

class LineSink {
 public:
  /// `text` is as the system log would show it, context included. Any thread; calls come one at a time.
  virtual void Take(int priority, std::string_view text) = 0;
  virtual ~LineSink() = default;
};

/// Test-only. All lines up to `level` go to `sink` from now on; null: to the system log again. Gives the sink
/// that was set before. Returns when no call into the old sink is under way.
LineSink* SetTestOnlyLineSink(LineSink* sink, int level);

}  // namespace Orbane
