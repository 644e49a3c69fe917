#include "tasks/tasks_svc.h"

#include <map>
#include <memory>
#include <string>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/logging/logging.h"
#include "support/api_error.h"
#include "tasks/make_info.h"
#include "tasks/task_files.h"
#include "tasks/task_schedular.h"
#include "tasks/task_store.h"

namespace Com::Orbane::Halo::TasksSvc {
namespace {

namespace Errors = Lumo::Std::Errors;

using LifeCycle::MakeApiError;
using ErrorPtr = std::shared_ptr<::Lumo::Data::ErrorValue const>;
using InfoPtr = std::shared_ptr<Task::Info const>;
using InfoMap = std::map<std::string, InfoPtr>;

char const* const kUnknownError = "com.orbane.ryn.task.unknown.error";

InfoPtr _GetInfo(std::string const& id, ::Lumo::L10n::RequestLocalizer const& localizer, ErrorPtr& error) {
  LifeCycle::TaskStore store(LifeCycle::kTaskStorePath, false);
  TaskDB::TaskInfo record;
  // The database takes an id up to its first NUL.
  if (!store.get(id, record, LifeCycle::kTaskDatabaseRetries) || record.id != id) {
    CSLogger::Log(2, "[%s]: Task with identifier '%s' not found.", "Get", id.c_str());
    error = MakeApiError<Errors::NotFound>("com.orbane.ryn.task.notfound.error", id);
    return nullptr;
  }
  InfoPtr info = _ConvertInfo(_MakeInfo(record, TaskMessages(localizer)), localizer);
  if (!info) {
    CSLogger::Log(0, "Failed to convert task info for %s", id.c_str());
    error = MakeApiError<Errors::Error>(kUnknownError);
  }
  return info;
}

InfoMap _ListInfos(::Lumo::L10n::RequestLocalizer const& localizer, ErrorPtr& error) {
  LifeCycle::TaskStore store(LifeCycle::kTaskStorePath, false);
  TaskMessages const messages(localizer);
  InfoMap infos;
  for (auto const& [id, record] : store.list(LifeCycle::kTaskDatabaseRetries)) {
    try {
      InfoPtr const info = _ConvertInfo(_MakeInfo(record, messages), localizer);
      if (!info) {
        CSLogger::Log(0, "Failed to convert task info for %s", id.c_str());
        error = MakeApiError<Errors::Error>(kUnknownError);
        return {};
      }
      infos.emplace_hint(infos.end(), id, info);
    } catch (LifeCycle::TaskInfoError const& e) {
      CSLogger::Log(0, "[%s] :  %s, skipping task", "List", e.what());
    }
  }
  return infos;
}

}  // namespace

void AsyncServiceImpl::Get(std::shared_ptr<GetInput const> const& input,
                           ::Lumo::AsyncResult<InfoPtr> const& result) {
  CSLogger::Log(2, "[%s]: Getting the task with id:'%s'", "Get", input->task.c_str());
  ErrorPtr error;
  InfoPtr info;
  try {
    info = _GetInfo(input->task, result.activation()->requestLocalizer(), error);
  } catch (LifeCycle::AccessLockError const& e) {
    CSLogger::Log(0, "[%s]: Failed to acquire lock: %s", "Get", e.what());
    error = MakeApiError<Errors::ResourceInaccessible>("com.orbane.ryn.task.lock.error");
  } catch (LifeCycle::JsonParseError const& e) {
    CSLogger::Log(0, "[%s] :  %s", "Get", e.what());
    error = MakeApiError<Errors::Error>("com.orbane.ryn.task.parse.error");
  } catch (LifeCycle::TaskInfoError const& e) {
    CSLogger::Log(0, "[%s] :  %s", "Get", e.what());
    error = MakeApiError<Errors::Error>("com.orbane.ryn.task.parse.error");
  } catch (LifeCycle::TaskFileNotFoundError const& e) {
    CSLogger::Log(0, "[%s] %s", "Get", e.what());
    error = MakeApiError<Errors::NotFound>("com.orbane.ryn.task.file.notfound.error");
  } catch (...) {
    CSLogger::Log(0, "[%s]: Unknown error", "Get");
    error = MakeApiError<Errors::Error>(kUnknownError);
  }
  error ? result.error(error) : result(info);
}

void AsyncServiceImpl::List(std::shared_ptr<ListInput const> const& /*input*/,
                            ::Lumo::AsyncResult<InfoMap> const& result) {
  ErrorPtr error;
  InfoMap infos;
  try {
    infos = _ListInfos(result.activation()->requestLocalizer(), error);
  } catch (LifeCycle::AccessLockError const& e) {
    CSLogger::Log(0, "[%s]: Failed to acquire lock: %s", "List", e.what());
    error = MakeApiError<Errors::ResourceInaccessible>("com.orbane.ryn.task.lock.error");
  } catch (LifeCycle::JsonParseError const& e) {
    CSLogger::Log(0, "[%s] :  %s", "List", e.what());
    error = MakeApiError<Errors::ResourceInaccessible>("com.orbane.ryn.task.parse.error");
  } catch (LifeCycle::TaskFileNotFoundError const& e) {
    CSLogger::Log(0, "[%s]: Returning empty list.: %s", "List", e.what());
  } catch (...) {
    CSLogger::Log(0, "[%s]: Unknown error", "List");
    error = MakeApiError<Errors::ServiceUnavailable>(kUnknownError);
  }
  error ? result.error(error) : result(infos);
}

void AsyncServiceImpl::Cancel(std::shared_ptr<CancelInput const> const& input,
                              ::Lumo::AsyncResult<::Lumo::Void> const& result) {
  CSLogger::Log(2, "[%s]: Canceling task %s", "Cancel", input->task.c_str());
  LifeCycle::TaskSchedular::GetInstance().AbortTask(input->task);
  result(::Lumo::Void{});
}

}  // namespace Com::Orbane::Halo::TasksSvc
