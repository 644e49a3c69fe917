// Assembles what answers every call: services, local provider, filters.
#pragma once

#include <boost/asio/io_context.hpp>
#include <memory>

#include "runtime/core/method.h"
#include "runtime/l10n/localizer.h"
#include "runtime/log/logger.h"

namespace Host::Settings::SettingsApi {

/// The localizer over the installed message catalogues.
std::shared_ptr<Lumo::L10n::Localizer const> CatalogueLocalizer();

/// Builds the chain and gives its outermost filter. Called once, on the entry thread, before the I/O thread
/// exists; the chain is immutable afterwards. A metadata file that cannot be loaded is logged and ends the
/// process with a Panic.
std::shared_ptr<Lumo::Core::AsyncApiProvider> BuildProvider(
    boost::asio::io_context& io, std::shared_ptr<Lumo::Log::Logger> const& logger,
    std::shared_ptr<Lumo::L10n::Localizer const> const& localizer);

}  // namespace Host::Settings::SettingsApi
