#pragma once

namespace Host::Settings::SettingsApi {

/// The whole life of the daemon, on the entry thread: start, run until SIGTERM, stop. Gives the exit status:
/// 0, or -1 when the endpoint could not start. Conditions that must hold at start are Panics.
int RunDaemon();

}  // namespace Host::Settings::SettingsApi
