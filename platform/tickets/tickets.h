// Single-use logon tickets: the platform's operations on them.
//
// A ticket is a text that only its issuer and its holder know. It stands as the file
// "/run/orbane/tickets/<SHA-256 of the text in lower-case hexadecimal>", which holds
// {"service":"Lifecycle","expires":"2026-01-31T12:00:00.000Z"}.
#pragma once

#include <cstddef>

/// True when `ticket` names a ticket that has not expired: then `service` has the name of the service that
/// it is for as a C string. False, leaving `service` alone, for everything else: no such ticket, files or
/// folders that root does not own alone, a name that does not fit into `size` bytes. The last two arguments
/// are reserved and 0. Any thread.
bool Ticket_LookupServiceSpecific(char const* ticket, char* service, std::size_t size, int reserved1,
                                  int reserved2);

/// Destroys a ticket. Of all callers, in all processes, that try it at once, exactly one gets true. Any
/// thread.
bool Ticket_Delete(char const* ticket);
