#include "apps/lifecycle/lumo/lumocpp/provider.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "apps/lifecycle/lumo/lumocpp/lumo_logger_wrapper.h"
#include "apps/lifecycle/lumo/lumocpp/services.h"
#include "platform/logging/test_only_log_capture.h"
#include "runtime/core/activation.h"
#include "runtime/errors/categories.h"
#include "tests/unit/lifecycle_state.h"

namespace {

namespace fs = std::filesystem;
using namespace Host::Settings::SettingsApi;
using namespace Lumo::Data;
using Names = std::vector<std::string>;

constexpr char kMetadata[] = "/usr/lib/orbane/lifecycle/metadata/";
constexpr char kSchemas[] = "/usr/lib/orbane/configmanager/schemas";
constexpr char kTool[] = "/usr/lib/orbane/lifecycle/bin/stowctl.py";

struct MetadataFile {
  char const* name;
  char const* kind;
  char const* component;
};

// In the order in which they are loaded.
constexpr MetadataFile kFiles[] = {
    {"keeld_lumo_cli.json", "cli", "settings"},
    {"lumo_common_cli.json", "cli", "lumo_std"},
    {"keeld_lumo_metamodel.json", "metamodel", "settings"},
    {"lumo_common_metamodel.json", "metamodel", "lumo_std"},
    {"keeld_lumo_authentication.json", "authn", "settings_lumo_authentication"},
};

/// Adds texts to the catalogues of a language and has them loaded.
void InstallCatalogue(std::string const& language, std::string const& texts) {
  static int count = 0;
  std::string const folder = "/usr/lib/orbane/configmanager/apply_modules/provider_test/" + language;
  LifecycleState::Put(folder + "/" + std::to_string(++count) + ".omsg", texts);
  LifeCycle::GetDefaultMessage("com.orbane.test.in.no.catalogue");
}

class BuildProviderTest : public testing::Test {
 protected:
  BuildProviderTest() {
    fs::create_directories(kMetadata);
    for (MetadataFile const& file : kFiles) {
      std::ofstream(std::string(kMetadata) + file.name) << "{\"" << file.component << "\":{}}";
    }
    fs::create_directories(kSchemas);
    std::ofstream(fs::path(kSchemas) / "ryn-base-1.0.0-schema.json") << "{}";
  }

  std::shared_ptr<Lumo::Core::AsyncApiProvider> Build() {
    return BuildProvider(io, std::make_shared<LumoLoggerWrapper>(), CatalogueLocalizer());
  }

  /// The answer to one call of a user, which must not come before the I/O context runs.
  std::shared_ptr<Lumo::Core::MethodResult const> Call(
      Lumo::Core::AsyncApiProvider& provider, std::string const& service, std::string const& operation,
      DataValuePtr const& input = StructValue::GetInstance(""),
      std::shared_ptr<Lumo::Core::AsyncActivation> const& activation =
          Lumo::Core::AsyncActivation::GetInstance(std::make_shared<Lumo::Core::ExecutionContext>())) {
    auto const user = StructValue::GetInstance("UserPassAuthentication");
    user->SetField("username", StringValue::GetInstance("operator"));
    activation->authData(user);
    std::shared_ptr<Lumo::Core::MethodResult const> got;
    provider.Invoke(
        std::make_shared<Lumo::Core::MethodIdentifier const>(service, operation), input, activation,
        Lumo::Core::AsyncApiResultCb([&got](auto const& result, auto const&, auto&&) { got = result; }));
    EXPECT_EQ(got, nullptr);
    io.restart();
    io.run();
    return got;
  }

  Orbane::TestOnlyLogCapture log;
  boost::asio::io_context io;
};

TEST_F(BuildProviderTest, LoadsTheMetadataInOrder) {
  Build();
  Names expected;
  for (MetadataFile const& file : kFiles) {
    expected.push_back(std::string("Loading ") + file.kind + " metadata file: " + kMetadata + file.name);
  }
  EXPECT_EQ(log.texts(2), expected);
}

TEST_F(BuildProviderTest, LogFilterIsOutermost) {
  EXPECT_EQ(Build()->ToString(), "LogFilter");
}

TEST_F(BuildProviderTest, IntrospectionSeesTheFinishedProvider) {
  auto const provider = Build();
  auto const services = Call(*provider, "com.orbane.lumo.std.introspection.service", "list");
  auto const* const list = As<ListValue>(services->output().get());
  ASSERT_NE(list, nullptr);
  std::set<std::string> names;
  for (std::size_t i = 0; i < list->size(); ++i) {
    names.emplace(As<StringValue>(list->Item(i))->value());
  }
  for (char const* name :
       {"com.orbane.lumo.std.introspection.operation", "com.orbane.lumo.std.introspection.provider",
        "com.orbane.lumo.std.introspection.service", "com.orbane.halo.tasks",
        "com.orbane.ryn.keel_daemon.software"}) {
    EXPECT_TRUE(names.contains(name)) << name;
  }
  auto const info = Call(*provider, "com.orbane.lumo.std.introspection.provider", "get");
  EXPECT_EQ(As<StringValue>(As<CompoundValue>(info->output().get())->Find("id"))->value(),
            "AsyncLocalProvider");
}

TEST_F(BuildProviderTest, TaskTextsAreInTheCallersLanguage) {
  InstallCatalogue("de", "com.orbane.ryn.task.description = \"Eine Aufgabe.\"\n");
  LifecycleState::Reset();
  LifeCycle::TaskStore(LifeCycle::kTaskStorePath, false).createTask("t", 5);
  auto const input = StructValue::GetInstance("");
  input->SetField("task", StringValue::GetInstance("t"));
  auto const context = std::make_shared<Lumo::Core::ExecutionContext>();
  context->applicationData()["accept-language"] = "de";
  auto const activation = Lumo::Core::AsyncActivation::GetInstance(context);
  std::error_code ec;
  activation->localeSpec(Lumo::L10n::LocaleSpecHelpers::ExtractLocaleSpec(context, ec));
  activation->localizer(Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer());  // as the transport does
  auto const result = Call(*Build(), "com.orbane.halo.tasks", "get", input, activation);
  ASSERT_NE(result->output(), nullptr);
  auto const* const description =
      As<CompoundValue>(As<CompoundValue>(result->output().get())->Find("description"));
  ASSERT_NE(description, nullptr);
  auto const* const localized = As<OptionalValue>(description->Find("localized"));
  ASSERT_NE(localized, nullptr);
  ASSERT_NE(localized->Inner(), nullptr);
  EXPECT_EQ(As<StringValue>(localized->Inner())->value(), "Eine Aufgabe.");
}

TEST_F(BuildProviderTest, UnknownServicesAreAnsweredByTheProviderAndAnnotated) {
  auto const result = Call(*Build(), "com.orbane.none", "get");
  ASSERT_NE(result->error(), nullptr);
  EXPECT_EQ(result->error()->name(), "com.orbane.lumo.std.errors.operation_not_found");
  auto const* const originator = As<StringValue>(result->error()->Find("__originator__"));
  ASSERT_NE(originator, nullptr);
  EXPECT_EQ(originator->value(), "pak[ryn-base-1.0.0]");
}

TEST_F(BuildProviderTest, OtherHostsAreRefusedOutsideTheAnnotator) {
  auto const provider = Build();
  auto const input = StructValue::GetInstance("");
  input->SetField("host", StringValue::GetInstance("elsewhere"));
  for (std::string const& service : HostCheckedServices()) {
    auto const result = Call(*provider, service, "get", input);
    ASSERT_NE(result->error(), nullptr) << service;
    EXPECT_EQ(result->error()->name(), "com.orbane.lumo.std.errors.not_found") << service;
    EXPECT_FALSE(result->error()->HasField("__originator__")) << service;
  }
}

TEST(HostCheckedServices, AreTheSevenOfTheHost) {
  EXPECT_EQ(HostCheckedServices(),
            (std::set<std::string>{
                "com.orbane.ryn.hosts.settings", "com.orbane.ryn.hosts.software.ryn",
                "com.orbane.ryn.hosts.software.components", "com.orbane.ryn.host_settings.software",
                "com.orbane.ryn.host_settings.depots", "com.orbane.ryn.host_settings.software.ryn",
                "com.orbane.ryn.host_settings.software.components"}));
}

TEST(BindServices, KeepsTheOrder) {
  Names names;
  for (auto const& api : BindServices(Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer())) {
    names.push_back(*api->identifier());
  }
  EXPECT_EQ(names, (Names{"com.orbane.halo.tasks", "com.orbane.ryn.hosts.software.ryn",
                          "com.orbane.ryn.hosts.software.components", "com.orbane.ryn.keel_daemon.software",
                          "com.orbane.ryn.keel_daemon.data_processing_unit.ryncli"}));
}

TEST(CatalogueLocalizer, KnowsTheSupportedLanguages) {
  EXPECT_EQ(CatalogueLocalizer()->locales(), (Names{"en", "es", "de", "zh_CN", "zh_TW", "ko", "ja", "fr"}));
}

TEST(CatalogueLocalizer, LanguagesWithoutCatalogueCostNoSearch) {
  InstallCatalogue("de", "com.orbane.test.known = \"bekannt\"\n");
  auto const localizer = CatalogueLocalizer();
  auto const get = [&localizer](std::string const& id, char const* language) {
    std::error_code ec;
    std::string const text = localizer->MessageTemplate(id, language, ec);
    return ec ? ec.message() : text;
  };
  std::string const unsupported = make_error_code(Lumo::L10n::L10nErrc::LocaleNotSupported).message();
  Orbane::TestOnlyLogCapture log;
  for (char const* language : {"es", "zh_CN", "zh_TW", "ko", "ja", "fr", "it", ""}) {
    for (int id = 0; id < 10; ++id) {
      EXPECT_EQ(get("com.orbane.test." + std::to_string(id), language), unsupported) << language;
    }
  }
  EXPECT_EQ(get("com.orbane.test.known", "de"), "bekannt");
  EXPECT_EQ(log.texts(), Names());
}

using BuildProviderDeathTest = BuildProviderTest;

/// In a process of its own, since the originator stays once it was found.
TEST_F(BuildProviderDeathTest, WithoutASchemaErrorsAreAnsweredUnstamped) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto const tellErrors = [this] {
    fs::remove_all(kSchemas);
    fs::create_directories(fs::path(kTool).parent_path());
    std::ofstream(kTool) << "print('no document')\n";
    auto const provider = Build();
    auto const task = StructValue::GetInstance("");
    task->SetField("task", StringValue::GetInstance("none"));
    struct Road {
      char const* service;
      DataValuePtr input;
    };
    for (Road const& road :
         {Road{"com.orbane.none", StructValue::GetInstance("")}, Road{"com.orbane.halo.tasks", task},
          Road{"com.orbane.ryn.hosts.software.ryn", StructValue::GetInstance("")}}) {
      log.Clear();
      auto const result = Call(*provider, road.service, "get", road.input);
      std::string const name(result->error()->name());
      std::string const stamp = result->error()->HasField("__originator__") ? "stamped" : "unstamped";
      auto const failures = log.texts(0);
      std::cerr << name.substr(name.rfind('.') + 1) << ' ' << stamp << ' '
                << std::count(failures.begin(), failures.end(), "Method failed")
                << std::count(failures.begin(), failures.end(),
                              "A call ended with an exception: Unable to find ryn-base schema")
                << '|';
    }
    std::cerr << '\n';
    std::_Exit(0);
  };
  // What meets an answer of the service's own is caught behind the service.
  EXPECT_EXIT(tellErrors(), testing::ExitedWithCode(0),
              "^operation_not_found unstamped 11\\|not_found unstamped 10\\|internal_server_error unstamped "
              "11\\|\n$");
}

TEST_F(BuildProviderDeathTest, MissingOrDamagedMetadataEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (MetadataFile const& file : kFiles) {
    std::string const path = std::string(kMetadata) + file.name;
    std::string content;
    std::getline(std::ifstream(path), content);
    fs::remove(path);
    EXPECT_DEATH(Build(), "VERIFY .*provider.cpp:[0-9]+\n") << file.name;
    std::ofstream(path) << "{\"" << file.component << "\":";
    EXPECT_DEATH(Build(), "VERIFY .*provider.cpp:[0-9]+\n") << file.name;
    std::ofstream(path) << "{\"other\":{}}";
    EXPECT_DEATH(Build(), "VERIFY .*provider.cpp:[0-9]+\n") << file.name;
    std::ofstream(path) << content;
  }
  Build();
}

}  // namespace
