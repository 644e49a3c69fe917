#include "security/call_registrar.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "runtime/core/activation.h"
#include "security/audit_context.h"
#include "tests/unit/filters/test_provider.h"

namespace {

using namespace Lumo;
using Core::AsyncApiResultCb;
using Core::MethodResult;
using Data::ErrorValue;
using Names = std::vector<std::string>;
using Map = std::map<std::string, std::string>;

/// Writes down what it is told.
class Recorder final : public Api::CallObserver {
 public:
  void SetCallKind(std::uint32_t kind) override { Note("kind " + std::to_string(kind)); }
  void SetCallTarget(std::string& target) override { Note("target " + target); }
  void SetCallScope(std::string& scope) override { Note("scope " + scope); }
  void SetCallUser(std::string& user) override { Note("user " + user); }
  bool PrepareAudit() override {
    Note("prepare");
    return true;
  }
  void SetCallStatus(std::uint32_t status) override {
    Note("status " + std::to_string(status));
    if (throws) {
      throw std::runtime_error("no room");
    }
  }
  void SetPeer(std::pair<std::string, std::uint32_t>& peer) override {
    Note("peer " + peer.first + " " + std::to_string(peer.second));
  }
  void Note(std::string what) { told.push_back(std::move(what)); }

  Names told;
  bool throws = false;
};

class RecordingRegistrar final : public Observer::Detail::CallRegistrarBase {
 public:
  RecordingRegistrar(std::shared_ptr<Core::AsyncApiProvider> next, std::shared_ptr<Recorder> recorder)
      : CallRegistrarBase(std::move(next)), recorder_(std::move(recorder)) {}
  std::shared_ptr<Api::CallObserver> MakeObserver() const override { return recorder_; }

 private:
  std::shared_ptr<Recorder> recorder_;
};

/// Does with a call what a test says.
class ScriptedProvider final : public Core::AsyncApiProvider {
 public:
  std::string ToString() const override { return "ScriptedProvider"; }
  void Invoke(std::shared_ptr<Core::MethodIdentifier const> const& /*method*/,
              Data::DataValuePtr const& /*input*/, std::shared_ptr<Core::AsyncActivation> const& activation,
              AsyncApiResultCb const& callback) override {
    script(activation, callback);
  }
  std::function<void(std::shared_ptr<Core::AsyncActivation> const&, AsyncApiResultCb const&)> script;
};

std::shared_ptr<MethodResult const> Success() {
  return MethodResult::GetInstance(Data::VoidValue::GetInstance());
}

std::shared_ptr<MethodResult const> Failure(std::string const& name) {
  return MethodResult::GetErrorInstance(ErrorValue::GetInstance("com.orbane.lumo.std.errors." + name));
}

class CallRegistrarTest : public testing::Test {
 protected:
  void Invoke(AsyncApiResultCb const& callback) {
    registrar->Invoke(std::make_shared<Core::MethodIdentifier const>("a.b", "c"), nullptr, activation,
                      callback);
  }
  /// Invokes and takes each result, asking for the next one.
  void Invoke() {
    Invoke(AsyncApiResultCb([this](std::shared_ptr<MethodResult const> const& result, Progress const&,
                                   AsyncApiResultCb::Continuation&& next) {
      recorder->Note(result ? (result->error() ? "error" : "answer") : "null");
      if (next) {
        kept = std::move(next);
      }
    }));
  }
  Names Told() const {
    auto const prepared = std::find(recorder->told.begin(), recorder->told.end(), "prepare");
    return {prepared == recorder->told.end() ? prepared : prepared + 1, recorder->told.end()};
  }

  Orbane::TestOnlyLogCapture log;
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::shared_ptr<ScriptedProvider> chain = std::make_shared<ScriptedProvider>();
  std::shared_ptr<RecordingRegistrar> registrar = std::make_shared<RecordingRegistrar>(chain, recorder);
  std::shared_ptr<Core::AsyncActivation> activation = TestActivation();
  AsyncApiResultCb::Continuation kept;
};

TEST_F(CallRegistrarTest, HasAName) {
  EXPECT_EQ(registrar->ToString(), "CallRegistrarBase");
  EXPECT_EQ((Observer::CallRegistrar<Map>(chain, {}).ToString()), "CallRegistrarBase");
}

TEST_F(CallRegistrarTest, FeedsTheObserverBeforeTheCallAndTellsItsEnd) {
  Core::ActivationHelpers::SetPeerTcpBindingInfo(activation->executionContext(), {"::1", 4711});
  activation->executionContext()->securityContext() = {"com.orbane.lumo.std.security.user_pass",
                                                       {{"userName", "alice"}, {"password", "secret"}}};
  chain->script = [this](auto const& call, AsyncApiResultCb const& callback) {
    EXPECT_EQ(call->callObserver(), recorder);
    recorder->Note("call");
    callback(Success(), Progress(), {});
  };
  Invoke();
  EXPECT_EQ(recorder->told, (Names{"kind 1", "target a.b.c", "scope keeld", "user alice", "peer ::1 4711",
                                   "prepare", "call", "status 0", "answer"}));
}

TEST_F(CallRegistrarTest, TheUserIsTheClaimedOneAndNeverASecret) {
  struct Case {
    std::string scheme;
    Map entries;
    std::string user;
  };
  std::string const userPass = "com.orbane.lumo.std.security.user_pass";
  Case const cases[] = {
      {"", {}, ""},
      {userPass, {{"userName", "alice"}, {"password", "x"}}, "alice"},
      {userPass, {{"userName", "alice"}, {"password", ""}}, "alice"},
      {userPass, {{"userName", ""}, {"password", "x"}}, ""},
      {userPass, {{"userName", "ticket"}, {"password", "ticket"}}, "@unknown"},
      {userPass, {{"userName", ""}, {"password", ""}}, "@unknown"},
      {userPass, {{"userName", "ALICE"}, {"password", "alice"}}, "ALICE"},
      {"com.orbane.lumo.std.security.bearer_token", {{"token", "e.y.J"}}, ""},
      {"com.orbane.lumo.std.security.other", {{"userName", "alice"}, {"password", "x"}}, ""},
  };
  chain->script = [](auto const&, AsyncApiResultCb const& callback) { callback(Success(), Progress(), {}); };
  for (Case const& each : cases) {
    recorder->told.clear();
    activation->executionContext()->securityContext() = {each.scheme, each.entries};
    Invoke();
    EXPECT_EQ(recorder->told.at(3), "user " + each.user);
  }
}

TEST_F(CallRegistrarTest, WithoutPeerOrContextThereIsNothingToTellOfThem) {
  chain->script = [](auto const&, AsyncApiResultCb const& callback) { callback(Success(), Progress(), {}); };
  Names const expected{"kind 1", "target a.b.c", "scope keeld", "user ", "prepare", "status 0", "answer"};
  Invoke();
  EXPECT_EQ(recorder->told, expected);
  recorder->told.clear();
  activation = Core::AsyncActivation::GetInstance(nullptr);
  Invoke();
  EXPECT_EQ(recorder->told, expected);
}

TEST_F(CallRegistrarTest, TheStatusIsThatOfTheError) {
  struct Case {
    char const* error;
    char const* status;
  };
  for (Case const& each :
       {Case{"unauthenticated", "status 2"}, Case{"unauthorized", "status 3"}, Case{"error", "status 1"},
        Case{"not_found", "status 1"}, Case{"internal_server_error", "status 1"},
        Case{"UNAUTHENTICATED", "status 1"}, Case{"unauthorized.more", "status 1"}}) {
    recorder->told.clear();
    chain->script = [&](auto const&, AsyncApiResultCb const& callback) {
      callback(Failure(each.error), Progress(), {});
    };
    Invoke();
    EXPECT_EQ(Told(), (Names{each.status, "error"})) << each.error;
  }
}

TEST_F(CallRegistrarTest, AnErrorBesideAnOutputCounts) {
  chain->script = [](auto const&, AsyncApiResultCb const& callback) {
    callback(
        std::make_shared<MethodResult>(Data::VoidValue::GetInstance(), ErrorValue::GetInstance("e"), false),
        Progress(), {});
  };
  Invoke();
  EXPECT_EQ(Told(), (Names{"status 1", "error"}));
}

TEST_F(CallRegistrarTest, ALaterAnswerIsTold) {
  AsyncApiResultCb held;
  chain->script = [&](auto const&, AsyncApiResultCb const& callback) { held = callback; };
  Invoke();
  EXPECT_EQ(Told(), Names{});
  held(Success(), Progress(), {});
  held = AsyncApiResultCb();
  EXPECT_EQ(Told(), (Names{"status 0", "answer"}));
}

TEST_F(CallRegistrarTest, ASecondAnswerIsPassedOnAndChangesNothing) {
  chain->script = [](auto const&, AsyncApiResultCb const& callback) {
    callback(Success(), Progress(), {});
    callback(Failure("unauthorized"), Progress(), {});
  };
  Invoke();
  EXPECT_EQ(Told(), (Names{"status 0", "answer", "error"}));
}

TEST_F(CallRegistrarTest, ProgressIsPassedOn) {
  auto const test = std::make_shared<TestProvider>();
  Seen seen;
  RecordingRegistrar(test, recorder)
      .Invoke(std::make_shared<Core::MethodIdentifier const>("a.b", "c"), nullptr, activation,
              seen.Callback());
  EXPECT_EQ(seen.result, test->result);
  EXPECT_EQ(seen.progress.max, 9);
  EXPECT_EQ(seen.progress.current, 4);
  EXPECT_TRUE(seen.continues);
  EXPECT_TRUE(test->continued);
}

TEST_F(CallRegistrarTest, ACallOfSeveralResultsEndsWithTheLast) {
  struct Case {
    std::shared_ptr<MethodResult const> last;
    char const* status;
    char const* shown;
  };
  auto const end = std::make_shared<MethodResult>(nullptr, nullptr, true);
  for (Case const& each : {Case{Success(), "status 0", "answer"}, Case{end, "status 0", "answer"},
                           Case{Failure("unauthorized"), "status 3", "error"}}) {
    recorder->told.clear();
    chain->script = [&](auto const&, AsyncApiResultCb const& callback) {
      callback(Success(), Progress(),
               [&](std::shared_ptr<AsyncApiResultCb> const& more) { (*more)(each.last, Progress(), {}); });
    };
    Invoke();
    EXPECT_EQ(Told(), Names{"answer"}) << "the end is not known yet";
    std::exchange(kept, nullptr)(std::make_shared<AsyncApiResultCb>(
        AsyncApiResultCb([this](std::shared_ptr<MethodResult const> const& result, auto const&, auto&&) {
          recorder->Note(result->error() ? "error" : "answer");
        })));
    EXPECT_EQ(Told(), (Names{"answer", each.status, each.shown}));
  }
}

TEST_F(CallRegistrarTest, AnErrorOrAFinalResultIsTheEndWhateverMayFollow) {
  for (auto const& [last, status] :
       {std::pair(Failure("error"), "status 1"),
        std::pair(std::shared_ptr<MethodResult const>(std::make_shared<MethodResult>(nullptr, nullptr, true)),
                  "status 0")}) {
    recorder->told.clear();
    chain->script = [&last = last](auto const&, AsyncApiResultCb const& callback) {
      callback(last, Progress(), [](auto const&) {});
    };
    Invoke();
    EXPECT_EQ(Told().at(0), status);
    kept = nullptr;
    EXPECT_EQ(Told().size(), 2U);
  }
}

TEST_F(CallRegistrarTest, AReceiverThatWantsNoMoreEndsTheCallWell) {
  bool stopped = false;
  chain->script = [&](auto const&, AsyncApiResultCb const& callback) {
    callback(Success(), Progress(), [&](std::shared_ptr<AsyncApiResultCb> const& more) { stopped = !more; });
  };
  Invoke();
  std::exchange(kept, nullptr)(nullptr);
  EXPECT_TRUE(stopped);
  EXPECT_EQ(Told(), (Names{"answer", "status 0"}));

  recorder->told.clear();
  Invoke();
  kept = nullptr;  // lets go without a word
  EXPECT_EQ(Told(), (Names{"answer", "status 0"}));
}

TEST_F(CallRegistrarTest, ACallThatIsNeverAnsweredFailed) {
  AsyncApiResultCb held;
  chain->script = [&](auto const&, AsyncApiResultCb const& callback) { held = callback; };
  Invoke();
  EXPECT_EQ(Told(), Names{});
  held = AsyncApiResultCb();
  EXPECT_EQ(Told(), Names{"status 1"});
}

TEST_F(CallRegistrarTest, ANullResultIsNoAnswer) {
  chain->script = [](auto const&, AsyncApiResultCb const& callback) { callback(nullptr, Progress(), {}); };
  Invoke();
  EXPECT_EQ(Told(), (Names{"null", "status 1"}));
}

TEST_F(CallRegistrarTest, AChainThatThrowsFailed) {
  chain->script = [](auto const&, AsyncApiResultCb const&) { throw std::runtime_error("x"); };
  EXPECT_THROW(Invoke(), std::runtime_error);
  EXPECT_EQ(Told(), Names{"status 1"});
}

TEST_F(CallRegistrarTest, AReceiverThatThrowsChangesNoStatus) {
  chain->script = [](auto const&, AsyncApiResultCb const& callback) { callback(Success(), Progress(), {}); };
  EXPECT_THROW(
      Invoke(AsyncApiResultCb([](auto const&, auto const&, auto&&) { throw std::runtime_error("x"); })),
      std::runtime_error);
  EXPECT_EQ(Told(), Names{"status 0"});
}

TEST_F(CallRegistrarTest, AnObserverThatThrowsAtTheVeryEndIsLogged) {
  recorder->throws = true;
  chain->script = [](auto const&, AsyncApiResultCb const&) {};
  Invoke();
  EXPECT_EQ(Told(), Names{"status 1"});
  EXPECT_EQ(log.texts(0), Names{"Cannot audit the end of a call: no room"});
}

TEST_F(CallRegistrarTest, AnObserverThatThrowsKeepsNobodyFromTheAnswer) {
  recorder->throws = true;
  chain->script = [](auto const&, AsyncApiResultCb const& callback) { callback(Success(), Progress(), {}); };
  Invoke();
  EXPECT_EQ(Told(), (Names{"status 0", "answer"}));
  EXPECT_EQ(log.texts(0), Names{"Cannot audit the end of a call: no room"});
}

TEST(CallRegistrar, MakesAuditContextsWithTheHook) {
  auto const provider = std::make_shared<TestProvider>();
  std::shared_ptr<Map> hooked;
  bool succeeded = false;
  Observer::CallRegistrar<Map> registrar(provider, [&](std::shared_ptr<Map> const& map, bool result) {
    hooked = map;
    succeeded = result;
  });
  auto const first = registrar.MakeObserver();
  EXPECT_NE(first, registrar.MakeObserver()) << "one a call";
  EXPECT_NE(std::dynamic_pointer_cast<Api::AuditContext<Map>>(first), nullptr);

  Seen seen;
  auto const activation = TestActivation();
  registrar.Invoke(std::make_shared<Core::MethodIdentifier const>("a.b", "c"), nullptr, activation,
                   seen.Callback());
  auto const context = std::dynamic_pointer_cast<Api::AuditContext<Map>>(activation->callObserver());
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(hooked, context->auditMap());
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(*hooked, (Map{{"eventID", "api.call"}, {"subject", ""}, {"object", "keeld:a.b.c"}}));
}

}  // namespace
