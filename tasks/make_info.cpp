#include "tasks/make_info.h"

#include <list>
#include <string>
#include <system_error>
#include <utility>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/logging/logging.h"
#include "runtime/data/adapt.h"
#include "support/api_error.h"
#include "support/json_helpers.h"
#include "tasks/task_store.h"

namespace Com::Orbane::Halo::TasksSvc {
namespace {

using LifeCycle::TaskInfoError;
using ::Lumo::Data::DataValuePtr;
using Ryn::KeelDaemon::Notification;
using Ryn::KeelDaemon::Notifications;
using Ryn::KeelDaemon::NotificationType;
using Ryn::KeelDaemon::TaskInfo;
using NotificationList = std::list<std::shared_ptr<Notification const>>;

MessagePtr _FormatMessage(std::string const& id, ::Lumo::L10n::RequestLocalizer const& localizer) {
  ::Lumo::PositionalMessageBuilder const builder(id, LifeCycle::GetDefaultMessage(id));
  std::error_code ignored;
  auto const message = std::make_shared<Lumo::Std::LocalizableMessage>();
  message->id = id;
  message->defaultMessage = builder.defaultTemplate();
  message->localized = ::Lumo::L10n::LocalizableMessageHelpers::formatMessage(localizer.localizer(), builder,
                                                                              localizer.locale(), ignored);
  return message;
}

::Lumo::DateTime _Time(std::string const& text) {
  ::Lumo::DateTime time;
  ::Lumo::DateTime::Create(text, time);  // a bad text leaves the default time
  return time;
}

Task::Status _Status(TaskDB::TaskInfo const& record) {
  if (record.status.empty()) {
    CSLogger::Log(3, "Task has no status, use pending");
    return Task::Status::PENDING;
  }
  for (auto const& [text, value] :
       {std::pair("PENDING", Task::Status::PENDING), std::pair("RUNNING", Task::Status::RUNNING),
        std::pair("SUCCEEDED", Task::Status::SUCCEEDED), std::pair("FAILED", Task::Status::FAILED)}) {
    if (record.status == text) {
      return value;
    }
  }
  throw TaskInfoError("Task " + record.id + " has invalid status " + record.status);
}

/// Null when the text is no notification; why is in the log.
std::shared_ptr<Notification const> _ParseNotification(std::string const& text) {
  DataValuePtr value;
  try {
    value = LifeCycle::ParseJsonValue(text, false);
  } catch (LifeCycle::LumoJsonSerializationError const&) {
    return nullptr;
  }
  if (!value) {
    return nullptr;
  }
  std::shared_ptr<Notification const> notification;
  ::Lumo::MessageList messages;
  if (!::Lumo::Data::FromValue(value, notification, messages)) {
    LifeCycle::LogAdaptMessages("_MakeInfo", messages);
    return nullptr;
  }
  return notification;
}

std::shared_ptr<Notifications const> _MakeNotifications(TaskDB::TaskInfo const& record) {
  NotificationList info;
  NotificationList warnings;
  NotificationList errors;
  for (std::string const& text : record.notifications) {
    auto const notification = _ParseNotification(text);
    if (!notification) {
      continue;
    }
    if (notification->type == NotificationType(NotificationType::WARNING)) {
      warnings.push_back(notification);
    } else if (notification->type == NotificationType(NotificationType::ERROR)) {
      errors.push_back(notification);
    } else {
      info.push_back(notification);
    }
  }
  if (info.empty() && warnings.empty() && errors.empty()) {
    return nullptr;
  }
  auto notifications = std::make_shared<Notifications>();
  auto const set = [](boost::optional<NotificationList>& field, NotificationList& list) {
    if (!list.empty()) {
      field = std::move(list);
    }
  };
  set(notifications->info, info);
  set(notifications->warnings, warnings);
  set(notifications->errors, errors);
  return notifications;
}

DataValuePtr _ParseResult(TaskDB::TaskInfo const& record) {
  DataValuePtr value;
  try {
    value = LifeCycle::ParseJsonValue(record.result, true);
  } catch (LifeCycle::LumoJsonSerializationError const& e) {
    CSLogger::Log(0, "Error de-serializing task result: %s", e.what());
  }
  if (!value) {
    throw TaskInfoError("Result of task " + record.id + " cannot be de-serialized");
  }
  return value;
}

/// Why a task failed; null when the record doesn't say.
DataValuePtr _MakeError(TaskDB::TaskInfo const& record) {
  if (!record.errorId.empty()) {
    return ::Lumo::Data::ErrorFactory::GetError<Lumo::Std::Errors::Error>({::Lumo::MakeMessageFromList(
        record.errorId, LifeCycle::GetDefaultMessage(record.errorId), record.errorArgs)});
  }
  if (!record.error.empty()) {
    try {
      return LifeCycle::ParseJsonValue(record.error, true);
    } catch (std::exception const& e) {
      CSLogger::Log(0, "Error de-serializing task exception: %s", e.what());
      return nullptr;
    }
  }
  CSLogger::Log(1, "Task %s failed without any error details.", record.id.c_str());
  return nullptr;
}

}  // namespace

TaskMessages::TaskMessages(::Lumo::L10n::RequestLocalizer const& localizer)
    : description(_FormatMessage("com.orbane.ryn.task.description", localizer)),
      progress(_FormatMessage("com.orbane.ryn.task.progress", localizer)) {}

std::shared_ptr<TaskInfo> _MakeInfo(TaskDB::TaskInfo const& record, TaskMessages const& messages) {
  auto info = std::make_shared<TaskInfo>();
  info->operation = record.name.empty() ? "unknown" : record.name;
  info->service = "keeld";
  info->cancelable = false;
  info->description = messages.description;
  if (!record.user.empty()) {
    info->user = record.user;
  }
  info->lastUpdateTime = _Time(record.lastUpdate);
  info->status = _Status(record);
  info->notifications = _MakeNotifications(record);
  if (info->status == Task::Status::PENDING) {
    return info;
  }

  if (record.startTime.empty()) {
    throw TaskInfoError("Task " + record.id + " does not have start time");
  }
  info->startTime = _Time(record.startTime);
  auto const progress = std::make_shared<Task::Progress>();
  progress->total = record.progressTotal;
  progress->completed = record.progressCompleted;
  progress->message = messages.progress;
  info->progress = progress;
  if (info->status == Task::Status::RUNNING) {
    return info;
  }

  if (record.endTime.empty()) {
    throw TaskInfoError("Task " + record.id + " does not have end time");
  }
  info->endTime = _Time(record.endTime);
  if (!record.result.empty()) {
    info->result = ::Lumo::Data::DynamicStructure(_ParseResult(record));
  }
  if (info->status == Task::Status::FAILED) {
    if (DataValuePtr const error = _MakeError(record)) {
      info->error = ::Lumo::Data::DynamicStructure(error);
    }
  }
  return info;
}

std::shared_ptr<Task::Info const> _ConvertInfo(std::shared_ptr<TaskInfo const> const& info,
                                               ::Lumo::L10n::RequestLocalizer const& localizer) {
  ::Lumo::MessageList messages;
  DataValuePtr const value = ::Lumo::Data::ToValue(info, messages, localizer);
  std::shared_ptr<Task::Info const> converted;
  if (!value || !::Lumo::Data::FromValue(value, converted, messages)) {
    return nullptr;
  }
  return converted;
}

}  // namespace Com::Orbane::Halo::TasksSvc
