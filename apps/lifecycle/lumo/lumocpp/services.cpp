#include "apps/lifecycle/lumo/lumocpp/services.h"

#include "bindings/com/orbane/halo/tasks_svc.h"
#include "bindings/com/orbane/ryn/host_settings/depots_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software/components_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software/ryn_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software_svc.h"
#include "bindings/com/orbane/ryn/hosts/settings_svc.h"
#include "bindings/com/orbane/ryn/hosts/software/components_svc.h"
#include "bindings/com/orbane/ryn/hosts/software/ryn_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/data_processing_unit/ryncli_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/software_svc.h"
#include "software/hosts_components_svc.h"
#include "software/hosts_ryn_svc.h"
#include "software/ryncli_svc.h"
#include "software/software_svc.h"
#include "tasks/tasks_svc.h"

namespace Host::Settings::SettingsApi {
namespace {

namespace Halo = Com::Orbane::Halo;
namespace Ryn = Com::Orbane::Ryn;
using Lumo::Data::TypeInfo;

}  // namespace

InterfaceList BindServices(std::shared_ptr<Lumo::L10n::Localizer const> const& localizer) {
  return {
      Halo::TasksSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Halo::TasksSvc::AsyncServiceImpl>(), localizer),
      Ryn::Hosts::Software::RynSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Ryn::Hosts::Software::RynSvc::AsyncServiceImpl>(), localizer),
      Ryn::Hosts::Software::ComponentsSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Ryn::Hosts::Software::ComponentsSvc::AsyncServiceImpl>(), localizer),
      Ryn::KeelDaemon::SoftwareSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Ryn::KeelDaemon::SoftwareSvc::AsyncServiceImpl>(), localizer),
      Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc::AsyncServiceImpl>(), localizer),
  };
}

std::set<std::string> HostCheckedServices() {
  return {
      TypeInfo<Ryn::Hosts::SettingsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Hosts::Software::RynSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::Hosts::Software::ComponentsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::HostSettings::SoftwareSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::HostSettings::DepotsSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::HostSettings::Software::RynSvc::AsyncServiceInterface>::name(),
      TypeInfo<Ryn::HostSettings::Software::ComponentsSvc::AsyncServiceInterface>::name(),
  };
}

}  // namespace Host::Settings::SettingsApi
