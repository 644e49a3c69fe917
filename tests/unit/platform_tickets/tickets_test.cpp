#include "platform/tickets/tickets.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/unit/platform_tickets/ticket_folder.h"

namespace {

constexpr char kTicket[] = "mBIe0J5zQ2Yh0iXnB3wXw0m5Xy1nS1cT8Qk2lVb7a9E";

class Tickets : public testing::Test {
 protected:
  Tickets() { EmptyTicketFolder(); }

  /// What the buffer of `size` bytes holds after a look, "?" in front when there was no such ticket.
  static std::string Look(char const* ticket, std::size_t size = 128) {
    std::string buffer(256, '#');
    bool const found = Ticket_LookupServiceSpecific(ticket, buffer.data(), size, 0, 0);
    EXPECT_EQ(buffer.find_first_not_of('#', size), std::string::npos) << "written beyond the buffer";
    return found ? buffer.c_str() : "?" + buffer.substr(0, 3);
  }
};

TEST_F(Tickets, ServiceComesAsACString) {
  EXPECT_EQ(Look(kTicket), "?###");
  Issue(kTicket);
  EXPECT_EQ(Look(kTicket), "Lifecycle");
  EXPECT_EQ(Look(nullptr), "?###");
  EXPECT_EQ(Look(""), "?###");
}

TEST_F(Tickets, ANameThatDoesNotFitIsNoTicket) {
  Issue(kTicket, TicketText(std::string(127, 's')));
  EXPECT_EQ(Look(kTicket), std::string(127, 's'));
  Issue(kTicket, TicketText(std::string(128, 's')));
  EXPECT_EQ(Look(kTicket), "?###");
  Issue(kTicket);
  EXPECT_EQ(Look(kTicket, 10), "Lifecycle");
  EXPECT_EQ(Look(kTicket, 9), "?###");
  EXPECT_EQ(Look(kTicket, 0), "?###");
  EXPECT_FALSE(Ticket_LookupServiceSpecific(kTicket, nullptr, 128, 0, 0));
}

TEST_F(Tickets, AreDeletedOnce) {
  Issue(kTicket);
  EXPECT_TRUE(Ticket_Delete(kTicket));
  EXPECT_FALSE(std::filesystem::exists(TicketPath(kTicket)));
  EXPECT_EQ(Look(kTicket), "?###");
  EXPECT_FALSE(Ticket_Delete(kTicket));
  EXPECT_FALSE(Ticket_Delete(nullptr));
  EXPECT_FALSE(Ticket_Delete(""));
}

}  // namespace
