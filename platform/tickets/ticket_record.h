// What a ticket's file says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Orbane {

struct TicketRecord {
  std::string service;
  std::int64_t expires = 0;  // milliseconds since 1970, UTC
};

/// Reads `{"service":"…","expires":"YYYY-MM-DDTHH:MM:SS.mmmZ"}`, the fraction optional. Nothing for any
/// other text: a member missing, doubled or foreign, a name that is empty or holds a NUL, no real date, bad
/// UTF-8, anything behind the object.
std::optional<TicketRecord> ParseTicketRecord(std::string_view text);

}  // namespace Orbane
