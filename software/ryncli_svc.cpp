#include "software/ryncli_svc.h"

#include <cstring>
#include <string>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/logging/logging.h"
#include "software/ryncli_command_line.h"
#include "support/api_error.h"
#include "support/command_runner.h"

namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc {
namespace {

using Lumo::Std::Errors::InternalServerError;

char const* const kTag = "RunRyncliCmd";
constexpr int kRefused = 3;  // an errno, of which callers know the text; the same for every refusal

/// Appends a flag with its value, if it has one. The reason for a refusal, else null; `line` is then of no
/// use.
char const* _AppendFlag(Flag const& flag, std::string& line) {
  if (flag.value.empty()) {
    if (!IsValidArgument(flag.flag, false)) {
      return "Invalid flag specified. Unsafe to continue.";
    }
    line += " " + flag.flag;
    return nullptr;
  }
  if (!IsValidArgument(flag.flag, false)) {
    return "Invalid  flag specified. Unsafe to continue.";
  }
  if (flag.flag == "-s") {
    if (!IsValidSpecUrl(flag.value)) {
      return "Invalid spec argument specified. Unsafe to continue.";
    }
    line += " " + flag.flag + " " + flag.value;
    return nullptr;
  }
  if (!IsValidArgument(flag.value, true)) {
    return "Invalid argument specified. Unsafe to continue.";
  }
  line += " " + flag.flag + " \"" + flag.value + "\"";
  return nullptr;
}

/// Makes the line that the input stands for. The reason for a refusal, else null.
char const* _MakeLine(RunRyncliCmdInput const& input, std::string& line) {
  std::string const prefix = PrefixText(input.prefix);
  if (prefix.empty()) {
    return "Invalid prefix.";
  }
  std::string const command = CommandText(input.command);
  if (command.empty()) {
    return "Invalid command.";
  }
  line = prefix + " " + command;
  if (!input.depots.empty() && !IsValidDepots(input.depots, line)) {
    return "Invalid Depot.";
  }
  for (std::shared_ptr<Flag const> const& flag : input.flags) {
    if (char const* const reason = _AppendFlag(*flag, line)) {
      return reason;
    }
  }
  return nullptr;
}

}  // namespace

void AsyncServiceImpl::RunRyncliCmd(std::shared_ptr<RunRyncliCmdInput const> const& input,
                                    ::Lumo::AsyncResult<std::shared_ptr<RyncliOutput const>> const& result) {
  std::string line;
  if (char const* const reason = _MakeLine(*input, line)) {
    CSLogger::Log(0, "[%s] %s", kTag, reason);
    result.error(LifeCycle::MakeApiError<InternalServerError>("com.orbane.ryn.lumo.invalidinput",
                                                              std::string(std::strerror(kRefused))));
    return;
  }
  auto const output = std::make_shared<RyncliOutput>();
  LifeCycle::RunCommandResult const run = LifeCycle::RunCommand(line, nullptr, &output->output);
  if (run.code != 0) {
    CSLogger::Log(0, "[%s] Failed to run Ryncli command: %d.", kTag, static_cast<int>(run.code));
    result.error(LifeCycle::MakeApiError<InternalServerError>(
        "com.orbane.ryn.host_settings.command.failed",
        "Error: " + output->output + ". ErrorCode: " + std::strerror(run.code)));
    return;
  }
  result(output);
}

}  // namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc
