#include "apps/lifecycle/lumo/lumocpp/daemon.h"

#include <csignal>

#include <boost/asio/io_context.hpp>
#include <exception>
#include <memory>

#include "apps/lifecycle/lumo/lumocpp/endpoint.h"
#include "apps/lifecycle/lumo/lumocpp/lumo_logger_wrapper.h"
#include "apps/lifecycle/lumo/lumocpp/provider.h"
#include "platform/features/features.h"
#include "platform/logging/logging.h"
#include "platform/poll/poll.h"
#include "runtime/provider/localizing_provider.h"
#include "tasks/remove_files.h"
#include "tasks/task_files.h"
#include "tasks/task_store.h"

namespace Host::Settings::SettingsApi {
namespace {

// The most verbose level that the logging bridge asks for.
constexpr int kLogLevel = 7;

/// Written by the SIGTERM handler alone, read by the poll loop.
char volatile exitFlag = 0;

extern "C" void OnSigterm(int /*signal*/) {
  __atomic_store_n(&exitFlag, 1, __ATOMIC_RELEASE);
}

void HandleSigterm() {
  struct sigaction action {};
  action.sa_handler = &OnSigterm;
  sigemptyset(&action.sa_mask);
  if (sigaction(SIGTERM, &action, nullptr) != 0) {
    CSLogger::Log(1, "Error in registering sigterm handler");
  }
}

}  // namespace

void AddSyslogOutput() {
  LogCfgInterface* const config = Log_CfgInterface();
  LogOutput* const output = Log_NewSyslogOutput("keeld", "syslog", 0, config);
  Log_SetOutputLevel(output, kLogLevel);
  if (!Log_AddOutput(output)) {
    Log_FreeOutput(output);
  }
}

int RunDaemon() {
  AddSyslogOutput();
  HandleSigterm();
  FeatureState_InitSilentMode();
  Preference_Init();
  Poll_InitDefault();

  // No task and no gate survives a restart of the daemon.
  LifeCycle::TaskStore const taskStore(LifeCycle::kTaskStorePath, true);
  LifeCycle::RemoveFiles({LifeCycle::kTaskSyncFile});

  auto const logger = std::make_shared<LumoLoggerWrapper>();
  constexpr int kThreads = 1;
  boost::asio::io_context io(kThreads);
  auto const localizer = CatalogueLocalizer();
  auto const provider =
      std::make_shared<Lumo::Provider::LocalizingProvider>(localizer, BuildProvider(io, logger, localizer));
  Endpoint endpoint(provider, io, logger);
  try {
    endpoint.Start();
  } catch (std::exception const& e) {
    CSLogger::Log(0, "Failed to start HTTP service. Aborting. Error:%s", e.what());
    return -1;
  }

  Poll_Loop(true, &exitFlag, 0);

  endpoint.Stop();
  Poll_Exit();
  return 0;
}

}  // namespace Host::Settings::SettingsApi
