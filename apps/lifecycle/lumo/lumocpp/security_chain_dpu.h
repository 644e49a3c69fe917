// The filters that decide on a data processing unit who may call what.
#pragma once

#include <functional>
#include <memory>

#include "runtime/core/method.h"
#include "runtime/log/logger.h"
#include "security/authz_info.h"

namespace Host::Settings::SettingsApi {

/// What is known without metadata: the scheme of no authentication, and the 36 operations that need none.
Lumo::Authz::AuthzInfo DpuAuthzInfo();

/// Wraps `chain` in authorisation by the metadata files and in authentication by token, and gives the outer
/// one of the two filters. `post` hands a closure to the I/O thread and never runs it inline. A metadata file
/// that cannot be loaded is logged and ends the process with a Panic. Entry thread, before the I/O thread
/// exists.
std::shared_ptr<Lumo::Core::AsyncApiProvider> WrapInDpuSecurity(
    std::function<void(std::function<void()>)> const& post,
    std::shared_ptr<Lumo::Core::AsyncApiProvider> chain, std::shared_ptr<Lumo::Log::Logger> const& logger);

}  // namespace Host::Settings::SettingsApi
