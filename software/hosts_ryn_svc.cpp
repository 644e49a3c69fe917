#include "software/hosts_ryn_svc.h"

#include "software/tool_query.h"

namespace Com::Orbane::Ryn::Hosts::Software::RynSvc {
namespace {

char const* const kGetCommand = "/usr/bin/python /usr/lib/orbane/lifecycle/bin/stowctl.py ryn --get ";

}  // namespace

void AsyncServiceImpl::Get(std::shared_ptr<GetInput const> const& /*input*/,
                           ::Lumo::AsyncResult<std::shared_ptr<Info const>> const& result) {
  std::string output;
  LifeCycle::RunCommandResult const run = LifeCycle::RunCommand(kGetCommand, nullptr, &output);
  if (run.kind == LifeCycle::RunSpawnFailed) {  // an exit code is none of this method's errors
    result.error(LifeCycle::MakeCommandError(run));
    return;
  }
  LifeCycle::AnswerWithRecord("Get", output, result);
}

}  // namespace Com::Orbane::Ryn::Hosts::Software::RynSvc
