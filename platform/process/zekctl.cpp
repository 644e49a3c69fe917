#include "platform/process/zekctl.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/process/child_start.h"
#include "platform/process/command_words.h"
#include "platform/process/resource_group.h"
#include "platform/process/resource_word.h"

namespace ZekCtl::Util {
namespace {

constexpr std::uint64_t kMegabyte = std::uint64_t{1024} * 1024;
/// What "mem=groupMax" allows where there is no group: image tools hold whole objects in memory, but never
/// the image.
constexpr std::uint64_t kGroupMaxWithoutGroup = 1024 * kMegabyte;

/// The code that a shell would give for a wait status.
int ExitCode(int status) {
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

void SetStreams(Orbane::StartRequest& request, bool inherit) {
  for (int& stream : request.streams) {
    stream = inherit ? Orbane::kStreamInherit : Orbane::kStreamNull;
  }
}

/// The limit that holds where no group does.
std::optional<std::uint64_t> DataLimit(Orbane::ResourceRequest const& resources) {
  if (resources.memoryMegabytes) {
    return *resources.memoryMegabytes * kMegabyte;
  }
  if (resources.memoryOfGroup) {
    return kGroupMaxWithoutGroup;
  }
  return std::nullopt;
}

/// Takes the resource word off `words`. False when it can't be read.
bool TakeResourceWord(std::vector<std::string>& words, Orbane::ResourceRequest& resources) {
  if (words.size() < 2 || !Orbane::IsResourceWord(words[1])) {
    return true;
  }
  if (!Orbane::ParseResourceWord(words[1], resources)) {
    return false;
  }
  words.erase(words.begin() + 1);
  return true;
}

}  // namespace

int ZekCtl_Daemon(std::string const& command, bool inheritStdio, bool wait, bool detach, bool newSession) {
  std::vector<std::string> words;
  Orbane::ResourceRequest resources;
  if ((wait && detach) || !Orbane::SplitCommand(command, words) || !TakeResourceWord(words, resources)) {
    return EINVAL;
  }
  Orbane::ResourceGroup group;
  if (!resources.group.empty()) {
    std::optional<std::uint64_t> memoryMax;
    if (resources.memoryMegabytes) {
      memoryMax = *resources.memoryMegabytes * kMegabyte;
    }
    group = Orbane::ResourceGroup::Open(resources.group, memoryMax);
  }
  Orbane::StartRequest request;
  request.words = &words;
  SetStreams(request, inheritStdio);
  request.newSession = newSession;
  request.detach = detach;
  request.dataLimit = DataLimit(resources);
  request.joinGroup = group.procs();
  request.groupLimitsMemory = resources.memoryOfGroup || group.limitsMemory();
  Orbane::Started const started = Orbane::StartProgram(request);
  if (started.error != 0 || detach) {
    return started.error;
  }
  if (!wait) {
    Orbane::LeaveChild(started.pid);
    return 0;
  }
  int status = 0;
  int const error = Orbane::WaitForChild(started.pid, status);
  return error != 0 ? error : ExitCode(status);
}

int ZekCtl_Exec(std::string const& command, bool inheritStdio, bool wait, bool newSession) {
  std::vector<std::string> words;
  Orbane::Started started;
  if (Orbane::SplitCommand(command, words)) {
    Orbane::StartRequest request;
    request.words = &words;
    SetStreams(request, inheritStdio);
    request.newSession = newSession;
    started = Orbane::StartProgram(request);
  } else {
    started.error = EINVAL;
  }
  int status = 0;
  if (started.error == 0 && wait) {
    started.error = Orbane::WaitForChild(started.pid, status);
  } else if (started.error == 0) {
    Orbane::LeaveChild(started.pid);
  }
  if (started.error != 0) {
    HostCtl::Lib::HostCtlException const failure(std::string("cannot start command: ") +
                                                 std::strerror(started.error));
    errno = started.error;
    throw failure;
  }
  return ExitCode(status);
}

}  // namespace ZekCtl::Util
