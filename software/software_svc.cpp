#include "software/software_svc.h"

#include <list>
#include <string>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/features/features.h"
#include "platform/logging/logging.h"
#include "runtime/data/adapt.h"
#include "support/api_error.h"
#include "support/file_helpers.h"
#include "support/json_helpers.h"
#include "tasks/operation_launch.h"
#include "tasks/remove_files.h"
#include "tasks/task_files.h"

namespace Com::Orbane::Ryn::KeelDaemon::SoftwareSvc {
namespace {

namespace Errors = Lumo::Std::Errors;

using LifeCycle::ErrorPtr;
using SpecPtr = std::shared_ptr<SoftwareSpec const>;

char const* const kToolPrefix =
    "/usr/bin/python ++group=keeld-task-forks,mem=groupMax,stats /usr/lib/orbane/lifecycle/bin/stowctl.py ";
char const* const kSpecPrefix = "swspec-";
char const* const kScanSpecPath = "/var/run/lifecycle.scan.swspec";
char const* const kWriteError = "com.orbane.ryn.softwarespec.write.error";
constexpr int kRetries = 2;

/// What the regular expression ^[a-zA-Z0-9\-\._~:\/?#\[\]@!\$&'()*+,;%=]+$ takes: the characters of RFC 3986.
/// The library's matcher recurses for each character, and a depot may be as long as a request.
bool _IsDepot(std::string const& depot) {
  return !depot.empty() && depot.find_first_not_of(
                               "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                               "-._~:/?#[]@!$&'()*+,;%=") == std::string::npos;
}

/// Appends one option a depot. False, with the error set, for an empty list and for a depot that is no URL.
template <typename Depots>
bool _AppendDepots(Depots const& depots, std::string& command, ErrorPtr& error) {
  bool good = !depots.empty();
  for (auto depot = depots.begin(); good && depot != depots.end(); ++depot) {
    good = _IsDepot(*depot);
    if (good) {
      command += " --depot ";
      command += depot->c_str();
    }
  }
  if (!good) {
    error = LifeCycle::MakeApiError<Errors::InvalidArgument>("com.orbane.ryn.lumo.invalidinput");
  }
  return good;
}

bool _QuickPatch(boost::optional<bool> const& wanted) {
  return *FeatureList[kFeatureQuickPatchTool] != 0 && *FeatureList[kFeatureQuickPatch] != 0 &&
         wanted.value_or(false);
}

/// What Apply and Stage have in common: the spec file is the task's own and goes with a failure.
template <typename Depots, typename Result>
void _RunOnImage(char const* operation, SpecPtr const& spec, Depots const& depots, bool quickPatch,
                 Result const& result) {
  ErrorPtr error;
  std::string const id = LifeCycle::GetTaskId(error, true);
  if (error) {
    result.error(error);
    return;
  }
  std::string command = std::string(kToolPrefix) + " software " + operation + " --task-id " + id;
  if (!_AppendDepots(depots, command, error)) {
    result.error(error);
    return;
  }
  std::string const specPath = std::string(LifeCycle::kStateDirectory) + kSpecPrefix + id;
  try {
    ::Lumo::MessageList ignored;
    LifeCycle::WriteToFile(specPath, LifeCycle::SerializeToJson(::Lumo::Data::ToValue(spec, ignored)));
  } catch (LifeCycle::FileIOError const&) {
    LifeCycle::RemoveFiles({specPath});
    result.error(LifeCycle::MakeApiError<Errors::InternalServerError>(kWriteError));
    return;
  }
  command += " --software-spec " + specPath;
  if (quickPatch) {
    command += " --quick-patch";
  }
  LifeCycle::RunTask(command, id, error, true, kRetries);
  if (error) {
    LifeCycle::RemoveFiles({specPath});
    result.error(error);
    return;
  }
  result(id);
}

}  // namespace

void AsyncServiceImpl::Apply(std::shared_ptr<ApplyInput const> const& input,
                             ::Lumo::AsyncTaskResult<::Lumo::Void> const& result) {
  _RunOnImage("--apply", input->softwareSpec, input->depots, _QuickPatch(input->quickPatch), result);
}

void AsyncServiceImpl::Stage(std::shared_ptr<StageInput const> const& input,
                             ::Lumo::AsyncTaskResult<std::shared_ptr<StageInfo const>> const& result) {
  _RunOnImage("--stage", input->softwareSpec, input->depots, false, result);  // a set: in sorted order
}

void AsyncServiceImpl::Scan(std::shared_ptr<ScanInput const> const& input,
                            ::Lumo::AsyncTaskResult<std::shared_ptr<HostCompliance const>> const& result) {
  ErrorPtr error;
  std::string const id = LifeCycle::GetTaskId(error, true);
  if (error) {
    result.error(error);
    return;
  }
  ::Lumo::MessageList messages;
  ::Lumo::Data::DataValuePtr const spec = ::Lumo::Data::ToValue(input->softwareSpec, messages);
  if (!messages.empty()) {
    CSLogger::Log(0, "[%s]: Failed to write software spec to file.", "Scan");
    result.error(LifeCycle::MakeApiError<Errors::InternalServerError>(kWriteError));
    return;
  }
  LifeCycle::WriteToFile(kScanSpecPath, LifeCycle::SerializeToJson(spec));
  std::string command = std::string(kToolPrefix) + " software --scan --software-spec " + kScanSpecPath;
  if (!_AppendDepots(input->depots, command, error)) {
    result.error(error);
    return;
  }
  command += " --task-id " + id;
  if (_QuickPatch(input->quickPatch)) {
    command += " --quick-patch";
  }
  LifeCycle::RunTask(command, id, error, true, kRetries);
  if (error) {
    result.error(error);
    return;
  }
  result(id);
}

}  // namespace Com::Orbane::Ryn::KeelDaemon::SoftwareSvc
