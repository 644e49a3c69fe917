#include "security/jwt_entitlement_checker_impl.h"

#include <gtest/gtest.h>

#include "tests/support/http/recording_logger.h"

namespace {

using namespace Lumo::Data;
using Lumo::Transport::TestSupport::RecordingLogger;
using Names = std::list<std::string>;

DataValuePtr Authentication(std::string const& name, Names const& entitlements) {
  auto const list = ListValue::GetInstance(ListValue::Form::List);
  for (std::string const& entitlement : entitlements) {
    list->Add(StringValue::GetInstance(entitlement));
  }
  auto authentication = StructValue::GetInstance(name);
  authentication->SetField("username", StringValue::GetInstance("alice"));
  authentication->SetField("entitlements", list);
  return authentication;
}

class JwtEntitlementCheckerImplTest : public testing::Test {
 protected:
  bool IsEntitled(DataValuePtr const& authentication, Names const& privileges) {
    return checker.IsEntitled(*authentication, privileges);
  }

  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  RynToken::Authz::JwtEntitlementCheckerImpl checker{logger};
};

TEST_F(JwtEntitlementCheckerImplTest, EveryPrivilegeIsNeeded) {
  struct Case {
    Names entitlements;
    Names privileges;
    bool entitled;
  };
  for (Case const& c : {
           Case{{"View"}, {"View"}, true},
           Case{{"Other", "View"}, {"View"}, true},
           Case{{"Change", "View"}, {"View", "Change"}, true},
           Case{{"View"}, {"View", "Change"}, false},
           Case{{"Change"}, {"View", "Change"}, false},
           Case{{}, {"View"}, false},
           Case{{"view"}, {"View"}, false},
           Case{{"View "}, {"View"}, false},
           Case{{"ViewAll"}, {"View"}, false},
           Case{{"Vie"}, {"View"}, false},
           Case{{"*"}, {"View"}, false},
           Case{{""}, {"View"}, false},
           Case{{"View"}, {}, false},
       }) {
    EXPECT_EQ(IsEntitled(Authentication("TokenAuthentication", c.entitlements), c.privileges), c.entitled);
  }
}

TEST_F(JwtEntitlementCheckerImplTest, WhatIsMissingIsLogged) {
  EXPECT_FALSE(IsEntitled(Authentication("TokenAuthentication", {"View"}), {"View", "Change"}));
  EXPECT_EQ(logger->TakeLines(), std::vector<std::string>{"3 The token lacks the entitlement Change"});
  EXPECT_TRUE(IsEntitled(Authentication("TokenAuthentication", {"View"}), {"View"}));
  EXPECT_TRUE(logger->TakeLines().empty());
}

TEST_F(JwtEntitlementCheckerImplTest, OtherAuthenticationDataEntitlesToNothing) {
  auto const without = StructValue::GetInstance("TokenAuthentication");
  without->SetField("username", StringValue::GetInstance("alice"));
  auto const text = StructValue::GetInstance("TokenAuthentication");
  text->SetField("entitlements", StringValue::GetInstance("View"));
  auto const numbers = StructValue::GetInstance("TokenAuthentication");
  auto const list = ListValue::GetInstance(ListValue::Form::List);
  list->Add(IntegerValue::GetInstance(1));
  numbers->SetField("entitlements", list);
  for (DataValuePtr const& data : std::initializer_list<DataValuePtr>{
           Authentication("UserPassAuthentication", {"View"}), Authentication("", {"View"}), without, text,
           numbers, VoidValue::GetInstance(), StringValue::GetInstance("View")}) {
    EXPECT_FALSE(IsEntitled(data, {"View"})) << data->ToString();
  }
}

}  // namespace
