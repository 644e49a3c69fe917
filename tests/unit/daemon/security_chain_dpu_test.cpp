#include "apps/lifecycle/lumo/lumocpp/security_chain_dpu.h"

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <fstream>

#include "apps/lifecycle/lumo/lumocpp/lumo_logger_wrapper.h"
#include "platform/logging/test_only_log_capture.h"
#include "tests/unit/filters/test_provider.h"
#include "tests/unit/tokens/signing_key.h"

namespace {

namespace fs = std::filesystem;
using namespace Host::Settings::SettingsApi;
using Lines = std::vector<std::string>;

constexpr char kMetadata[] = "/usr/lib/orbane/lifecycle/metadata/";
constexpr char kAuthentication[] = "keeld_lumo_authentication.json";
constexpr char kAuthorization[] = "keeld_lumo_authorization.json";
constexpr char kKeys[] = "/etc/orbane/token-keys";
constexpr char kBearer[] = "com.orbane.lumo.std.security.bearer_token";

// The security scheme of no authentication, then the operations that need none.
constexpr char const* kIdentifiers[] = {
    "com.orbane.lumo.std.security.no_authentication",
    "com.orbane.lumo.metadata.cli.command.list",
    "com.orbane.lumo.metadata.cli.command.get",
    "com.orbane.lumo.metadata.cli.command.fingerprint",
    "com.orbane.lumo.metadata.cli.namespace.list",
    "com.orbane.lumo.metadata.cli.namespace.get",
    "com.orbane.lumo.metadata.cli.namespace.fingerprint",
    "com.orbane.lumo.metadata.authentication.component.list",
    "com.orbane.lumo.metadata.authentication.component.get",
    "com.orbane.lumo.metadata.authentication.component.fingerprint",
    "com.orbane.lumo.metadata.authentication.service.operation.list",
    "com.orbane.lumo.metadata.authentication.service.operation.get",
    "com.orbane.lumo.metadata.authentication.package.list",
    "com.orbane.lumo.metadata.authentication.package.get",
    "com.orbane.lumo.metadata.authentication.service.list",
    "com.orbane.lumo.metadata.authentication.service.get",
    "com.orbane.lumo.metadata.metamodel.component.list",
    "com.orbane.lumo.metadata.metamodel.component.get",
    "com.orbane.lumo.metadata.metamodel.component.fingerprint",
    "com.orbane.lumo.metadata.metamodel.enumeration.list",
    "com.orbane.lumo.metadata.metamodel.enumeration.get",
    "com.orbane.lumo.metadata.metamodel.resource.model.list",
    "com.orbane.lumo.metadata.metamodel.service.operation.list",
    "com.orbane.lumo.metadata.metamodel.service.operation.get",
    "com.orbane.lumo.metadata.metamodel.service.hidden.list",
    "com.orbane.lumo.metadata.metamodel.package.list",
    "com.orbane.lumo.metadata.metamodel.package.get",
    "com.orbane.lumo.metadata.metamodel.resource.list",
    "com.orbane.lumo.metadata.metamodel.service.list",
    "com.orbane.lumo.metadata.metamodel.service.get",
    "com.orbane.lumo.metadata.metamodel.structure.list",
    "com.orbane.lumo.metadata.metamodel.structure.get",
    "com.orbane.lumo.std.introspection.operation.list",
    "com.orbane.lumo.std.introspection.operation.get",
    "com.orbane.lumo.std.introspection.provider.get",
    "com.orbane.lumo.std.introspection.service.list",
    "com.orbane.lumo.std.introspection.service.get",
};

void WriteMetadata(char const* name, std::string const& text) {
  fs::create_directories(kMetadata);
  std::ofstream(std::string(kMetadata) + name, std::ios::binary | std::ios::trunc) << text;
}

class WrapInDpuSecurityTest : public testing::Test {
 protected:
  WrapInDpuSecurityTest() {
    WriteMetadata(
        kAuthentication,
        R"({"settings_lumo_authentication":{"packages":{"a":{"services":{"a.s":{"operations":{"get":[")" +
            std::string(kBearer) + R"("]}}}}}}})");
    WriteMetadata(kAuthorization, R"({"operations":{"a.s.get":["View"]}})");
    fs::create_directories(kKeys);
    std::ofstream(fs::path(kKeys) / "lab.pem") << CurveKey().PublicPem();
  }
  ~WrapInDpuSecurityTest() override { fs::remove_all(kKeys); }

  std::shared_ptr<Lumo::Core::AsyncApiProvider> Wrap() {
    return WrapInDpuSecurity([this](std::function<void()> closure) { queue.push_back(std::move(closure)); },
                             next, std::make_shared<LumoLoggerWrapper>());
  }

  /// Identifier of the error that a call ends with; "" when it came through.
  std::string Call(std::string const& service, std::string const& operation, std::string const& token) {
    auto const activation = TestActivation();
    if (!token.empty()) {
      activation->executionContext()->securityContext() = {kBearer, {{"token", token}}};
    }
    next->calls = 0;
    Seen seen;
    Wrap()->Invoke(std::make_shared<Lumo::Core::MethodIdentifier const>(service, operation), nullptr,
                   activation, seen.Callback());
    for (; !queue.empty(); queue.pop_front()) {
      queue.front()();
    }
    EXPECT_EQ(seen.answers, 1);
    auto const& error = seen.result->error();
    EXPECT_EQ(next->calls, error ? 0 : 1);
    return error ? std::string(error->name()) : std::string();
  }

  static std::string TokenWith(std::string const& entitlements) {
    JsonObject const claims = {{"iss", R"("lab")"},
                               {"sub", R"("alice")"},
                               {"aud", R"("keeld")"},
                               {"exp", std::to_string(std::time(nullptr) + 600)},
                               {"entitlements", entitlements}};
    return Token(R"({"alg":"ES256","kid":"lab"})", claims.Text(), CurveKey());
  }

  Orbane::TestOnlyLogCapture log;
  std::deque<std::function<void()>> queue;
  std::shared_ptr<TestProvider> next = std::make_shared<TestProvider>();
};

TEST(DpuAuthzInfo, HoldsTheIdentifiersOfNoAuthentication) {
  auto const info = DpuAuthzInfo();
  EXPECT_EQ(std::size(kIdentifiers), 37U);
  EXPECT_EQ(info.noAuthenticationScheme, kIdentifiers[0]);
  EXPECT_EQ(info.noAuthenticationOperations,
            std::set<std::string>(std::next(std::begin(kIdentifiers)), std::end(kIdentifiers)));
  EXPECT_EQ(info.noAuthenticationOperations.size(), 36U);
  EXPECT_TRUE(info.packages.empty() && info.serviceOperations.empty() && info.operationSchemes.empty() &&
              info.operationPrivileges.empty());
}

TEST_F(WrapInDpuSecurityTest, LoadsTheTwoFilesInOrder) {
  EXPECT_EQ(Wrap()->ToString(), "AsyncAuthnFilter");
  EXPECT_EQ(log.lines(),
            (std::vector<Orbane::CapturedLine>{
                {2, std::string("Loading authz metadata file: ") + kMetadata + kAuthentication},
                {2, std::string("Loading authz metadata file: ") + kMetadata + kAuthorization}}));
}

TEST_F(WrapInDpuSecurityTest, CallsWithoutATokenAreUnauthorized) {
  EXPECT_EQ(Call("a.s", "get", ""), "com.orbane.lumo.std.errors.unauthorized");
  EXPECT_EQ(Call("a.none", "get", ""), "com.orbane.lumo.std.errors.unauthorized");
}

TEST_F(WrapInDpuSecurityTest, OperationsOfTheListNeedNoToken) {
  for (std::size_t i = 1; i < std::size(kIdentifiers); ++i) {
    std::string const name = kIdentifiers[i];
    std::size_t const dot = name.rfind('.');
    EXPECT_EQ(Call(name.substr(0, dot), name.substr(dot + 1), ""), "") << name;
  }
  EXPECT_EQ(Call("com.orbane.lumo.std.security", "no_authentication", ""),
            "com.orbane.lumo.std.errors.unauthorized");
}

TEST_F(WrapInDpuSecurityTest, BadTokensAreUnauthenticatedEverywhere) {
  EXPECT_EQ(Call("a.s", "get", "bad"), "com.orbane.lumo.std.errors.unauthenticated");
  EXPECT_EQ(Call("com.orbane.lumo.std.introspection.provider", "get", "bad"),
            "com.orbane.lumo.std.errors.unauthenticated");
}

TEST_F(WrapInDpuSecurityTest, TokensNeedTheEntitlement) {
  EXPECT_EQ(Call("a.s", "get", TokenWith(R"(["View"])")), "");
  EXPECT_EQ(Call("a.s", "get", TokenWith(R"(["Other"])")), "com.orbane.lumo.std.errors.unauthorized");
  EXPECT_EQ(Call("a.s", "get", TokenWith("[]")), "com.orbane.lumo.std.errors.unauthorized");
  EXPECT_EQ(Call("a.s", "list", TokenWith(R"(["View"])")), "com.orbane.lumo.std.errors.unauthorized");
  EXPECT_TRUE(log.Contains("The token lacks the entitlement View"));
}

using WrapInDpuSecurityDeathTest = WrapInDpuSecurityTest;

TEST_F(WrapInDpuSecurityDeathTest, FilesThatCannotBeLoadedEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (char const* const name : {kAuthentication, kAuthorization}) {
    std::string const path = std::string(kMetadata) + name;
    std::ifstream file(path);
    std::string const good(std::istreambuf_iterator<char>(file), {});
    for (std::string const& bad :
         {std::string(), std::string("{"), std::string("{}"), std::string(R"({"x":1})")}) {
      WriteMetadata(name, bad);
      EXPECT_DEATH(Wrap(), "^VERIFY \\S+security_chain_dpu\\.cpp:[0-9]+\n$") << name << bad;
    }
    fs::remove(path);
    EXPECT_DEATH(Wrap(), "^VERIFY \\S+security_chain_dpu\\.cpp:[0-9]+\n$") << name;
    WriteMetadata(name, good);
  }
}

}  // namespace
