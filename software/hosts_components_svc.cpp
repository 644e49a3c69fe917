#include "software/hosts_components_svc.h"

#include "platform/logging/logging.h"
#include "software/tool_query.h"
#include "support/argument_filter.h"

namespace Com::Orbane::Ryn::Hosts::Software::ComponentsSvc {
namespace {

namespace Errors = Lumo::Std::Errors;

char const* const kListCommand = "/usr/bin/python /usr/lib/orbane/lifecycle/bin/stowctl.py component --list ";
char const* const kGetCommand = "/usr/bin/python /usr/lib/orbane/lifecycle/bin/stowctl.py component --get ";

bool _Failed(LifeCycle::RunCommandResult const& run) {
  return run.kind == LifeCycle::RunSpawnFailed || run.kind == LifeCycle::RunNonZeroExit;
}

}  // namespace

void AsyncServiceImpl::List(std::shared_ptr<ListInput const> const& /*input*/,
                            ::Lumo::AsyncResult<std::list<std::shared_ptr<Summary const>>> const& result) {
  std::string output;
  LifeCycle::RunCommandResult const run = LifeCycle::RunCommand(kListCommand, nullptr, &output);
  if (_Failed(run)) {
    result.error(LifeCycle::MakeCommandError(run));
    return;
  }
  std::list<std::shared_ptr<Summary const>> summaries;
  auto const error = LifeCycle::AdaptToolOutput<Errors::NotFound>("List", output, summaries);
  error ? result.error(error) : result(summaries);
}

void AsyncServiceImpl::Get(std::shared_ptr<GetInput const> const& input,
                           ::Lumo::AsyncResult<std::shared_ptr<Info const>> const& result) {
  if (!LifeCycle::IsSafeArgument(input->component)) {
    CSLogger::Log(0, "[%s] Invalid component name specified", "Get");
    result.error(LifeCycle::MakeApiError<Errors::InvalidArgument>(
        "com.orbane.ryn.host_settings.software.component.invalid"));
    return;
  }
  std::string output;
  LifeCycle::RunCommandResult const run =
      LifeCycle::RunCommand(kGetCommand + input->component, nullptr, &output);
  if (_Failed(run)) {
    result.error(LifeCycle::MakeCommandError(run));
    return;
  }
  LifeCycle::AnswerWithRecord("Get", output, result);
}

}  // namespace Com::Orbane::Ryn::Hosts::Software::ComponentsSvc
