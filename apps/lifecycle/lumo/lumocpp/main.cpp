#include <exception>

#include "apps/lifecycle/lumo/lumocpp/daemon.h"
#include "platform/logging/logging.h"

namespace {

/// The process ends here in any case; without this the lines that are still queued would be lost.
[[noreturn]] void OnTerminate() {
  if (std::exception_ptr const uncaught = std::current_exception()) {
    try {
      std::rethrow_exception(uncaught);
    } catch (std::exception const& e) {
      Panic("Uncaught exception: %s\n", e.what());
    } catch (...) {
      Panic("Uncaught exception of an unknown type\n");
    }
  }
  Panic("Terminated\n");
}

}  // namespace

int main() {
  std::set_terminate(OnTerminate);
  int const status = Host::Settings::SettingsApi::RunDaemon();
  Log_Flush();
  return status;
}
