#include "security/require_user_authz.h"

#include <gtest/gtest.h>

#include "tests/support/http/recording_logger.h"
#include "tests/unit/filters/test_provider.h"

namespace {

using Lumo::Authz::AuthzRequireUserConfig;
using Lumo::Authz::Filter::RequireUserAuthz;
using namespace Lumo::Data;
using Lines = std::vector<std::string>;

DataValuePtr User(std::string const& name) {
  auto data = StructValue::GetInstance("UserPassAuthentication");
  data->SetField("username", StringValue::GetInstance(name));
  return data;
}

class RequireUserAuthzTest : public testing::Test {
 protected:
  Seen Call(std::string const& service, DataValuePtr const& authData) {
    auto const filter = std::make_shared<RequireUserAuthz>(queue.Poster(), config, next, logger);
    auto const activation = TestActivation();
    activation->authData(authData);
    next->calls = 0;
    Seen seen;
    filter->Invoke(std::make_shared<Lumo::Core::MethodIdentifier const>(service, "get"),
                   StringValue::GetInstance("in"), activation, seen.Callback());
    answeredInside = seen.answers;
    queue.Run();
    return seen;
  }
  bool Passes(std::string const& service, DataValuePtr const& authData) {
    Seen const seen = Call(service, authData);
    EXPECT_EQ(seen.answers, 1);
    EXPECT_EQ(next->calls, seen.result == next->result ? 1 : 0);
    return next->calls == 1;
  }

  AuthzRequireUserConfig config{{"needs", "both"}, {"anonymous", "both"}, true};
  PostQueue queue;
  int answeredInside = 0;
  std::shared_ptr<TestProvider> next = std::make_shared<TestProvider>();
  std::shared_ptr<Lumo::Transport::TestSupport::RecordingLogger> logger =
      std::make_shared<Lumo::Transport::TestSupport::RecordingLogger>();
};

TEST_F(RequireUserAuthzTest, HasAName) {
  EXPECT_EQ(RequireUserAuthz({}, {}, next, logger).ToString(), "RequireUserAuthz");
}

TEST_F(RequireUserAuthzTest, WithoutAUserOnlyTheAnonymousSetPasses) {
  struct Case {
    char const* service;
    bool othersNeedUser;
    bool passes;
  };
  for (Case const& each :
       {Case{"needs", true, false}, Case{"anonymous", true, true}, Case{"both", true, false},
        Case{"neither", true, false}, Case{"", true, false}, Case{"needs", false, false},
        Case{"anonymous", false, true}, Case{"both", false, false}, Case{"neither", false, true},
        Case{"Anonymous", true, false}, Case{"anonymous.more", true, false}}) {
    config.othersNeedUser = each.othersNeedUser;
    EXPECT_EQ(Passes(each.service, nullptr), each.passes) << each.service << ' ' << each.othersNeedUser;
  }
}

TEST_F(RequireUserAuthzTest, WithAUserAllServicesPass) {
  for (char const* service : {"needs", "anonymous", "both", "neither"}) {
    EXPECT_TRUE(Passes(service, User("alice"))) << service;
  }
  EXPECT_EQ(next->lastInput->ToString(), "\"in\"");
  EXPECT_TRUE(logger->Lines().empty());
}

TEST_F(RequireUserAuthzTest, AuthenticationDataWithoutANameIsNoUser) {
  for (DataValuePtr const& data :
       std::initializer_list<DataValuePtr>{User(""), StructValue::GetInstance("UserPassAuthentication"),
                                           VoidValue::GetInstance(), StringValue::GetInstance("alice")}) {
    EXPECT_FALSE(Passes("needs", data));
  }
}

TEST_F(RequireUserAuthzTest, RefusesWithABareUnauthorizedLater) {
  Seen const seen = Call("needs", nullptr);
  EXPECT_EQ(answeredInside, 0) << "refused inside Invoke";
  ASSERT_EQ(seen.answers, 1);
  EXPECT_FALSE(seen.continues);
  EXPECT_EQ(seen.progress.min, 0);
  EXPECT_EQ(seen.progress.max, 1);
  EXPECT_EQ(seen.progress.current, 1);
  EXPECT_EQ(seen.result->output(), nullptr);
  auto const& error = seen.result->error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.unauthorized");
  EXPECT_EQ(As<StringValue>(As<OptionalValue>(error->Find("error_type"))->Inner())->value(), "UNAUTHORIZED");
  EXPECT_EQ(As<ListValue>(error->Find("messages"))->size(), 0U);
  EXPECT_FALSE(error->HasField("__originator__"));
  EXPECT_EQ(logger->Lines(), (Lines{"3 Call without a user refused: needs.get"}));
}

TEST_F(RequireUserAuthzTest, NeedsNoLogger) {
  logger.reset();
  EXPECT_FALSE(Passes("needs", nullptr));
}

}  // namespace
