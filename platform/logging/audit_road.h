// The road of audit events to the system log, for platform/audit alone.
#pragma once

#include <string_view>

namespace Orbane {

/// Queues one line of the facility authpriv, severity notice for a success, else warning, whatever the
/// output's level; without an output nothing happens. Control characters are escaped as everywhere in the
/// log; the context of the thread is left out. Lines of this kind have a room of 1 MiB of their own behind
/// that of all others and hurry the writer when half of it is taken. Never blocks. Any thread; also in a
/// forked child.
void LogAudit(bool succeeded, std::string_view text);

}  // namespace Orbane
