// The form of an audit event in the system log, as a pure function.
#pragma once

#include <cstddef>
#include <string>

#include "platform/audit/audit.h"

namespace Orbane {

/// Longest text of an event, in bytes before escaping: identifiers and names are shorter, and what is longer
/// was made up by a caller.
inline constexpr std::size_t kMaxAuditText = 512;
/// No more items than fit a line of so many bytes; the log itself cuts at 32 KiB.
inline constexpr std::size_t kMaxAuditLine = std::size_t{24} * 1024;

/// `{"event":"…","subject":"…","object":"…","result":true,"items":{"name":"value",…}}`, the members always in
/// that order and all there. Pure ASCII, so that no text can forge a line or play tricks on a terminal: what
/// lies outside printable ASCII is written `\uXXXX`, a byte that is no UTF-8 as "#" and three octal digits. A
/// text beyond kMaxAuditText is cut and followed by " [N bytes cut]"; a last item "omitted" tells how many
/// found no room.
std::string AuditLine(char const* eventId, char const* subject, char const* object, bool result,
                      OrbAuditItem const* items);

}  // namespace Orbane
