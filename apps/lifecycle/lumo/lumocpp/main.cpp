#include "apps/lifecycle/lumo/lumocpp/daemon.h"
#include "platform/logging/logging.h"

int main() {
  int const status = Host::Settings::SettingsApi::RunDaemon();
  Log_Flush();
  return status;
}
