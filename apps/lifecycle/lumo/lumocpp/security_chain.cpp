#include "apps/lifecycle/lumo/lumocpp/security_chain.h"

#include <list>

#include "apps/lifecycle/lumo/lumocpp/security_chain_dpu.h"
#include "bindings/com/orbane/halo/tasks_svc.h"
#include "bindings/com/orbane/lumo/std/introspection/operation_svc.h"
#include "bindings/com/orbane/lumo/std/introspection/provider_svc.h"
#include "bindings/com/orbane/lumo/std/introspection/service_svc.h"
#include "bindings/com/orbane/ryn/configuration/components/groups/keys_svc.h"
#include "bindings/com/orbane/ryn/host_settings/depots_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software/components_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software/ryn_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software_svc.h"
#include "bindings/com/orbane/ryn/hosts/settings_svc.h"
#include "bindings/com/orbane/ryn/hosts/software/components_svc.h"
#include "bindings/com/orbane/ryn/hosts/software/ryn_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/capabilities_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/components_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/configuration_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/data_processing_unit/ryncli_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/software_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/solutions_svc.h"
#include "bindings/com/orbane/ryn/software/installed_components_svc.h"
#include "bindings/com/orbane/ryn/software/installed_image_svc.h"
#include "bindings/com/orbane/ryn/software/installed_paks_svc.h"
#include "runtime/introspection/metadata.h"
#include "security/async_authn_filter.h"
#include "security/audit_report.h"
#include "security/call_registrar.h"
#include "security/log_filter.h"
#include "security/require_user_authz.h"
#include "security/user_pass_handler.h"
#include "support/originator.h"

namespace Host::Settings::SettingsApi {
namespace {

namespace Halo = Com::Orbane::Halo;
namespace Ryn = Com::Orbane::Ryn;
namespace Introspection = Lumo::Provider::Introspection::Bindings;
using Lumo::Core::AsyncApiProvider;
using Lumo::Data::TypeInfo;

using HandlerList = std::list<std::shared_ptr<Lumo::Authn::AuthnHandler>>;

/// One filter a handler, the first one innermost.
std::shared_ptr<AsyncApiProvider> WithAuthentication(std::shared_ptr<AsyncApiProvider> chain,
                                                     HandlerList const& handlers) {
  for (auto const& handler : handlers) {
    chain = std::make_shared<Lumo::Authn::Filter::AsyncAuthnFilter>(chain, handler);
  }
  return chain;
}

/// In audit, authentication by user name, and the rule which services need a user; from the outside in.
std::shared_ptr<AsyncApiProvider> WrapInHostSecurity(std::function<void(std::function<void()>)> const& post,
                                                     std::shared_ptr<AsyncApiProvider> chain,
                                                     std::shared_ptr<Lumo::Log::Logger> const& logger) {
  std::set<std::string> anonymous = AnonymousServices();
  Lumo::Authz::AuthzRequireUserConfig config{ServicesThatNeedUser(), std::move(anonymous), true};
  chain = std::make_shared<Lumo::Authz::Filter::RequireUserAuthz>(post, std::move(config), std::move(chain),
                                                                  logger);
  chain = WithAuthentication(std::move(chain), {std::make_shared<Authn::UserPassHandler>()});
  Api::FindOutApiCallAudit();
  return std::make_shared<Lumo::Observer::CallRegistrar<Api::AuditMap>>(std::move(chain), &Api::OnCallEnd);
}

}  // namespace

std::set<std::string> AnonymousServices() {
  std::set<std::string> names = {
      TypeInfo<Introspection::OperationSvc::AsyncServiceInterface>::name(),
      TypeInfo<Introspection::ProviderSvc::AsyncServiceInterface>::name(),
      TypeInfo<Introspection::ServiceSvc::AsyncServiceInterface>::name(),
  };
  names.merge(Lumo::Provider::Metadata::ProviderHelper::MetadataAnonSvcNames());
  return names;
}

std::set<std::string> ServicesThatNeedUser() {
  return {
      TypeInfo<Halo::TasksSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Hosts::SettingsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Hosts::Software::RynSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Hosts::Software::ComponentsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::HostSettings::SoftwareSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::HostSettings::DepotsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::HostSettings::Software::RynSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::HostSettings::Software::ComponentsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Software::InstalledComponentsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Software::InstalledImageSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Software::InstalledPaksSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::KeelDaemon::SoftwareSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::KeelDaemon::ComponentsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::KeelDaemon::SolutionsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::KeelDaemon::CapabilitiesSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::KeelDaemon::ConfigurationSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Configuration::Components::Groups::KeysSvc::AsyncServiceInterface>::name(),
  };
}

std::shared_ptr<AsyncApiProvider> BuildSecurityChain(std::function<void(std::function<void()>)> const& post,
                                                     std::shared_ptr<AsyncApiProvider> const& inner,
                                                     std::shared_ptr<Lumo::Log::Logger> const& logger) {
  return std::make_shared<Filter::LogFilter>(LifeCycle::IsDpuFlavour()
                                                 ? WrapInDpuSecurity(post, inner, logger)
                                                 : WrapInHostSecurity(post, inner, logger));
}

}  // namespace Host::Settings::SettingsApi
