#include "platform/tickets/tickets.h"

#include <cstring>
#include <optional>
#include <string>

#include "platform/tickets/ticket_store.h"

namespace {

/// Made when the program starts, since it watches the clock from then on.
Orbane::TicketStore store(Orbane::TicketClocks::OfTheHost());

}  // namespace

bool Ticket_LookupServiceSpecific(char const* ticket, char* service, std::size_t size, int /*reserved1*/,
                                  int /*reserved2*/) {
  if (ticket == nullptr) {
    return false;
  }
  std::optional<std::string> const found = store.Lookup(ticket);
  if (!found || service == nullptr || found->size() >= size) {
    return false;
  }
  std::memcpy(service, found->c_str(), found->size() + 1);
  return true;
}

bool Ticket_Delete(char const* ticket) {
  return ticket != nullptr && store.Delete(ticket);
}
