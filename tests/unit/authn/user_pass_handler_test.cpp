// Runs in the sandbox: the folder of tickets is that of the product. Passwords go to a stand-in.
#include "security/user_pass_handler.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "security/audit_context.h"
#include "tests/unit/authn/fake_pam_logon.h"
#include "tests/unit/filters/test_provider.h"
#include "tests/unit/platform_tickets/ticket_folder.h"

namespace {

using FakePamLogon::Asked;
using Host::Settings::SettingsApi::Authn::UserPassHandler;
using namespace Lumo::Data;
using Entries = std::map<std::string, std::string>;
using Lines = std::vector<Orbane::CapturedLine>;
using Audit = Api::AuditContext<Entries>;

constexpr char kTicket[] = "mBIe0J5zQ2Yh0iXnB3wXw0m5Xy1nS1cT8Qk2lVb7a9E";

class UserPassHandlerTest : public testing::Test {
 protected:
  UserPassHandlerTest() {
    EmptyTicketFolder();
    FakePamLogon::Take();
    FakePamLogon::Accept(true);
    Reset();
  }

  void Reset(std::string const& opId = "nightly-42") {
    activation = TestActivation(opId);
    observer = std::make_shared<Audit>(Audit::CallEndHook());
    activation->callObserver(observer);
    activation->executionContext()->applicationData()["userBindingInfoKey"] = "127.0.0.1";
    log.Clear();
  }

  /// What the handler reports of these credentials.
  DataValuePtr Authenticate(std::string const& user, std::string const& password) {
    activation->executionContext()->securityContext() = {"com.orbane.lumo.std.security.user_pass",
                                                         {{"userName", user}, {"password", password}}};
    return Report();
  }
  DataValuePtr Report() {
    int reports = 0;
    DataValuePtr reported;
    handler.Authenticate(activation, [&](DataValuePtr const& value) {
      ++reports;
      reported = value;
    });
    EXPECT_EQ(reports, 1) << "once, before it returns";
    return reported;
  }

  /// The user of a success; "refused" for the bare error; anything else is a failure of the test.
  static std::string Outcome(DataValuePtr const& value) {
    if (auto const* const error = As<ErrorValue>(value.get())) {
      EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.unauthenticated");
      EXPECT_EQ(As<StringValue>(As<OptionalValue>(error->Find("error_type"))->Inner())->value(),
                "UNAUTHENTICATED");
      EXPECT_EQ(As<ListValue>(error->Find("messages"))->size(), 0U);
      EXPECT_FALSE(As<OptionalValue>(error->Find("data"))->HasValue());
      EXPECT_FALSE(error->HasField("__originator__"));
      EXPECT_EQ(error->size(), 3U);
      return "refused";
    }
    auto const* const data = As<StructValue>(value.get());
    if (!data) {
      return "nothing";
    }
    EXPECT_EQ(data->name(), "UserPassAuthentication");
    EXPECT_EQ(data->size(), 1U);
    return std::string(As<StringValue>(data->Find("username"))->value());
  }

  UserPassHandler handler;
  std::shared_ptr<Lumo::Core::AsyncActivation> activation;
  std::shared_ptr<Audit> observer;
  Orbane::TestOnlyLogCapture log;
};

TEST_F(UserPassHandlerTest, HasNothingToSayOfOtherContexts) {
  for (Lumo::Core::SecurityContext const& context :
       {Lumo::Core::SecurityContext{},
        Lumo::Core::SecurityContext{"com.orbane.lumo.std.security.bearer_token", {{"token", "t"}}}}) {
    activation->executionContext()->securityContext() = context;
    EXPECT_EQ(Report(), nullptr);
  }
  activation = Lumo::Core::AsyncActivation::GetInstance(nullptr);
  EXPECT_EQ(Report(), nullptr);
  EXPECT_TRUE(FakePamLogon::Take().empty());
  EXPECT_TRUE(observer->auditMap()->empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(UserPassHandlerTest, DifferentTextsAreAPassword) {
  EXPECT_EQ(Outcome(Authenticate("alice", "correct horse")), "alice");
  EXPECT_EQ(FakePamLogon::Take(), (std::vector<Asked>{{"alice", "correct horse", "keeld"}}));
  EXPECT_EQ(*observer->auditMap(), (Entries{{"AUTHN_EVENT_KEY", "service.password.use"},
                                            {"AUTHN_SUBJECT_KEY", "alice"},
                                            {"AUTHN_PARAM_PREFIXip", "127.0.0.1"},
                                            {"AUTHN_PARAM_PREFIXopID", "nightly-42"}}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(UserPassHandlerTest, AWrongPasswordIsToldToLogAndAuditAlone) {
  FakePamLogon::Accept(false);
  EXPECT_EQ(Outcome(Authenticate("alice", "wrong")), "refused");
  EXPECT_EQ(*observer->auditMap(), (Entries{{"AUTHN_EVENT_KEY", "service.password.use"},
                                            {"AUTHN_SUBJECT_KEY", "alice"},
                                            {"AUTHN_PARAM_PREFIXip", "127.0.0.1"},
                                            {"AUTHN_PARAM_PREFIXopID", "nightly-42"},
                                            {"AUTHN_PARAM_PREFIXreason", "Invalid username or password"}}));
  EXPECT_EQ(log.lines(), (Lines{{0, "UserPass authentication failed for user: alice"}}));
}

TEST_F(UserPassHandlerTest, APasswordOfTheUsersNameIsTakenForATicket) {
  EXPECT_EQ(Outcome(Authenticate("alice", "alice")), "refused");
  EXPECT_TRUE(FakePamLogon::Take().empty());
  EXPECT_EQ(observer->auditMap()->at("AUTHN_EVENT_KEY"), "service.lcticket.use");
}

TEST_F(UserPassHandlerTest, AlmostEqualTextsAreAPassword) {
  Issue(kTicket);
  std::string const ticket = kTicket;
  std::string const others[] = {ticket + "x", ticket.substr(1), "", " " + ticket};
  for (std::string const& other : others) {
    EXPECT_EQ(Outcome(Authenticate(ticket, other)), ticket);
    EXPECT_EQ(Outcome(Authenticate(other.empty() ? "a" : other, ticket)), other.empty() ? "a" : other);
  }
  EXPECT_EQ(FakePamLogon::Take().size(), 8U);
  EXPECT_TRUE(std::filesystem::exists(TicketPath(kTicket)));
}

TEST_F(UserPassHandlerTest, EmptyTextsAreATicketThatThereIsNot) {
  EXPECT_EQ(Outcome(Authenticate("", "")), "refused");
  EXPECT_TRUE(FakePamLogon::Take().empty());
  EXPECT_EQ(log.lines(), (Lines{{0, "Ticket authentication failed for ticket: "}}));
  EXPECT_EQ(*observer->auditMap(), (Entries{{"AUTHN_EVENT_KEY", "service.lcticket.use"},
                                            {"AUTHN_SUBJECT_KEY", "@unknown"},
                                            {"AUTHN_PARAM_PREFIXip", "127.0.0.1"},
                                            {"AUTHN_PARAM_PREFIXopID", "nightly-42"},
                                            {"AUTHN_PARAM_PREFIXreason", "Invalid lifecycle ticket"}}));
}

TEST_F(UserPassHandlerTest, ATicketLogsOnOnce) {
  Issue(kTicket);
  EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), kTicket);
  EXPECT_EQ(*observer->auditMap(), (Entries{{"AUTHN_EVENT_KEY", "service.lcticket.use"},
                                            {"AUTHN_SUBJECT_KEY", "@unknown"},
                                            {"AUTHN_PARAM_PREFIXip", "127.0.0.1"},
                                            {"AUTHN_PARAM_PREFIXopID", "nightly-42"},
                                            {"AUTHN_PARAM_PREFIXuniqueID", "***b7a9E"}}));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(std::filesystem::exists(TicketPath(kTicket)));

  Reset();
  EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), "refused");
  EXPECT_EQ(log.lines(), (Lines{{0, std::string("Ticket authentication failed for ticket: ") + kTicket}}));
  EXPECT_EQ(observer->auditMap()->at("AUTHN_PARAM_PREFIXreason"), "Invalid lifecycle ticket");
}

TEST_F(UserPassHandlerTest, ATicketOfAnotherServiceStays) {
  for (char const* service : {"Lifecycle2", "Lifecycle ", "Lifecycl", "Life", "lifecycle", "Other"}) {
    Issue(kTicket, TicketText(service));
    Reset();
    EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), "refused") << service;
    EXPECT_EQ(log.lines(), (Lines{{0, std::string("Ticket's service name invalid, ticket: ") + kTicket +
                                          ", service: " + service}}));
    EXPECT_EQ(observer->auditMap()->at("AUTHN_PARAM_PREFIXreason"), "Invalid lifecycle ticket");
    EXPECT_TRUE(std::filesystem::exists(TicketPath(kTicket)));
  }
}

TEST_F(UserPassHandlerTest, AnExpiredTicketIsNone) {
  Issue(kTicket, TicketText("Lifecycle", std::chrono::seconds(-1)));
  EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), "refused");
  EXPECT_EQ(log.lines(), (Lines{{0, std::string("Ticket authentication failed for ticket: ") + kTicket}}));
}

TEST_F(UserPassHandlerTest, ATicketThatSomebodyElseTakesInBetweenIsNone) {
  // A folder of that name can be looked at by nobody, so the removal is made to fail by its mount.
  Issue(kTicket);
  ASSERT_EQ(std::system("mount --bind /run/orbane/tickets /run/orbane/tickets && "
                        "mount -o remount,bind,ro /run/orbane/tickets"),
            0);
  EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), "refused");
  EXPECT_EQ(log.lines(), (Lines{{0, std::string("Ticket authentication failed for ticket: ") + kTicket}}));
  ASSERT_EQ(std::system("umount /run/orbane/tickets"), 0);
  EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), kTicket);
}

TEST_F(UserPassHandlerTest, NoTextEndsAtANul) {
  Issue(kTicket);
  std::string const nul(1, '\0');
  struct Case {
    std::string user;
    std::string password;
    char const* line;
  };
  Case const cases[] = {
      {"alice" + nul + "x", "correct horse", "UserPass authentication failed for user: alice"},
      {"alice", "correct horse" + nul, "UserPass authentication failed for user: alice"},
      {"alice", nul + "correct horse", "UserPass authentication failed for user: alice"},
      {nul, "correct horse", "UserPass authentication failed for user: "},
      {kTicket + nul, kTicket,
       "UserPass authentication failed for user: mBIe0J5zQ2Yh0iXnB3wXw0m5Xy1nS1cT8Qk2lVb7a9E"},
      {kTicket + nul, kTicket + nul,
       "Ticket authentication failed for ticket: mBIe0J5zQ2Yh0iXnB3wXw0m5Xy1nS1cT8Qk2lVb7a9E"},
      {kTicket + nul + "x", kTicket + nul + "x",
       "Ticket authentication failed for ticket: mBIe0J5zQ2Yh0iXnB3wXw0m5Xy1nS1cT8Qk2lVb7a9E"},
  };
  for (Case const& each : cases) {
    Reset();
    EXPECT_EQ(Outcome(Authenticate(each.user, each.password)), "refused");
    EXPECT_EQ(log.lines(), (Lines{{0, each.line}}));
  }
  EXPECT_TRUE(FakePamLogon::Take().empty());
  EXPECT_TRUE(std::filesystem::exists(TicketPath(kTicket)));
}

TEST_F(UserPassHandlerTest, ShortUniqueIdsAreNotShown) {
  struct Case {
    char const* ticket;
    char const* shown;  // null for nothing
  };
  for (Case const& each : {Case{"a", nullptr}, Case{"abcd", nullptr}, Case{"abcde", nullptr},
                           Case{"abcdef", "***bcdef"}, Case{"abcdefg", "***cdefg"}}) {
    Reset();
    Authenticate(each.ticket, each.ticket);
    auto const& map = *observer->auditMap();
    auto const entry = map.find("AUTHN_PARAM_PREFIXuniqueID");
    if (each.shown) {
      ASSERT_NE(entry, map.end()) << each.ticket;
      EXPECT_EQ(entry->second, each.shown);
    } else {
      EXPECT_EQ(entry, map.end()) << each.ticket;
    }
  }
}

TEST_F(UserPassHandlerTest, EmptyEntriesAreLeftOut) {
  Reset("");
  activation->executionContext()->applicationData().clear();
  EXPECT_EQ(Outcome(Authenticate("", "x")), "");
  EXPECT_EQ(*observer->auditMap(), (Entries{{"AUTHN_EVENT_KEY", "service.password.use"}}));
}

TEST_F(UserPassHandlerTest, EntriesThatAreThereStay) {
  Entries const there{{"AUTHN_EVENT_KEY", "e"},
                      {"AUTHN_SUBJECT_KEY", "s"},
                      {"AUTHN_PARAM_PREFIXip", "i"},
                      {"AUTHN_PARAM_PREFIXopID", "o"},
                      {"AUTHN_PARAM_PREFIXuniqueID", "u"}};
  *observer->auditMap() = there;
  Issue(kTicket);
  EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), kTicket);
  EXPECT_EQ(*observer->auditMap(), there);
}

TEST_F(UserPassHandlerTest, WorksWithoutAnObserver) {
  for (std::shared_ptr<Api::CallObserver> const& other :
       {std::shared_ptr<Api::CallObserver>(),
        std::shared_ptr<Api::CallObserver>(std::make_shared<Api::CallInfo>())}) {
    activation->callObserver(other);
    FakePamLogon::Accept(true);
    EXPECT_EQ(Outcome(Authenticate("alice", "correct horse")), "alice");
    FakePamLogon::Accept(false);
    EXPECT_EQ(Outcome(Authenticate("alice", "wrong")), "refused");
    Issue(kTicket);
    EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), kTicket);
    EXPECT_EQ(Outcome(Authenticate(kTicket, kTicket)), "refused");
  }
}

}  // namespace
