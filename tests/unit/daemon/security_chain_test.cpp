// Runs in the sandbox: its accounts, the product's folder of tickets and marker of audit.
#include "apps/lifecycle/lumo/lumocpp/security_chain.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "platform/audit/test_only_audit_capture.h"
#include "platform/logging/test_only_log_capture.h"
#include "security/audit_context.h"
#include "security/audit_report.h"
#include "tests/support/http/recording_logger.h"
#include "tests/unit/filters/test_provider.h"
#include "tests/unit/platform_tickets/ticket_folder.h"

namespace {

namespace fs = std::filesystem;
using namespace Host::Settings::SettingsApi;
using Names = std::set<std::string>;

constexpr char kMarker[] = "/var/run/orbane/AuditApiCallEnabled";
constexpr char kTicket[] = "mBIe0J5zQ2Yh0iXnB3wXw0m5Xy1nS1cT8Qk2lVb7a9E";
constexpr char kTasks[] = "com.orbane.halo.tasks";

TEST(ServicesThatNeedUser, AreTheDaemonsOwn) {
  EXPECT_EQ(
      ServicesThatNeedUser(),
      (Names{"com.orbane.halo.tasks", "com.orbane.ryn.hosts.settings", "com.orbane.ryn.hosts.software.ryn",
             "com.orbane.ryn.hosts.software.components", "com.orbane.ryn.host_settings.software",
             "com.orbane.ryn.host_settings.depots", "com.orbane.ryn.host_settings.software.ryn",
             "com.orbane.ryn.host_settings.software.components",
             "com.orbane.ryn.configuration.components.groups.keys", "com.orbane.ryn.keel_daemon.capabilities",
             "com.orbane.ryn.keel_daemon.software", "com.orbane.ryn.keel_daemon.components",
             "com.orbane.ryn.keel_daemon.solutions", "com.orbane.ryn.keel_daemon.configuration",
             "com.orbane.ryn.keel_daemon.data_processing_unit.ryncli",
             "com.orbane.ryn.software.installed_components", "com.orbane.ryn.software.installed_image",
             "com.orbane.ryn.software.installed_paks"}));
  EXPECT_EQ(ServicesThatNeedUser().size(), 18U);
}

TEST(AnonymousServices, TellWhatTheDaemonOffers) {
  EXPECT_EQ(AnonymousServices(), (Names{"com.orbane.lumo.std.introspection.operation",
                                        "com.orbane.lumo.std.introspection.provider",
                                        "com.orbane.lumo.std.introspection.service"}));
}

/// Answers as the services would, and remembers who called.
class Services final : public Lumo::Core::AsyncApiProvider {
 public:
  std::string ToString() const override { return "Services"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
              Lumo::Data::DataValuePtr const& input,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
              Lumo::Core::AsyncApiResultCb const& callback) override {
    user = Lumo::Core::ActivationHelpers::ExtractUsername(activation);
    observer = activation->callObserver();
    end.Invoke(method, input, activation, callback);
  }

  TestProvider end;
  std::string user;
  std::shared_ptr<Api::CallObserver> observer;
};

class SecurityChain : public testing::Test {
 protected:
  SecurityChain() {
    EmptyTicketFolder();
    fs::remove(kMarker);
    Api::SetTestOnlyApiCallAuditState(0);
  }
  ~SecurityChain() override { fs::remove(kMarker); }

  void Build() { chain = BuildSecurityChain(queue.Poster(), services, logger); }

  /// The name of the error that a call ends with, its last part; "served" otherwise.
  std::string Call(std::string const& service, std::string const& user = {},
                   std::string const& password = {}) {
    auto const activation = TestActivation();
    if (!user.empty()) {
      activation->executionContext()->securityContext() = {"com.orbane.lumo.std.security.user_pass",
                                                           {{"userName", user}, {"password", password}}};
    }
    services->end.calls = 0;
    services->user.clear();
    Seen seen;
    chain->Invoke(std::make_shared<Lumo::Core::MethodIdentifier const>(service, "get"), nullptr, activation,
                  seen.Callback());
    queue.Run();
    EXPECT_EQ(seen.answers, 1);
    auto const& error = seen.result->error();
    EXPECT_EQ(services->end.calls, error ? 0 : 1);
    std::string const name(error ? error->name() : "served");
    return name.substr(name.rfind('.') + 1);
  }

  PostQueue queue;
  std::shared_ptr<Services> services = std::make_shared<Services>();
  std::shared_ptr<Lumo::Transport::TestSupport::RecordingLogger> logger =
      std::make_shared<Lumo::Transport::TestSupport::RecordingLogger>();
  std::shared_ptr<Lumo::Core::AsyncApiProvider> chain;
  Orbane::TestOnlyLogCapture log;
};

TEST_F(SecurityChain, LogFilterIsOutermost) {
  Build();
  EXPECT_EQ(chain->ToString(), "LogFilter");
  Call(kTasks);
  EXPECT_EQ(log.texts(0), (std::vector<std::string>{"Method failed"}));
}

TEST_F(SecurityChain, WithoutAUserOnlyAnonymousServicesAreServed) {
  Build();
  for (std::string const& service : AnonymousServices()) {
    EXPECT_EQ(Call(service), "served") << service;
  }
  for (std::string const& service : ServicesThatNeedUser()) {
    EXPECT_EQ(Call(service), "unauthorized") << service;
  }
  EXPECT_EQ(Call("com.orbane.none"), "unauthorized");
  EXPECT_EQ(Call("com.orbane.ryn.keel_daemon.data_processing_unit.configuration"), "unauthorized");
}

TEST_F(SecurityChain, AUserIsServedByAll) {
  Build();
  for (std::string const& service : ServicesThatNeedUser()) {
    EXPECT_EQ(Call(service, "operator", "correct horse"), "served") << service;
    EXPECT_EQ(services->user, "operator");
  }
  EXPECT_EQ(Call("com.orbane.lumo.std.introspection.service", "operator", "correct horse"), "served");
  EXPECT_EQ(Call("com.orbane.none", "operator", "correct horse"), "served");
}

TEST_F(SecurityChain, WrongCredentialsEndInAuthentication) {
  Build();
  EXPECT_EQ(Call(kTasks, "operator", "wrong"), "unauthenticated");
  EXPECT_EQ(Call("com.orbane.lumo.std.introspection.service", "operator", "wrong"), "unauthenticated");
  EXPECT_TRUE(logger->Lines().empty()) << "the rule for users was not reached";
}

TEST_F(SecurityChain, ATicketServesOneCall) {
  Build();
  Issue(kTicket);
  EXPECT_EQ(Call(kTasks, kTicket, kTicket), "served");
  EXPECT_EQ(services->user, kTicket);
  EXPECT_EQ(Call(kTasks, kTicket, kTicket), "unauthenticated");
}

TEST_F(SecurityChain, CallsAreObserved) {
  Build();
  Call(kTasks, "operator", "correct horse");
  using Audit = Api::AuditContext<Api::AuditMap>;
  auto const observer = std::dynamic_pointer_cast<Audit>(services->observer);
  ASSERT_NE(observer, nullptr);
  EXPECT_EQ(observer->auditMap()->at("AUTHN_EVENT_KEY"), "service.password.use");
}

TEST_F(SecurityChain, FailedLogonsAndDeniedAccessAreAuditedWithoutTheMarkerToo) {
  Build();
  Orbane::TestOnlyAuditCapture const audit;
  Call(kTasks, "operator", "wrong");
  Call(kTasks);
  Call(kTasks, "operator", "correct horse");
  auto const events = audit.events();
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[0], (Orbane::AuditEvent{"service.password.use",
                                           "operator",
                                           "com.orbane.halo.tasks.get",
                                           false,
                                           {{"reason", "Invalid username or password"}}}));
  EXPECT_EQ(events[1].event, "service.access.denied");
  EXPECT_EQ(events[1].object, "com.orbane.halo.tasks.get");
  EXPECT_FALSE(events[1].result);
  EXPECT_EQ(events[2],
            (Orbane::AuditEvent{"service.password.use", "operator", "com.orbane.halo.tasks.get", true, {}}));
}

TEST_F(SecurityChain, LooksForTheMarkerOfAuditOnce) {
  Build();
  EXPECT_EQ(Api::ApiCallAuditState(), 2);
  std::ofstream marker(kMarker);
  Build();
  EXPECT_EQ(Api::ApiCallAuditState(), 2) << "only the first look counts";
  Api::SetTestOnlyApiCallAuditState(0);
  Build();
  EXPECT_EQ(Api::ApiCallAuditState(), 1);
}

}  // namespace
