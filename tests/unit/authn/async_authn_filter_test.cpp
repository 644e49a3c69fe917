#include "security/async_authn_filter.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "tests/unit/filters/test_provider.h"

namespace {

using Lumo::Authn::AuthnCallback;
using Lumo::Authn::AuthnHandler;
using Lumo::Authn::Filter::AsyncAuthnFilter;
using Lumo::Core::AsyncActivation;
using namespace Lumo::Data;

/// Answers inside Authenticate with `answer`, or keeps the callback when there is none.
class TestHandler final : public AuthnHandler {
 public:
  void Authenticate(std::shared_ptr<AsyncActivation> const& activation,
                    AuthnCallback const& callback) override {
    ++calls;
    lastActivation = activation;
    if (answer) {
      callback(*answer);
    } else {
      kept = callback;
    }
  }

  std::optional<DataValuePtr> answer;
  AuthnCallback kept;
  std::weak_ptr<AsyncActivation> lastActivation;
  int calls = 0;
};

/// Remembers the call besides answering it.
class WatchingProvider final : public Lumo::Core::AsyncApiProvider {
 public:
  std::string ToString() const override { return "WatchingProvider"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method, DataValuePtr const& input,
              std::shared_ptr<AsyncActivation> const& activation,
              Lumo::Core::AsyncApiResultCb const& callback) override {
    lastMethod = method;
    authData = activation->authData();
    end.Invoke(method, input, activation, callback);
  }

  TestProvider end;
  std::shared_ptr<Lumo::Core::MethodIdentifier const> lastMethod;
  DataValuePtr authData = VoidValue::GetInstance();
};

class AsyncAuthnFilterTest : public testing::Test {
 protected:
  void Call() { filter->Invoke(method, input, activation, seen.Callback()); }

  std::shared_ptr<TestHandler> handler = std::make_shared<TestHandler>();
  std::shared_ptr<WatchingProvider> next = std::make_shared<WatchingProvider>();
  std::shared_ptr<AsyncAuthnFilter> filter = std::make_shared<AsyncAuthnFilter>(next, handler);
  std::shared_ptr<Lumo::Core::MethodIdentifier const> method =
      std::make_shared<Lumo::Core::MethodIdentifier const>("service", "get");
  DataValuePtr input = StringValue::GetInstance("input");
  std::shared_ptr<AsyncActivation> activation = TestActivation();
  Seen seen;
};

TEST_F(AsyncAuthnFilterTest, HasAName) {
  EXPECT_EQ(filter->ToString(), "AsyncAuthnFilter");
}

TEST_F(AsyncAuthnFilterTest, ValuesBecomeTheAuthenticationData) {
  for (DataValuePtr const& value : std::initializer_list<DataValuePtr>{
           StructValue::GetInstance("UserPassAuthentication"), VoidValue::GetInstance(),
           StringValue::GetInstance("x"), OptionalValue::GetInstance()}) {
    activation = TestActivation();
    seen = {};
    handler->answer = value;
    Call();
    EXPECT_EQ(handler->lastActivation.lock(), activation);
    EXPECT_EQ(activation->authData(), value);
    EXPECT_EQ(next->authData, value) << "set before the call went on";
    EXPECT_EQ(next->lastMethod, method);
    EXPECT_EQ(next->end.lastInput, input);
    ASSERT_EQ(seen.answers, 1);
    EXPECT_EQ(seen.result, next->end.result);
    EXPECT_EQ(seen.progress.current, 4);
    EXPECT_TRUE(seen.continues);
  }
}

TEST_F(AsyncAuthnFilterTest, CallsWithoutCredentialsGoOnWithNull) {
  handler->answer = DataValuePtr();
  Call();
  EXPECT_EQ(next->authData, nullptr);
  EXPECT_EQ(next->end.calls, 1);
  EXPECT_EQ(seen.result, next->end.result);
}

TEST_F(AsyncAuthnFilterTest, ErrorsEndTheCall) {
  auto const error = ErrorValue::GetInstance("com.orbane.lumo.std.errors.unauthenticated");
  handler->answer = error;
  Call();
  EXPECT_EQ(next->end.calls, 0);
  EXPECT_EQ(activation->authData(), nullptr);
  ASSERT_EQ(seen.answers, 1);
  EXPECT_EQ(seen.result->error(), error);
  EXPECT_EQ(seen.result->output(), nullptr);
  EXPECT_FALSE(seen.continues);
  EXPECT_EQ(seen.progress.min, 0);
  EXPECT_EQ(seen.progress.max, 1);
  EXPECT_EQ(seen.progress.current, 1);
}

TEST_F(AsyncAuthnFilterTest, ACallWithAuthenticationDataSkipsTheHandler) {
  auto const value = StructValue::GetInstance("UserPassAuthentication");
  activation->authData(value);
  handler->answer = ErrorValue::GetInstance("never");
  Call();
  EXPECT_EQ(handler->calls, 0);
  EXPECT_EQ(next->authData, value);
  EXPECT_EQ(next->end.lastInput, input);
  EXPECT_EQ(seen.result, next->end.result);
}

TEST_F(AsyncAuthnFilterTest, OfTwoOnlyTheOuterHandlerIsAskedOnceItSucceeded) {
  auto const outer = std::make_shared<TestHandler>();
  auto const chain = std::make_shared<AsyncAuthnFilter>(filter, outer);
  handler->answer = DataValuePtr();
  outer->answer = StructValue::GetInstance("");
  chain->Invoke(method, input, activation, seen.Callback());
  EXPECT_EQ(outer->calls, 1);
  EXPECT_EQ(handler->calls, 0);
  EXPECT_EQ(next->end.calls, 1);

  outer->answer = DataValuePtr();
  chain->Invoke(method, input, TestActivation(), seen.Callback());
  EXPECT_EQ(handler->calls, 1) << "the outer one had nothing to say";
}

TEST_F(AsyncAuthnFilterTest, TheCallsPartsLiveUntilTheHandlerReports) {
  std::weak_ptr<AsyncActivation> const watchedActivation = activation;
  std::weak_ptr<DataValue const> const watchedInput = input;
  Call();
  EXPECT_EQ(seen.answers, 0);
  AuthnCallback const report = handler->kept;
  handler->kept = {};
  activation.reset();
  input.reset();
  method.reset();
  filter.reset();
  EXPECT_FALSE(watchedActivation.expired());
  EXPECT_FALSE(watchedInput.expired());
  report(StructValue::GetInstance(""));
  EXPECT_EQ(seen.answers, 1);
  EXPECT_EQ(next->lastMethod->ToString(), "service.get");
}

}  // namespace
