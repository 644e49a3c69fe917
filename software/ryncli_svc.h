// The service that runs software commands of a data processing unit's administration tool.
#pragma once

#include "bindings/com/orbane/ryn/keel_daemon/data_processing_unit/ryncli_svc.h"

namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc {

/// Without state. The call runs the tool in the foreground and blocks its thread until it has ended. Whatever
/// is refused, nothing has been run by then.
class AsyncServiceImpl final : public AsyncServiceInterface {
 public:
  void RunRyncliCmd(std::shared_ptr<RunRyncliCmdInput const> const& input,
                    ::Lumo::AsyncResult<std::shared_ptr<RyncliOutput const>> const& result) override;
};

}  // namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc
