// The outer filters: who calls, and may they.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "runtime/core/method.h"
#include "runtime/log/logger.h"

namespace Host::Settings::SettingsApi {

/// Services that anybody may call: those that tell what the daemon offers.
std::set<std::string> AnonymousServices();

/// The daemon's own services, each of which needs a user on a host.
std::set<std::string> ServicesThatNeedUser();

/// Wraps the filters that all kinds of host share in those of this one and gives the outermost, the log
/// filter. Inside of it stand, from the outside in: on a host the audit, which looks for its marker now and
/// never again, authentication by user name and password or ticket, and the rule which services need a user;
/// on a data processing unit what WrapInDpuSecurity tells. Entry thread, before the I/O thread exists.
///
/// `post` hands a closure to the I/O thread and never runs it inline.
std::shared_ptr<Lumo::Core::AsyncApiProvider> BuildSecurityChain(
    std::function<void(std::function<void()>)> const& post,
    std::shared_ptr<Lumo::Core::AsyncApiProvider> const& inner,
    std::shared_ptr<Lumo::Log::Logger> const& logger);

}  // namespace Host::Settings::SettingsApi
