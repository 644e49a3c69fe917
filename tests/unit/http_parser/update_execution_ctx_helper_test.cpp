#include "transport/update_execution_ctx_helper.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Lumo::Provider::JsonRpc1_1 {
namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

// Views into `headers`, which has to outlive the range.
Transport::Http::ResponseHeaders RangeOver(Headers const& headers) {
  Transport::Http::HeaderViews views;
  for (auto const& [name, value] : headers) {
    views.emplace_back(name, value);
  }
  return Transport::Http::ResponseHeaders(std::move(views));
}

Core::MethodIdentifier const kMethod("com.orbane.halo.tasks", "get");

bool Update(Headers const& headers, Core::ExecutionContext& context) {
  auto range = RangeOver(headers);
  return UpdateExecutionCtxHelper::Update(range, kMethod, context, nullptr);
}

struct AuthorizationCase {
  std::string name;
  std::string value;
  std::string scheme;
  std::map<std::string, std::string> entries;
};

std::string const kUserPass = "com.orbane.lumo.std.security.user_pass";
std::string const kBearer = "com.orbane.lumo.std.security.bearer_token";

class Authorization : public testing::TestWithParam<AuthorizationCase> {};

TEST_P(Authorization, GivesASecurityContextOrNone) {
  Core::ExecutionContext context;
  ASSERT_TRUE(Update({{"authorization", GetParam().value}}, context));
  EXPECT_EQ(context.securityContext().schemeId, GetParam().scheme);
  EXPECT_EQ(context.securityContext().entries, GetParam().entries);
  EXPECT_TRUE(context.applicationData().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Values, Authorization,
    testing::ValuesIn(std::vector<AuthorizationCase>{
        {"Basic", "Basic cm9vdDpzZWNyZXQ=", kUserPass, {{"userName", "root"}, {"password", "secret"}}},
        {"LowerCaseScheme",
         "basic cm9vdDpzZWNyZXQ=",
         kUserPass,
         {{"userName", "root"}, {"password", "secret"}}},
        {"SeveralBlanks",
         "Basic   cm9vdDpzZWNyZXQ=",
         kUserPass,
         {{"userName", "root"}, {"password", "secret"}}},
        {"FirstColonSplits", "Basic YTpiOmM=", kUserPass, {{"userName", "a"}, {"password", "b:c"}}},
        {"EmptyPassword", "Basic YTo=", kUserPass, {{"userName", "a"}, {"password", ""}}},
        {"EmptyUser", "Basic OmE=", kUserPass, {{"userName", ""}, {"password", "a"}}},
        {"HighBytes", "Basic w6Q6w7w=", kUserPass, {{"userName", "\xc3\xa4"}, {"password", "\xc3\xbc"}}},
        {"NoColon", "Basic cm9vdA==", "", {}},
        {"NoCredentials", "Basic", "", {}},
        {"BlankCredentials", "Basic ", "", {}},
        {"NoPadding", "Basic YTpiOmM", "", {}},
        {"PaddingInside", "Basic YT==OmM=", "", {}},
        {"OnlyPadding", "Basic ====", "", {}},
        {"UnusedBits", "Basic YTp=", "", {}},
        {"ForeignCharacter", "Basic cm9v*DpzZWNyZXQ=", "", {}},
        {"UrlAlphabet", "Basic w6Q6_7w=", "", {}},
        {"NulInUser", "Basic cm9vdABhOmI=", "", {}},
        {"LineFeedInPassword", "Basic YTpiCmM=", "", {}},
        {"TwoWords", "Basic YTo= YTo=", "", {}},
        {"Bearer", "Bearer abc.DEF-1_2", kBearer, {{"token", "abc.DEF-1_2"}}},
        {"UpperCaseBearer", "BEARER abc", kBearer, {{"token", "abc"}}},
        {"BearerWithoutToken", "Bearer", "", {}},
        {"BearerOfTwoWords", "Bearer a b", "", {}},
        {"BearerWithTab", "Bearer a\tb", "", {}},
        {"OtherScheme", "Digest cm9vdDpzZWNyZXQ=", "", {}},
        {"SchemeOnlyBeginsSo", "Basics cm9vdDpzZWNyZXQ=", "", {}},
        {"Empty", "", "", {}},
    }),
    [](testing::TestParamInfo<AuthorizationCase> const& param) { return param.param.name; });

TEST(UpdateExecutionCtxHelper, TwoAuthorizationsGiveNoContext) {
  Core::ExecutionContext context;
  ASSERT_TRUE(Update({{"authorization", "Basic YTo="}, {"authorization", "Basic YTo="}}, context));
  EXPECT_EQ(context.securityContext().schemeId, "");
  EXPECT_TRUE(context.securityContext().entries.empty());
}

TEST(UpdateExecutionCtxHelper, FoldsTheContextHeaders) {
  Core::ExecutionContext context;
  ASSERT_TRUE(Update({{":method", "post"},
                      {"accept", "application/json"},
                      {"accept-language", "de, en;q=0.5"},
                      {"lumo-ctx-format-locale", "de_DE"},
                      {"lumo-ctx-opid", "nightly-42"},
                      {"lumo-ctx-timezone", "Europe/Berlin"},
                      {"x-other", "1"}},
                     context));
  EXPECT_EQ(context.applicationData(),
            (std::map<std::string, std::string>{{"accept-language", "de, en;q=0.5"},
                                                {"lumo-ctx-format-locale", "de_DE"},
                                                {"opId", "nightly-42"},
                                                {"lumo-ctx-timezone", "Europe/Berlin"}}));
  EXPECT_EQ(context.securityContext().schemeId, "");
}

TEST(UpdateExecutionCtxHelper, ComparesServiceAndOperationWithThePayload) {
  struct Case {
    Headers headers;
    bool same;
  };
  for (Case const& row : std::vector<Case>{
           {{}, true},
           {{{"lumo-operation", "get"}}, true},
           {{{"lumo-service", "com.orbane.halo.tasks"}}, true},
           {{{"lumo-operation", "get"}, {"lumo-service", "com.orbane.halo.tasks"}}, true},
           {{{"lumo-operation", "list"}}, false},
           {{{"lumo-operation", "Get"}}, false},
           {{{"lumo-operation", ""}}, false},
           {{{"lumo-operation", "com.orbane.halo.tasks.get"}}, false},
           {{{"lumo-service", "com.orbane.halo"}}, false},
           {{{"lumo-operation", "get"}, {"lumo-service", "x"}}, false},
           {{{"lumo-operation", "get"}, {"lumo-operation", "list"}}, false},
       }) {
    Core::ExecutionContext context;
    EXPECT_EQ(Update(row.headers, context), row.same);
  }
}

TEST(UpdateExecutionCtxHelper, StartsAtTheRangesBeginAndCallsTheApplication) {
  class Recorder final : public ContextUpdate {
   public:
    void Update(Transport::Http::HeaderRange& headers, Core::ExecutionContext& context) const override {
      context.applicationData()["first"] = std::string(headers.current().name());
    }
  };
  Headers const headers{{"a", "1"}, {"lumo-ctx-opid", "x"}};
  auto range = RangeOver(headers);
  range.advance();
  range.advance();
  Core::ExecutionContext context;
  EXPECT_TRUE(UpdateExecutionCtxHelper::Update(range, kMethod, context, std::make_shared<Recorder>()));
  EXPECT_EQ(context.applicationData(), (std::map<std::string, std::string>{{"first", "a"}, {"opId", "x"}}));
}

}  // namespace
}  // namespace Lumo::Provider::JsonRpc1_1
