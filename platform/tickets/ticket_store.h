// The folder of tickets.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace Orbane {

/// Clocks in milliseconds: the wall clock since 1970, and the time since boot, which nobody can set and
/// which runs on while the host sleeps.
struct TicketClocks {
  std::function<std::int64_t()> wall;
  std::function<std::int64_t()> boot;

  static TicketClocks OfTheHost();
};

/// Looks tickets up in "/run/orbane/tickets" and removes them. Trusts only what root alone can have put
/// there: no folder on the way and no file may be a link, belong to somebody else, or be open to others.
///
/// A ticket ends with its time on the wall clock. Set forward, that clock only ends tickets early. Set back,
/// it would revive and prolong them, so the next look then drops all tickets that stand; the store notices
/// that by the time since boot, from its construction on. Any thread.
class TicketStore {
 public:
  explicit TicketStore(TicketClocks clocks);

  /// The service that a living ticket is for; nothing for all else.
  std::optional<std::string> Lookup(std::string_view ticket);
  /// Removes the ticket's file. True for the one caller that removed it.
  bool Delete(std::string_view ticket) const;

 private:
  bool ClockWasSetBack();

  TicketClocks clocks_;
  std::mutex mutex_;
  std::int64_t wallAtBoot_;  // guarded by mutex_; where the wall clock put the boot, at the latest
};

}  // namespace Orbane
