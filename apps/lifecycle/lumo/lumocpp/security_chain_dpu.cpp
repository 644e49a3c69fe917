#include "apps/lifecycle/lumo/lumocpp/security_chain_dpu.h"

#include <fstream>
#include <iterator>
#include <list>
#include <utility>

#include "platform/logging/logging.h"
#include "security/async_authn_filter.h"
#include "security/async_authz_filter.h"
#include "security/jwt_entitlement_checker_impl.h"
#include "security/load_authz_info_metadata.h"
#include "security/token_handler.h"

namespace Host::Settings::SettingsApi {
namespace {

/// The security scheme of no authentication, then the operations that need none.
constexpr char const* kNoAuthentication[] = {
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

/// In the order in which they are loaded.
constexpr char const* kMetadataFiles[] = {
    "/usr/lib/orbane/lifecycle/metadata/keeld_lumo_authentication.json",
    "/usr/lib/orbane/lifecycle/metadata/keeld_lumo_authorization.json",
};

void LoadMetadataFile(char const* path, Lumo::Authz::AuthzInfo& info,
                      std::shared_ptr<Lumo::Log::Logger> const& logger) {
  CSLogger::Log(2, "Loading authz metadata file: %s", path);
  std::ifstream file(path, std::ios::binary);
  Lumo::MessageList logged;
  bool const loaded = file && Lumo::Authz::Metadata::LoadAuthzInfoMetadata::Load(file, info, logger, logged);
  if (!loaded) {
    CSLogger::Log(0, "Error loading authz metadata file: %s", path);
  }
  VERIFY(loaded);
}

}  // namespace

Lumo::Authz::AuthzInfo DpuAuthzInfo() {
  Lumo::Authz::AuthzInfo info;
  info.noAuthenticationScheme = kNoAuthentication[0];
  info.noAuthenticationOperations.insert(std::next(std::begin(kNoAuthentication)),
                                         std::end(kNoAuthentication));
  return info;
}

std::shared_ptr<Lumo::Core::AsyncApiProvider> WrapInDpuSecurity(
    std::function<void(std::function<void()>)> const& post,
    std::shared_ptr<Lumo::Core::AsyncApiProvider> chain, std::shared_ptr<Lumo::Log::Logger> const& logger) {
  Lumo::Authz::AuthzInfo info = DpuAuthzInfo();
  for (char const* const path : kMetadataFiles) {
    LoadMetadataFile(path, info, logger);
  }
  auto const checker = std::make_shared<RynToken::Authz::JwtEntitlementCheckerImpl>(logger);
  chain = std::make_shared<Lumo::Authz::Filter::AsyncAuthzFilter>(post, std::move(chain), std::move(info),
                                                                  checker, logger);

  std::list<std::shared_ptr<Lumo::Authn::AuthnHandler>> const handlers = {
      std::make_shared<Ryn::Authn::TokenHandler>(logger)};
  for (auto const& handler : handlers) {
    chain = std::make_shared<Lumo::Authn::Filter::AsyncAuthnFilter>(std::move(chain), handler);
  }
  return chain;
}

}  // namespace Host::Settings::SettingsApi
