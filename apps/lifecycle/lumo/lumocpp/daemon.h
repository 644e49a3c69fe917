#pragma once

namespace Host::Settings::SettingsApi {

/// Registers an output to the system log. When it is refused, the daemon runs all the same: with the output
/// that stands already, else silently.
void AddSyslogOutput();

/// The whole life of the daemon, on the entry thread: start, run until SIGTERM, stop. Gives the exit status:
/// 0, or -1 when the endpoint could not start. Conditions that must hold at start are Panics.
int RunDaemon();

}  // namespace Host::Settings::SettingsApi
