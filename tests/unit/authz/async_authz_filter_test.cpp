#include "security/async_authz_filter.h"

#include <gtest/gtest.h>

#include "tests/support/http/recording_logger.h"
#include "tests/unit/filters/test_provider.h"

namespace {

using namespace Lumo::Data;
using Lumo::Authz::Filter::AsyncAuthzFilter;
using Lumo::Transport::TestSupport::RecordingLogger;
using Names = std::list<std::string>;

constexpr char kToken[] = "com.orbane.lumo.std.security.bearer_token";
constexpr char kNone[] = "com.orbane.lumo.std.security.no_authentication";

/// Entitles as it is told, and keeps what it was asked.
class TestChecker final : public Lumo::Authz::EntitlementChecker {
 public:
  bool IsEntitled(DataValue const& authentication, Names const& privileges) override {
    asked = authentication.ToString();
    for (std::string const& privilege : privileges) {
      asked += " " + privilege;
    }
    return entitled;
  }
  bool entitled = true;
  std::string asked;
};

class AsyncAuthzFilterTest : public testing::Test {
 protected:
  static Lumo::Authz::AuthzInfo Info() {
    Lumo::Authz::AuthzInfo info;
    info.noAuthenticationOperations = {"open.get"};
    info.operationSchemes = {
        {"s.view", {"user_pass", kToken}}, {"s.both", {kToken}},  {"s.basic", {"user_pass"}},
        {"s.unlisted", {kToken}},          {"s.public", {kNone}}, {"s.odd", {kNone}}};
    info.operationPrivileges = {{"s.view", {"View"}},
                                {"s.both", {"A", "B"}},
                                {"s.basic", {"View"}},
                                {"s.schemeless", {"View"}},
                                {"s.odd", {"View"}}};
    return info;
  }

  Seen Call(std::string const& service, std::string const& operation, DataValuePtr const& authData,
            std::string const& scheme = kToken) {
    auto const activation = TestActivation();
    activation->authData(authData);
    activation->executionContext()->securityContext().schemeId = scheme;
    Seen seen;
    checker->asked.clear();
    next->calls = 0;
    filter->Invoke(std::make_shared<Lumo::Core::MethodIdentifier const>(service, operation), input,
                   activation, seen.Callback());
    answeredInside = seen.answers;
    queue.Run();
    return seen;
  }
  void ExpectPassed(Seen const& seen) {
    EXPECT_EQ(next->calls, 1);
    EXPECT_EQ(next->lastInput, input);
    EXPECT_EQ(seen.answers, 1);
    EXPECT_EQ(seen.result, next->result);
    EXPECT_EQ(seen.progress.current, 4);
    EXPECT_TRUE(seen.continues);
    EXPECT_EQ(logger->TakeLines(), std::vector<std::string>{});
  }
  void ExpectRefused(Seen const& seen, std::string const& line) {
    EXPECT_EQ(next->calls, 0);
    EXPECT_EQ(answeredInside, 0) << "refused inside Invoke";
    ASSERT_EQ(seen.answers, 1);
    EXPECT_FALSE(seen.continues);
    EXPECT_EQ(seen.result->output(), nullptr);
    auto const& error = seen.result->error();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.unauthorized");
    EXPECT_EQ(As<ListValue>(error->Find("messages"))->size(), 0U);
    EXPECT_EQ(As<StringValue>(As<OptionalValue>(error->Find("error_type"))->Inner())->value(),
              "UNAUTHORIZED");
    EXPECT_FALSE(error->HasField("__originator__"));
    EXPECT_EQ(seen.progress.current, 1);
    EXPECT_EQ(logger->TakeLines(), std::vector<std::string>{"3 Access to " + line});
  }

  DataValuePtr const input = StructValue::GetInstance("input");
  DataValuePtr const someone = StructValue::GetInstance("TokenAuthentication");
  PostQueue queue;
  int answeredInside = 0;
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  std::shared_ptr<TestChecker> checker = std::make_shared<TestChecker>();
  std::shared_ptr<TestProvider> next = std::make_shared<TestProvider>();
  std::shared_ptr<AsyncAuthzFilter> filter =
      std::make_shared<AsyncAuthzFilter>(queue.Poster(), next, Info(), checker, logger);
};

TEST_F(AsyncAuthzFilterTest, HasAName) {
  EXPECT_EQ(filter->ToString(), "AsyncAuthzFilter");
}

TEST_F(AsyncAuthzFilterTest, OperationsOfTheSetNeedNobody) {
  ExpectPassed(Call("open", "get", nullptr, ""));
  ExpectPassed(Call("open", "get", someone));
  EXPECT_EQ(checker->asked, "");
}

TEST_F(AsyncAuthzFilterTest, OperationsOfTheOpenSchemeNeedNobody) {
  ExpectPassed(Call("s", "public", nullptr, ""));
  EXPECT_EQ(checker->asked, "");
}

TEST_F(AsyncAuthzFilterTest, PrivilegesWeighMoreThanTheOpenScheme) {
  ExpectRefused(Call("s", "odd", nullptr, ""), "s.odd denied: the caller is not known");
}

TEST_F(AsyncAuthzFilterTest, WithoutAUserAllElseIsRefusedAlike) {
  for (char const* const operation : {"view", "both", "basic", "unlisted", "nothing", ""}) {
    ExpectRefused(Call("s", operation, nullptr, ""),
                  std::string("s.") + operation + " denied: the caller is not known");
  }
  ExpectRefused(Call("none", "get", nullptr, ""), "none.get denied: the caller is not known");
  ExpectRefused(Call("open", "list", nullptr, ""), "open.list denied: the caller is not known");
}

TEST_F(AsyncAuthzFilterTest, CheckerDecidesByAuthenticationAndPrivileges) {
  ExpectPassed(Call("s", "view", someone));
  EXPECT_EQ(checker->asked, "TokenAuthentication{} View");
  ExpectPassed(Call("s", "both", someone));
  EXPECT_EQ(checker->asked, "TokenAuthentication{} A B");
  checker->entitled = false;
  ExpectRefused(Call("s", "view", someone), "s.view denied: the caller is not entitled to it");
}

TEST_F(AsyncAuthzFilterTest, OperationsWithoutAnEntryAreRefused) {
  ExpectRefused(Call("s", "unlisted", someone), "s.unlisted denied: nobody may call it");
  ExpectRefused(Call("s", "schemeless", someone), "s.schemeless denied: nobody may call it");
  ExpectRefused(Call("none", "get", someone), "none.get denied: nobody may call it");
  EXPECT_EQ(checker->asked, "");
}

TEST_F(AsyncAuthzFilterTest, CredentialsAreOfASchemeThatTheOperationTakes) {
  ExpectRefused(Call("s", "basic", someone), "s.basic denied: it takes other credentials");
  ExpectRefused(Call("s", "view", someone, ""), "s.view denied: it takes other credentials");
}

TEST_F(AsyncAuthzFilterTest, NamesAreHeldAsWhole) {
  ExpectRefused(Call("open.get", "", nullptr, ""), "open.get. denied: the caller is not known");
  ExpectRefused(Call("Open", "get", nullptr, ""), "Open.get denied: the caller is not known");
  ExpectRefused(Call("s", "VIEW", someone), "s.VIEW denied: nobody may call it");
}

}  // namespace
