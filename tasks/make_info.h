// Task records as the API's task structures.
#pragma once

#include <memory>

#include "bindings/com/orbane/halo/task.h"
#include "bindings/com/orbane/ryn/keel_daemon.h"
#include "platform/taskdb/task_manager.h"
#include "runtime/l10n/localizer.h"

namespace Com::Orbane::Halo::TasksSvc {

using MessagePtr = std::shared_ptr<Lumo::Std::LocalizableMessage const>;

/// The two messages that all tasks share, in the language of one call.
struct TaskMessages {
  explicit TaskMessages(::Lumo::L10n::RequestLocalizer const& localizer);
  MessagePtr description;
  MessagePtr progress;
};

/// Throws LifeCycle::TaskInfoError for a record that contradicts itself or whose result can't be read.
/// Notifications and errors that can't be read are left out.
std::shared_ptr<Ryn::KeelDaemon::TaskInfo> _MakeInfo(TaskDB::TaskInfo const& record,
                                                     TaskMessages const& messages);

/// The value conversion into the API's own shape; null when it fails.
std::shared_ptr<Task::Info const> _ConvertInfo(std::shared_ptr<Ryn::KeelDaemon::TaskInfo const> const& info,
                                               ::Lumo::L10n::RequestLocalizer const& localizer);

}  // namespace Com::Orbane::Halo::TasksSvc
