// Audit events of the host.
#pragma once

#include <string>
#include <string_view>

struct OrbAuditItem {
  char const* name;
  char const* value;
};

/// One audit event: a line of the system log in the facility authpriv, severity notice when `result` is true,
/// else warning, whose text is one JSON object (see platform/audit/audit_line.h). `items` ends with a pair of
/// null pointers; it may be null, and null texts count as empty. Names of items are the caller's own and
/// differ.
///
/// Never blocks, any thread: the line waits in the log's queue, in a part that is kept for audit events, so
/// that a flood of other lines can't crowd them out. Events that find that part full too are dropped and
/// counted, and the count is logged in the same facility. Before the process has a log output nothing is
/// written.
void OrbAudit_LogList(char const* eventId, char const* subject, char const* object, bool result,
                      OrbAuditItem const* items);

/// A text for OrbAudit_LogList: NULs, at which it would end, are written "#000".
std::string OrbAudit_Text(std::string_view text);
