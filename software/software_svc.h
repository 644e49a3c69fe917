// The service through which clients change the host's software image.
#pragma once

#include "bindings/com/orbane/ryn/keel_daemon/software_svc.h"

namespace Com::Orbane::Ryn::KeelDaemon::SoftwareSvc {

/// Without state. Each method writes the software spec for the image manager, starts it detached and answers
/// with the task's id; the task's result is what the tool writes into its record. Blocks its thread for three
/// seconds when the gate stays shut, and for two when the tool can't be started.
class AsyncServiceImpl final : public AsyncServiceInterface {
 public:
  void Apply(std::shared_ptr<ApplyInput const> const& input,
             ::Lumo::AsyncTaskResult<::Lumo::Void> const& result) override;
  void Stage(std::shared_ptr<StageInput const> const& input,
             ::Lumo::AsyncTaskResult<std::shared_ptr<StageInfo const>> const& result) override;
  /// The spec file is written before the depots are looked at and stays until the next scan. Throws
  /// LifeCycle::FileIOError, which the binder answers, when it can't be written.
  void Scan(std::shared_ptr<ScanInput const> const& input,
            ::Lumo::AsyncTaskResult<std::shared_ptr<HostCompliance const>> const& result) override;
};

}  // namespace Com::Orbane::Ryn::KeelDaemon::SoftwareSvc
