#include "apps/lifecycle/lumo/lumocpp/provider.h"

#include <boost/asio/post.hpp>
#include <exception>
#include <functional>
#include <list>
#include <set>
#include <string>
#include <utility>

#include "apps/lifecycle/lumo/lumocpp/security_chain.h"
#include "apps/lifecycle/lumo/lumocpp/services.h"
#include "platform/logging/logging.h"
#include "runtime/errors/categories.h"
#include "runtime/introspection/metadata.h"
#include "runtime/introspection/services.h"
#include "runtime/provider/async_local_provider.h"
#include "security/error_annotator_filter.h"
#include "security/host_input_filter.h"
#include "support/translator.h"

namespace Host::Settings::SettingsApi {
namespace {

namespace Metadata = Lumo::Provider::Metadata;
using Lumo::DummyMutex;
using InterfaceContainer = Lumo::Provider::AsyncApiInterfaceConcurrentContainer<DummyMutex>;

constexpr char kCliFile[] = "/usr/lib/orbane/lifecycle/metadata/keeld_lumo_cli.json";
constexpr char kCommonCliFile[] = "/usr/lib/orbane/lifecycle/metadata/lumo_common_cli.json";
constexpr char kMetamodelFile[] = "/usr/lib/orbane/lifecycle/metadata/keeld_lumo_metamodel.json";
constexpr char kCommonMetamodelFile[] = "/usr/lib/orbane/lifecycle/metadata/lumo_common_metamodel.json";
constexpr char kAuthenticationFile[] = "/usr/lib/orbane/lifecycle/metadata/keeld_lumo_authentication.json";

/// Loads one metadata file; the process ends when it cannot.
template <typename Loader, typename Container>
void LoadMetadata(char const* kind, Loader const& load, char const* component, char const* path,
                  Container const& container) {
  CSLogger::Log(2, "Loading %s metadata file: %s", kind, path);
  auto const error = load(component, path, container);
  if (error) {
    CSLogger::Log(0, "Error loading file: %s", error->ToString().c_str());
  }
  VERIFY(!error);
}

/// The metadata services, over the files that every installation must have.
InterfaceList MetadataServices() {
  namespace Helper = Metadata::ProviderHelper;
  auto const cli = Metadata::Cli::MetadataContainer::GetInstance();
  auto const metamodel = Metadata::Metamodel::MetadataContainer::GetInstance();
  auto const authentication = Metadata::Authentication::MetadataContainer::GetInstance();
  LoadMetadata("cli", Helper::LoadCliMetadataFile, "settings", kCliFile, cli);
  LoadMetadata("cli", Helper::LoadCliMetadataFile, "lumo_std", kCommonCliFile, cli);
  LoadMetadata("metamodel", Helper::LoadMetamodelMetadataFile, "settings", kMetamodelFile, metamodel);
  LoadMetadata("metamodel", Helper::LoadMetamodelMetadataFile, "lumo_std", kCommonMetamodelFile, metamodel);
  LoadMetadata("authn", Helper::LoadAuthnMetadataFile, "settings_lumo_authentication", kAuthenticationFile,
               authentication);

  InterfaceList services = Helper::CliInterfaces(cli);
  services.splice(services.end(), Helper::MetamodelInterfaces(metamodel));
  services.splice(services.end(), Helper::AuthnInterfaces(authentication));
  return services;
}

/// Queues closures for the I/O thread. A std::exception that leaves one ends no more than that closure.
std::function<void(std::function<void()>)> Dispatcher(boost::asio::io_context& io) {
  return [&io](std::function<void()> closure) {
    boost::asio::post(io, [closure = std::move(closure)] {
      try {
        closure();
      } catch (std::exception const& e) {
        CSLogger::Log(0, "A call ended with an exception: %s", e.what());
      }
    });
  };
}

}  // namespace

std::shared_ptr<Lumo::L10n::Localizer const> CatalogueLocalizer() {
  auto const templates = [](std::string const& id, boost::string_view locale, std::error_code& ec) {
    std::string const language(locale.begin(), locale.end());
    if (!LifeCycle::HasLanguage(language)) {
      ec = Lumo::L10n::L10nErrc::LocaleNotSupported;
      return std::string();
    }
    return LifeCycle::GetMessage(id, language, ec);
  };
  return std::make_shared<Lumo::L10n::Localizer const>(LifeCycle::SupportedLanguages(), templates,
                                                       Lumo::L10n::LocalizerHelpers::GetDefaultFormatter(),
                                                       Lumo::L10n::LocalizerSpec());
}

std::shared_ptr<Lumo::Core::AsyncApiProvider> BuildProvider(
    boost::asio::io_context& io, std::shared_ptr<Lumo::Log::Logger> const& logger,
    std::shared_ptr<Lumo::L10n::Localizer const> const& localizer) {
  InterfaceList metadataServices = MetadataServices();
  InterfaceList services = BindServices(localizer);
  services.splice(services.end(), metadataServices);

  auto const post = Dispatcher(io);
  auto const container = InterfaceContainer::GetInstance(services);
  auto const local = std::make_shared<Lumo::Provider::AsyncLocalProvider<DummyMutex>>(post, container);
  // Only now, since they report on the finished provider.
  for (auto const& api :
       Lumo::Provider::Introspection::BindServices(*container, local->ToString(), localizer)) {
    Lumo::MessageList dropped;
    container->Add(api, dropped);
  }

  auto const annotated = std::make_shared<Filter::ErrorAnnotatorFilter>(local);
  auto const hostChecked = std::make_shared<Filter::HostInputFilter>(post, HostCheckedServices(), annotated);
  return BuildSecurityChain(post, hostChecked, logger);
}

}  // namespace Host::Settings::SettingsApi
