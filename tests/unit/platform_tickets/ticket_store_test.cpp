// Runs in the sandbox: the folder is that of the product.
#include "platform/tickets/ticket_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "tests/unit/platform_tickets/ticket_folder.h"

namespace {

namespace fs = std::filesystem;
using Orbane::TicketClocks;
using Orbane::TicketStore;
using Found = std::optional<std::string>;

constexpr char kTicket[] = "mBIe0J5zQ2Yh0iXnB3wXw0m5Xy1nS1cT8Qk2lVb7a9E";
constexpr std::int64_t kHour = 3'600'000;
constexpr std::int64_t kMinute = 60'000;

class Store : public testing::Test {
 protected:
  Store() { EmptyTicketFolder(); }
  ~Store() override { EmptyTicketFolder(); }

  Orbane::TestOnlyLogCapture log;
  std::int64_t wallShift = 0;  // ms
  TicketClocks const host = TicketClocks::OfTheHost();
  TicketStore store{{[this] { return host.wall() + wallShift; }, host.boot}};
};

TEST_F(Store, FindsALivingTicket) {
  Issue(kTicket);
  EXPECT_EQ(store.Lookup(kTicket), Found("Lifecycle"));
  EXPECT_EQ(store.Lookup(kTicket), Found("Lifecycle")) << "a look changes nothing";
  EXPECT_TRUE(fs::exists(TicketPath(kTicket)));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Store, KnowsNoOtherTicket) {
  Issue(kTicket);
  std::string const ticket = kTicket;
  for (std::string const& other :
       {std::string(), std::string("x"), ticket + "x", ticket.substr(1), ticket + '\0', std::string(1, '\0'),
        std::string(1 << 20, 'a'), std::string("../tickets/") + ticket, std::string("/etc/passwd"),
        TicketPath(kTicket), fs::path(TicketPath(kTicket)).filename().string(), std::string("."),
        std::string("\xff\xfe\n\x1b[2J")}) {
    EXPECT_EQ(store.Lookup(other), Found()) << other.substr(0, 80);
    EXPECT_FALSE(store.Delete(other)) << other.substr(0, 80);
  }
  EXPECT_TRUE(fs::exists(TicketPath(kTicket)));
}

TEST_F(Store, TicketsAreAnyText) {
  for (std::string const& ticket :
       {std::string("/"), std::string("a\nb"), std::string("a\0b", 3), std::string(100'000, 'x')}) {
    Issue(ticket);
    EXPECT_EQ(store.Lookup(ticket), Found("Lifecycle"));
    EXPECT_TRUE(store.Delete(ticket));
  }
}

TEST_F(Store, TheEmptyTextIsNoTicketWhateverLiesThere) {
  Issue("");
  EXPECT_EQ(store.Lookup(""), Found());
  EXPECT_FALSE(store.Delete(""));
  EXPECT_TRUE(fs::exists(TicketPath("")));
}

TEST_F(Store, TellsTheServiceAsItStands) {
  for (char const* service : {"Other", "Lifecycle2", "Lifecyc", "lifecycle", " Lifecycle"}) {
    Issue(kTicket, TicketText(service));
    EXPECT_EQ(store.Lookup(kTicket), Found(service));
  }
}

TEST_F(Store, ATicketEndsWithItsTime) {
  Issue(kTicket, TicketText("Lifecycle", std::chrono::seconds(-1)));
  EXPECT_EQ(store.Lookup(kTicket), Found());
  Issue(kTicket, TicketText("Lifecycle", std::chrono::minutes(5)));
  EXPECT_EQ(store.Lookup(kTicket), Found("Lifecycle"));
  wallShift = 5 * kMinute;
  EXPECT_EQ(store.Lookup(kTicket), Found());
}

TEST_F(Store, EndsAtItsVeryMillisecond) {
  std::int64_t wall = 0;
  TicketStore fixed({[&wall] { return wall; }, [&wall] { return wall; }});
  Issue(kTicket, R"({"service":"Lifecycle","expires":"2126-01-01T00:00:00.500Z"})");
  constexpr std::int64_t kEnd = 4922899200500;
  wall = kEnd - 1;
  EXPECT_EQ(fixed.Lookup(kTicket), Found("Lifecycle"));
  wall = kEnd;
  EXPECT_EQ(fixed.Lookup(kTicket), Found());
}

TEST_F(Store, ReadsOnlyRecords) {
  for (std::string const& text :
       {std::string(), std::string("{}"), std::string("Lifecycle"), TicketText() + "}",
        TicketText() + std::string(1024, ' '), std::string(1 << 20, ' ') + TicketText()}) {
    Issue(kTicket, text);
    EXPECT_EQ(store.Lookup(kTicket), Found()) << text.substr(0, 80);
  }
  Issue(kTicket, TicketText() + std::string(1024 - TicketText().size(), ' '));
  EXPECT_EQ(store.Lookup(kTicket), Found("Lifecycle"));
}

TEST_F(Store, TrustsOnlyFilesOfRootAlone) {
  Issue(kTicket);
  std::string const path = TicketPath(kTicket);
  for (mode_t const mode : {0644U, 0640U, 0620U, 0602U, 0604U, 0601U}) {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    EXPECT_EQ(store.Lookup(kTicket), Found()) << std::oct << mode;
  }
  ASSERT_EQ(chmod(path.c_str(), 0400), 0);
  EXPECT_EQ(store.Lookup(kTicket), Found("Lifecycle"));
  ASSERT_EQ(chown(path.c_str(), 2001, 0), 0);
  EXPECT_EQ(store.Lookup(kTicket), Found());
}

TEST_F(Store, FollowsNoLinkAndWaitsForNobody) {
  std::string const path = TicketPath(kTicket);
  std::ofstream("/run/planted") << TicketText();
  ASSERT_EQ(chmod("/run/planted", 0600), 0);
  fs::create_symlink("/run/planted", path);
  EXPECT_EQ(store.Lookup(kTicket), Found());
  EXPECT_TRUE(store.Delete(kTicket));
  EXPECT_TRUE(fs::exists("/run/planted")) << "only the link goes";

  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(store.Lookup(kTicket), Found());
  fs::remove(path);

  fs::create_directory(path);
  ASSERT_EQ(chmod(path.c_str(), 0700), 0);
  EXPECT_EQ(store.Lookup(kTicket), Found());
  EXPECT_FALSE(store.Delete(kTicket));
}

TEST_F(Store, TrustsOnlyFoldersOfRootAlone) {
  Issue(kTicket);
  struct Case {
    char const* folder;
    mode_t mode;
    uid_t owner;
  };
  for (Case const& each :
       {Case{kTicketFolder, 0755, 0}, Case{kTicketFolder, 0750, 0}, Case{kTicketFolder, 0701, 0},
        Case{kTicketFolder, 0700, 2001}, Case{"/run/orbane", 0775, 0}, Case{"/run/orbane", 01777, 0},
        Case{"/run/orbane", 0755, 2001}, Case{"/run", 0757, 0}, Case{"/run", 0755, 2001}}) {
    struct stat before {};
    ASSERT_EQ(stat(each.folder, &before), 0);
    ASSERT_EQ(chmod(each.folder, each.mode), 0);
    ASSERT_EQ(chown(each.folder, each.owner, 0), 0);
    EXPECT_EQ(store.Lookup(kTicket), Found()) << each.folder << ' ' << std::oct << each.mode;
    EXPECT_FALSE(store.Delete(kTicket)) << each.folder << ' ' << std::oct << each.mode;
    ASSERT_EQ(chown(each.folder, 0, 0), 0);
    ASSERT_EQ(chmod(each.folder, before.st_mode & 07777), 0);
    EXPECT_EQ(store.Lookup(kTicket), Found("Lifecycle"));
  }
}

TEST_F(Store, FollowsNoLinkInPlaceOfAFolder) {
  Issue(kTicket);
  for (char const* folder : {kTicketFolder, "/run/orbane"}) {
    fs::rename(folder, "/run/moved");
    EXPECT_EQ(store.Lookup(kTicket), Found()) << folder;
    EXPECT_FALSE(store.Delete(kTicket)) << folder;
    fs::create_symlink("/run/moved", folder);
    EXPECT_EQ(store.Lookup(kTicket), Found()) << folder;
    EXPECT_FALSE(store.Delete(kTicket)) << folder;
    fs::remove(folder);
    fs::rename("/run/moved", folder);
    EXPECT_EQ(store.Lookup(kTicket), Found("Lifecycle"));
  }
}

TEST_F(Store, OneOfManyDeletesIt) {
  constexpr int kThreads = 8;
  for (int round = 0; round < 20; ++round) {
    Issue(kTicket);
    std::barrier allHaveLooked(kThreads);
    std::atomic<int> winners = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        Found const found = store.Lookup(kTicket);
        allHaveLooked.arrive_and_wait();
        winners += found && store.Delete(kTicket) ? 1 : 0;
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(winners, 1);
    EXPECT_EQ(store.Lookup(kTicket), Found());
  }
}

TEST_F(Store, AClockSetBackEndsAllTickets) {
  Issue(kTicket);
  Issue("another");
  fs::create_directory(std::string(kTicketFolder) + "/folder");
  wallShift = -3000;
  EXPECT_EQ(store.Lookup("none"), Found());
  EXPECT_EQ(log.texts(1), (std::vector<std::string>{"The clock was set back: all tickets end."}));
  EXPECT_FALSE(fs::exists(TicketPath(kTicket)));
  EXPECT_FALSE(fs::exists(TicketPath("another")));
  EXPECT_TRUE(fs::exists(std::string(kTicketFolder) + "/folder"));

  log.Clear();
  wallShift = 0;
  Issue(kTicket);
  EXPECT_EQ(store.Lookup(kTicket), Found("Lifecycle")) << "later tickets are as good as ever";
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Store, AClockSetForwardOnlyEndsTicketsEarly) {
  Issue(kTicket);
  wallShift = kHour;
  EXPECT_EQ(store.Lookup(kTicket), Found());
  EXPECT_TRUE(fs::exists(TicketPath(kTicket)));
  wallShift = 0;  // and back: the ticket may be older than it seems
  EXPECT_EQ(store.Lookup(kTicket), Found());
  EXPECT_FALSE(fs::exists(TicketPath(kTicket)));
}

TEST_F(Store, SmallCorrectionsOfTheClockChangeNothingUntilTheyAddUp) {
  Issue(kTicket);
  std::int64_t wall = host.wall() + kMinute;
  std::int64_t const boot = host.boot();
  TicketStore fixed({[&wall] { return wall; }, [boot] { return boot; }});
  wall -= 1500;
  EXPECT_EQ(fixed.Lookup(kTicket), Found("Lifecycle"));
  wall -= 1500;
  EXPECT_EQ(fixed.Lookup(kTicket), Found());
  EXPECT_FALSE(fs::exists(TicketPath(kTicket)));
}

TEST_F(Store, ATicketFromTheFutureIsNone) {
  Issue(kTicket, TicketText("Lifecycle", std::chrono::hours(2)));
  std::int64_t const wall = host.wall() - kHour;  // set back before the store watched
  TicketStore late({[wall] { return wall; }, host.boot});
  EXPECT_EQ(late.Lookup(kTicket), Found());
}

}  // namespace
