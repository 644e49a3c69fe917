#include "security/token_handler.h"

#include <gtest/gtest.h>

#include "runtime/core/activation.h"
#include "tests/unit/tokens/token_case.h"

namespace {

using namespace Lumo::Data;
using Lumo::Core::AsyncActivation;
using Ryn::Authn::TokenHandler;

constexpr char kBearer[] = "com.orbane.lumo.std.security.bearer_token";

std::shared_ptr<AsyncActivation> With(std::string const& scheme,
                                      std::map<std::string, std::string> const& entries) {
  auto const context = std::make_shared<Lumo::Core::ExecutionContext>();
  context->securityContext() = {scheme, entries};
  return AsyncActivation::GetInstance(context);
}

class TokenHandlerTest : public TokenCase {
 protected:
  DataValuePtr Authenticate(std::shared_ptr<AsyncActivation> const& activation) {
    return AuthenticateBy(handler, activation);
  }
  static DataValuePtr AuthenticateBy(TokenHandler& by, std::shared_ptr<AsyncActivation> const& activation) {
    DataValuePtr got = VoidValue::GetInstance();
    int answers = 0;
    by.Authenticate(activation, [&](DataValuePtr const& value) {
      got = value;
      ++answers;
    });
    EXPECT_EQ(answers, 1);
    return got;
  }

  TokenHandler handler{logger, MakeVerifier()};
};

TEST_F(TokenHandlerTest, CallsWithoutATokenAreNotItsBusiness) {
  std::string const good = Token(Header().Text(), Claims().Text(), CurveKey());
  EXPECT_EQ(Authenticate(AsyncActivation::GetInstance(nullptr)), nullptr);
  EXPECT_EQ(Authenticate(With("", {})), nullptr);
  EXPECT_EQ(
      Authenticate(With("com.orbane.lumo.std.security.user_pass", {{"userName", "root"}, {"password", "x"}})),
      nullptr);
  EXPECT_EQ(Authenticate(With("com.orbane.lumo.std.security.user_pass", {{"token", good}})), nullptr);
  EXPECT_TRUE(logger->TakeLines().empty());
}

TEST_F(TokenHandlerTest, GoodTokensGiveNameAndEntitlements) {
  auto const activation = With(kBearer, {{"token", Token(Header().Text(), Claims().Text(), CurveKey())}});
  auto const data = Authenticate(activation);
  auto const* const structure = As<StructValue>(data.get());
  ASSERT_NE(structure, nullptr);
  EXPECT_EQ(structure->ToString(),
            R"(TokenAuthentication{"username":"alice","entitlements":["Task.View","Software.Apply"]})");
  activation->authData(data);
  EXPECT_EQ(Lumo::Core::ActivationHelpers::ExtractUsername(activation), "alice");
  EXPECT_TRUE(logger->TakeLines().empty());
}

TEST_F(TokenHandlerTest, WithoutEntitlementsTheListIsEmpty) {
  auto const data = Authenticate(With(
      kBearer, {{"token", Token(Header().Text(), Claims().Without("entitlements").Text(), CurveKey())}}));
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(data->ToString(), R"(TokenAuthentication{"username":"alice","entitlements":[]})");
}

TEST_F(TokenHandlerTest, BadTokensAreABareUnauthenticated) {
  for (std::map<std::string, std::string> const& entries :
       {std::map<std::string, std::string>{}, {{"token", ""}}, {{"token", "a.b.c"}}}) {
    auto const error = As<ErrorValue>(Authenticate(With(kBearer, entries)));
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.unauthenticated");
    EXPECT_EQ(As<ListValue>(error->Find("messages"))->size(), 0U);
    EXPECT_EQ(logger->TakeLines().size(), 1U);
  }
}

TEST_F(TokenHandlerTest, KeysOfTheHostAreTheOnesByDefault) {
  std::filesystem::create_directories("/etc/orbane/token-keys");
  std::ofstream("/etc/orbane/token-keys/lab.pem") << CurveKey().PublicPem();
  TokenHandler fixed(logger);
  auto const hour = std::to_string(std::time(nullptr) + 3600);
  auto const token = Token(Header().Text(), Claims().With("exp", hour).Text(), CurveKey());
  EXPECT_EQ(As<ErrorValue>(AuthenticateBy(fixed, With(kBearer, {{"token", token}}))), nullptr);
  std::filesystem::remove_all("/etc/orbane/token-keys");
  EXPECT_NE(As<ErrorValue>(AuthenticateBy(fixed, With(kBearer, {{"token", token}}))), nullptr);
}

}  // namespace
