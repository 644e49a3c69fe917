#include "tasks/operation_launch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/logging/logging.h"
#include "platform/process/zekctl.h"
#include "platform/text/text.h"
#include "support/api_error.h"
#include "support/file_helpers.h"
#include "tasks/access_lock.h"
#include "tasks/remove_files.h"
#include "tasks/task_files.h"
#include "tasks/task_store.h"

namespace LifeCycle {
namespace {

namespace Errors = Com::Orbane::Lumo::Std::Errors;

constexpr int kOperationRetries = 30;
constexpr int kTaskRetries = 0;
constexpr std::chrono::seconds kRetryInterval{1};
constexpr std::size_t kLoggedContent = 255;  // bytes of the sync file

ErrorPtr _OwnError(std::string const& id, bool internalError) {
  return internalError ? MakeApiError<Errors::InternalServerError>(id) : MakeApiError<Errors::Error>(id);
}

/// Opens the sync file for reading. -1, with errno set, when there is none or it can't be read, directories
/// included.
int _OpenSyncFile() {
  int const fd = ::open(kTaskSyncFile, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat info {};
  if (fd >= 0 && ::fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
    ::close(fd);
    errno = EISDIR;
    return -1;
  }
  return fd;
}

/// One attempt to take the gate; logs why it failed.
bool _TryGate(char const* owner, int retriesLeft) {
  char const* const tag = "_CheckTaskContention";
  try {
    // Held for an instant: tells only that nobody else is inside that same instant.
    AccessLock const probe(kTaskSyncFile, 0);
  } catch (AccessLockError const&) {
    CSLogger::Log(0, "[%s]: Lock contention in task %s, another task is starting, %d retries left", tag,
                  owner, retriesLeft);
    return false;
  }
  int const fd = _OpenSyncFile();
  if (fd >= 0) {
    char content[kLoggedContent + 1] = {};
    if (::read(fd, content, kLoggedContent) < 0) {
      content[0] = '\0';
    }
    CSLogger::Log(0, "[%s]: Task sync file exists and contains '%s', %d retries left", tag, content,
                  retriesLeft);
    ::close(fd);
    return false;
  }
  if (errno != ENOENT) {
    CSLogger::Log(0, "[%s]: Failed to determine if the task sync file exists: %s, %d retries left", tag,
                  std::strerror(errno), retriesLeft);
    return false;
  }
  try {
    WriteToFile(kTaskSyncFile, std::string("PRECURSOR: ") + owner);
    return true;
  } catch (FileIOError const& e) {
    CSLogger::Log(0, "[%s]: Failed to write to the task sync file in task %s: %s, %d retries left", tag,
                  owner, e.what(), retriesLeft);
    return false;
  }
}

/// True, with the error set, when the gate stayed shut; false when it now belongs to the owner.
bool _CheckTaskContention(char const* owner, ErrorPtr& error, int retries) {
  for (int left = retries; left >= 0; --left) {
    if (_TryGate(owner, left)) {
      return false;
    }
    CurrentLaunchEnvironment().sleep(kRetryInterval);
  }
  error = MakeApiError<Errors::NotAllowedInCurrentState>("com.orbane.ryn.task.contention");
  return true;
}

/// Makes the record of a task that has passed the gate. False, with the error set and the gate open, when it
/// can't.
template <typename Create>
bool _CreateTask(char const* tag, std::string const& id, ErrorPtr& error, Create const& create) {
  try {
    CSLogger::Log(2, "[%s]: Creating task: %s", tag, id.c_str());
    TaskStore store(kTaskStorePath, false);
    create(store);
    return true;
  } catch (std::exception const& e) {
    CSLogger::Log(0, "[%s]: Failed to create task %s: %s", tag, id.c_str(), e.what());
    RemoveFiles({kTaskSyncFile});
    error = MakeApiError<Errors::Error>("com.orbane.ryn.task.create.error");
    return false;
  }
}

/// One try to start the command; logs why it failed.
bool _TryStart(std::string const& command, std::string const& id, int retriesLeft) {
  char const* const tag = "RunTask";
  CSLogger::Log(2, "[%s]: Executing command: %s", tag, command.c_str());
  try {
    int const status = CurrentLaunchEnvironment().startCommand(command);
    if (status != 0) {
      CSLogger::Log(0,
                    "[%s]: Failed to exec command for task %s: ZekCtl_Daemon() returned %d, %d retries left",
                    tag, id.c_str(), status, retriesLeft);
    }
    return status == 0;
  } catch (HostCtl::Lib::HostCtlException const& e) {
    CSLogger::Log(0, "[%s]: Failed to exec command for task %s: %s, %d retries left", tag, id.c_str(),
                  e.what(), retriesLeft);
    return false;
  }
}

}  // namespace

LaunchEnvironment& CurrentLaunchEnvironment() {
  static LaunchEnvironment environment{SleepOnThread,
                                       [](std::string const& command) {
                                         return ZekCtl::Util::ZekCtl_Daemon(command, false, false, true,
                                                                            true);
                                       },
                                       UUID_CreateRandom};
  return environment;
}

std::string GetTaskId(ErrorPtr& error, bool internalError) {
  std::unique_ptr<char, decltype(&std::free)> const text(CurrentLaunchEnvironment().createUuid(), std::free);
  if (!text || UUID_PackText(text.get(), text.get(), std::strlen(text.get())) == nullptr) {
    error = _OwnError("com.orbane.ryn.task.uuid.error", internalError);
    return {};
  }
  std::string id = text.get();
  CSLogger::Log(3, "[%s]: Generated task uuid %s", "GetTaskId", id.c_str());
  return id;
}

std::string InitTask(std::string const& name, ErrorPtr& error, bool internalError) {
  std::string const id = GetTaskId(error, internalError);
  if (id.empty() || _CheckTaskContention(id.c_str(), error, kTaskRetries)) {
    return {};
  }
  bool const created = _CreateTask("InitTask", id, error, [&](TaskStore& store) {
    store.createNamedTask(id, name, kTaskDatabaseRetries);
  });
  return created ? id : std::string();
}

void RunTask(std::string const& command, std::string const& id, ErrorPtr& error, bool internalError,
             int retries) {
  if (_CheckTaskContention(id.c_str(), error, retries)) {
    return;
  }
  if (!_CreateTask("RunTask", id, error,
                   [&](TaskStore& store) { store.createTask(id, kTaskDatabaseRetries); })) {
    return;
  }
  for (int left = retries;; --left) {
    if (_TryStart(command, id, left)) {
      return;
    }
    if (left == 0) {
      break;
    }
    CurrentLaunchEnvironment().sleep(kRetryInterval);
  }
  RemoveFiles({kTaskSyncFile});
  error = _OwnError("com.orbane.ryn.task.exec.error", internalError);
}

ErrorPtr InitOperation(std::string const& name) {
  CSLogger::Log(2, "[%s]: Initializing operation: %s", "InitOperation", name.c_str());
  ErrorPtr error;
  if (_CheckTaskContention(name.c_str(), error, kOperationRetries)) {
    CSLogger::Log(0, "[%s]: Operation=%s cannot proceed due to contention", "InitOperation", name.c_str());
  }
  return error;
}

void CleanupOperation(std::string const& name) {
  RemoveFiles({kTaskSyncFile});
  CSLogger::Log(2, "[%s]: Cleaned up state associated with operation=%s ", "CleanupOperation", name.c_str());
}

}  // namespace LifeCycle
