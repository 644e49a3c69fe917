#include "security/audit_context.h"

#include <gtest/gtest.h>

#include "platform/audit/test_only_audit_capture.h"

namespace {

using Map = std::map<std::string, std::string>;
using Context = Api::AuditContext<Map>;
using Events = std::vector<Orbane::AuditEvent>;

constexpr char kDenied[] = "service.access.denied";

class AuditContextTest : public testing::Test {
 protected:
  /// All that a call is told before it goes on.
  void Feed(std::string target = "a.b.c", std::string user = "alice") {
    std::string scope = "keeld";
    context->SetCallKind(1);
    context->SetCallTarget(target);
    context->SetCallScope(scope);
    context->SetCallUser(user);
  }

  struct HookCall {
    std::shared_ptr<Map> map;
    bool succeeded;
    std::size_t eventsBefore;
  };

  Orbane::TestOnlyAuditCapture audit;
  std::vector<HookCall> hookCalls;
  std::shared_ptr<Context> context =
      std::make_shared<Context>([this](std::shared_ptr<Map> const& given, bool succeeded) {
        hookCalls.push_back({given, succeeded, audit.events().size()});
      });
  Map& map = *context->auditMap();
};

TEST_F(AuditContextTest, TheKeysAreFixed) {
  EXPECT_STREQ(Context::AUTHN_EVENTID, "AUTHN_EVENT_KEY");
  EXPECT_STREQ(Context::AUTHN_SUBJECT, "AUTHN_SUBJECT_KEY");
  EXPECT_STREQ(Context::AUTHN_OBJECT, "AUTHN_OBJECT_KEY");
  EXPECT_STREQ(Context::AUTHN_PREFIX, "AUTHN_PARAM_PREFIX");
  EXPECT_STREQ(Context::AUTHZ_EVENTID, "AUTHZ_EVENT_KEY");
  EXPECT_STREQ(Context::AUTHZ_SUBJECT, "AUTHZ_SUBJECT_KEY");
  EXPECT_STREQ(Context::AUTHZ_OBJECT, "AUTHZ_OBJECT_KEY");
  EXPECT_STREQ(Context::AUTHZ_PREFIX, "AUTHZ_PARAM_PREFIX");
}

TEST_F(AuditContextTest, TheMapComesWithTheObserverAndOutlivesIt) {
  auto const held = context->auditMap();
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(held->size(), 0U);
  context.reset();
  (*held)["later"] = "written";
}

TEST_F(AuditContextTest, PrepareMakesTheBaseEntries) {
  Feed();
  EXPECT_TRUE(context->PrepareAudit());
  EXPECT_EQ(map, (Map{{"eventID", "api.call"}, {"subject", "alice"}, {"object", "keeld:a.b.c"}}));
}

TEST_F(AuditContextTest, PrepareKeepsWhatIsThere) {
  Feed();
  map = {{"eventID", "other.event"}, {"subject", ""}, {"object", "o"}};
  EXPECT_TRUE(context->PrepareAudit());
  EXPECT_EQ(map, (Map{{"eventID", "other.event"}, {"subject", ""}, {"object", "o"}}));
}

TEST_F(AuditContextTest, PrepareWorksOnce) {
  Feed();
  context->PrepareAudit();
  map.clear();
  EXPECT_TRUE(context->PrepareAudit());
  EXPECT_TRUE(map.empty());
}

TEST_F(AuditContextTest, PrepareWithoutUserHasAnEmptySubject) {
  std::string text = "keeld";
  context->SetCallScope(text);
  text = "t";
  context->SetCallTarget(text);
  EXPECT_TRUE(context->PrepareAudit());
  EXPECT_EQ(map.at("subject"), "");
}

TEST_F(AuditContextTest, PrepareWithoutTargetThrows) {
  std::string text = "keeld";
  context->SetCallScope(text);
  EXPECT_THROW(context->PrepareAudit(), std::bad_optional_access);
  EXPECT_EQ(map, (Map{{"eventID", "api.call"}, {"subject", ""}}));
  text = "t";
  context->SetCallTarget(text);
  EXPECT_TRUE(context->PrepareAudit()) << "it was not prepared yet";
  EXPECT_EQ(map.at("object"), "keeld:t");
}

TEST_F(AuditContextTest, PrepareWithoutScopeThrows) {
  std::string text = "t";
  context->SetCallTarget(text);
  EXPECT_THROW(context->PrepareAudit(), std::bad_optional_access);
  EXPECT_EQ(map, (Map{{"eventID", "api.call"}, {"subject", ""}}));
}

TEST_F(AuditContextTest, TheStatusPreparesWhereNobodyDid) {
  Feed();
  context->SetCallStatus(0);
  ASSERT_EQ(hookCalls.size(), 1U);
  EXPECT_EQ(map.at("object"), "keeld:a.b.c");
}

TEST_F(AuditContextTest, AStatusWithoutWhatPrepareNeedsThrows) {
  EXPECT_THROW(context->SetCallStatus(0), std::bad_optional_access);
  EXPECT_EQ(context->callStatus(), 0U) << "stored before";
  EXPECT_EQ(hookCalls.size(), 0U);
}

TEST_F(AuditContextTest, WithoutHookNothingHappens) {
  context = std::make_shared<Context>(nullptr);
  auto const held = context->auditMap();
  held->emplace(Context::AUTHN_EVENTID, "e");
  context->SetCallKind(1);
  context->SetCallStatus(2);
  EXPECT_EQ(held->size(), 1U) << "not even prepared";
  EXPECT_EQ(audit.events(), Events{});
}

TEST_F(AuditContextTest, TheHookIsToldWhetherTheCallSucceeded) {
  Feed();
  for (std::uint32_t const status : {0U, 1U, 2U, 3U, 4U}) {
    hookCalls.clear();
    context->SetCallStatus(status);
    ASSERT_EQ(hookCalls.size(), 1U);
    EXPECT_EQ(hookCalls[0].map, context->auditMap());
    EXPECT_EQ(hookCalls[0].succeeded, status == 0) << status;
  }
}

TEST_F(AuditContextTest, TheHookComesLast) {
  Feed();
  map.emplace(Context::AUTHN_EVENTID, "e");
  context->SetCallStatus(3);
  ASSERT_EQ(hookCalls.size(), 1U);
  EXPECT_EQ(hookCalls[0].eventsBefore, 2U);
}

TEST_F(AuditContextTest, TheAuthenticationEventFailsForStatusTwoAlone) {
  Feed();
  map.emplace(Context::AUTHN_EVENTID, "service.password.use");
  for (std::uint32_t const status : {0U, 1U, 2U, 4U}) {
    Orbane::TestOnlyAuditCapture inner;
    context->SetCallStatus(status);
    EXPECT_EQ(inner.events(), (Events{{"service.password.use", "alice", "a.b.c", status != 2, {}}}))
        << status;
  }
}

TEST_F(AuditContextTest, SubjectAndObjectOfTheAuthenticationComeFromTheMapFirst) {
  Feed();
  map = {{Context::AUTHN_EVENTID, "e"}, {Context::AUTHN_SUBJECT, "s"}, {Context::AUTHN_OBJECT, "o"}};
  context->SetCallStatus(2);
  EXPECT_EQ(audit.events(), (Events{{"e", "s", "o", false, {}}}));
}

TEST_F(AuditContextTest, AnEmptySubjectInTheMapCountsToo) {
  Feed();
  map = {{Context::AUTHN_EVENTID, "e"}, {Context::AUTHN_SUBJECT, ""}};
  context->SetCallStatus(0);
  EXPECT_EQ(audit.events(), (Events{{"e", "", "a.b.c", true, {}}}));
}

TEST_F(AuditContextTest, ItemsHavePlainNamesInTheOrderOfKeys) {
  Feed();
  std::string const prefix = Context::AUTHN_PREFIX;
  map = {{Context::AUTHN_EVENTID, "e"},    {prefix + "uniqueID", "***56789"}, {prefix + "ip", "::1"},
         {prefix + "reason", "no"},        {prefix + "opID", "a.b.c"},        {prefix, "bare"},
         {"AUTHN_PARAM_PREFI", "shorter"}, {"AUTHZ_PARAM_PREFIXx", "other"}};
  context->SetCallStatus(2);
  EXPECT_EQ(
      audit.events(),
      (Events{
          {"e",
           "alice",
           "a.b.c",
           false,
           {{"", "bare"}, {"ip", "::1"}, {"opID", "a.b.c"}, {"reason", "no"}, {"uniqueID", "***56789"}}}}));
}

TEST_F(AuditContextTest, ADeniedAccessHasAnEventOfItsOwn) {
  Feed();
  context->SetCallStatus(3);
  EXPECT_EQ(audit.events(), (Events{{kDenied, "alice", "a.b.c", false, {}}}));
}

TEST_F(AuditContextTest, TheDeniedAccessIsDescribedByTheMapFirst) {
  Feed();
  map = {{Context::AUTHZ_EVENTID, "own.event"},
         {Context::AUTHZ_SUBJECT, "s"},
         {Context::AUTHZ_OBJECT, "o"},
         {std::string(Context::AUTHZ_PREFIX) + "privilege", "Software.Apply"},
         {std::string(Context::AUTHN_PREFIX) + "ip", "not here"}};
  context->SetCallStatus(3);
  EXPECT_EQ(audit.events(), (Events{{"own.event", "s", "o", false, {{"privilege", "Software.Apply"}}}}));
}

TEST_F(AuditContextTest, ADeniedAccessFollowsTheAuthenticationThatSucceeded) {
  Feed();
  map.emplace(Context::AUTHN_EVENTID, "service.password.use");
  context->SetCallStatus(3);
  EXPECT_EQ(audit.events(), (Events{{"service.password.use", "alice", "a.b.c", true, {}},
                                    {kDenied, "alice", "a.b.c", false, {}}}));
}

TEST_F(AuditContextTest, OtherKindsOfCallSendNeither) {
  for (std::uint32_t const kind : {0U, 2U, 4'294'967'295U}) {
    Feed();
    context->SetCallKind(kind);
    map.emplace(Context::AUTHN_EVENTID, "e");
    hookCalls.clear();
    context->SetCallStatus(3);
    EXPECT_EQ(audit.events(), Events{}) << kind;
    EXPECT_EQ(hookCalls.size(), 1U);
  }
}

TEST_F(AuditContextTest, ACallWithoutKindSendsNeither) {
  std::string text = "keeld";
  context->SetCallScope(text);
  text = "t";
  context->SetCallTarget(text);
  map.emplace(Context::AUTHN_EVENTID, "e");
  context->SetCallStatus(3);
  EXPECT_EQ(audit.events(), Events{});
  EXPECT_EQ(hookCalls.size(), 1U);
}

TEST_F(AuditContextTest, AnEmptyEventIdOrObjectIsReportedInstead) {
  struct Case {
    std::string event;
    std::string object;
    std::string reason;
  };
  constexpr char kReason[] = "One or more mandatory string arguments to function are empty. eventId:";
  Feed();
  for (Case const& each : {Case{"", "o", ";subject:s;object:o"}, Case{"e", "", "e;subject:s;object:"},
                           Case{"", "", ";subject:s;object:"}}) {
    Orbane::TestOnlyAuditCapture inner;
    map = {{Context::AUTHN_EVENTID, each.event},
           {Context::AUTHN_SUBJECT, "s"},
           {Context::AUTHN_OBJECT, each.object},
           {std::string(Context::AUTHN_PREFIX) + "ip", "lost"}};
    context->SetCallStatus(0);
    EXPECT_EQ(inner.events(), (Events{{"product.issue",
                                       "",
                                       "ryn",
                                       false,
                                       {{"reason", kReason + each.reason}, {"location", "Service audit"}}}}));
  }
}

TEST_F(AuditContextTest, AnEmptyTargetOfADeniedCallIsReportedInstead) {
  Feed("", "mallory");
  context->SetCallStatus(3);
  ASSERT_EQ(audit.events().size(), 1U);
  EXPECT_EQ(audit.events()[0].event, "product.issue");
  EXPECT_EQ(audit.events()[0].items[0].second,
            "One or more mandatory string arguments to function are empty. "
            "eventId:service.access.denied;subject:mallory;object:");
}

TEST_F(AuditContextTest, NothingHidesBehindANul) {
  using namespace std::string_literals;
  Feed("a.b\0.c"s, "root\0mallory"s);
  map = {{Context::AUTHN_EVENTID, "e\0f"s}, {std::string(Context::AUTHN_PREFIX) + "x\0y"s, "1\0002"s}};
  context->SetCallStatus(0);
  EXPECT_EQ(audit.events(),
            (Events{{"e#000f", "root#000mallory", "a.b#000.c", true, {{"x#000y", "1#0002"}}}}));
}

}  // namespace
