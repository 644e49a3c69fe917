// The service through which clients follow tasks.
#pragma once

#include "bindings/com/orbane/halo/tasks_svc.h"

namespace Com::Orbane::Halo::TasksSvc {

/// Without state: each call reads the task database anew, and blocks its thread for the database's lock. Any
/// thread.
class AsyncServiceImpl final : public AsyncServiceInterface {
 public:
  void Get(std::shared_ptr<GetInput const> const& input,
           ::Lumo::AsyncResult<std::shared_ptr<Task::Info const>> const& result) override;
  /// In ascending order of ids. A record that contradicts itself is left out.
  void List(
      std::shared_ptr<ListInput const> const& input,
      ::Lumo::AsyncResult<std::map<std::string, std::shared_ptr<Task::Info const>>> const& result) override;
  /// Succeeds always; only a task that the scheduler runs is told.
  void Cancel(std::shared_ptr<CancelInput const> const& input,
              ::Lumo::AsyncResult<::Lumo::Void> const& result) override;
};

}  // namespace Com::Orbane::Halo::TasksSvc
