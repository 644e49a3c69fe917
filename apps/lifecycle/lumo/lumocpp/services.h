// The daemon's own services.
#pragma once

#include <list>
#include <memory>
#include <set>
#include <string>

#include "runtime/l10n/localizer.h"
#include "runtime/provider/interface.h"

namespace Host::Settings::SettingsApi {

using InterfaceList = std::list<std::shared_ptr<Lumo::Provider::AsyncApiInterface const>>;

/// All services, bound, in their fixed order.
InterfaceList BindServices(std::shared_ptr<Lumo::L10n::Localizer const> const& localizer);

/// Identifiers of the services in whose calls the input field "host" is checked.
std::set<std::string> HostCheckedServices();

}  // namespace Host::Settings::SettingsApi
