#include "support/command_runner.h"

#include <alloca.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/logging/logging.h"
#include "platform/process/zekctl.h"
#include "platform/process/zekuser.h"

namespace LifeCycle {
namespace {

char const* const kTag = "RunCommand";

constexpr char kResourceGroup[] = "keeld-nontask-forks";
constexpr unsigned kMemoryMegabytes = 200;
constexpr unsigned kSpawnFlags = 0x300;

std::size_t const pageSize = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));

using SpawnAttributes = std::unique_ptr<ZekuserSpawnAttr, ZekCtl::Util::SpawnAttrDestroyer>;

SpawnAttributes _MakeAttributes() {
  ZekuserSpawnAttr* raw = nullptr;
  ZekuserCompat_SpawnAttrInit(&raw);
  SpawnAttributes attributes(raw);
  ZekuserCompat_SpawnAttrSetRP(raw, kResourceGroup);
  ZekuserCompat_SpawnAttrSetMemMB(raw, kMemoryMegabytes);
  ZekuserCompat_SpawnAttrSetFlags(raw, kSpawnFlags);
  return attributes;
}

/// Appends what `fd` gives until its end. False, with errno set, when a read failed.
bool _ReadAll(int fd, std::string& output) {
  auto* const page = static_cast<char*>(::alloca(pageSize + 1));
  std::memset(page, 0, pageSize + 1);
  for (;;) {
    ssize_t const count = ::read(fd, page, pageSize);
    if (count == -1) {
      return false;
    }
    if (count == 0) {
      return true;
    }
    page[count] = '\0';
    output.append(page, std::strlen(page));
  }
}

}  // namespace

RunCommandResult RunCommand(std::string const& command, std::string const* standardInput,
                            std::string* output) {
  CSLogger::Log(3, "[%s] About to run command %s", kTag, command.c_str());
  SpawnAttributes const attributes = _MakeAttributes();

  errno = 0;
  ZekuserPipe* pipe = nullptr;
  // A command text with a NUL is none; as a C string it would be run without what stands behind.
  int const started = command.find('\0') != std::string::npos
                          ? EINVAL
                          : ZekuserCompat_POpen_SpawnAttrs(attributes.get(), command.c_str(),
                                                           standardInput != nullptr ? "w" : "r", &pipe);
  if (started != 0) {
    char text[256] = {};
    ZekuserStatus_CodeToString(started, text, sizeof text, 0);
    CSLogger::Log(0, "[%s] Could not start command: %s, error: %s", kTag, command.c_str(), text);
    return {RunSpawnFailed, started};
  }

  if (standardInput != nullptr) {
    CSLogger::Log(3, "[%s]: Writing to command: %s.", kTag, command.c_str());
    errno = 0;
    if (::write(pipe->fd, standardInput->data(), standardInput->size()) < 0) {
      int const error = errno;
      CSLogger::Log(0, "[%s]: Failed to write %lu bytes to pipe.", kTag,
                    static_cast<unsigned long>(standardInput->size()));
      ::close(pipe->fd);
      ZekuserCompat_PAbandon(pipe);
      return {RunWriteFailed, error};
    }
  }

  errno = 0;
  if (output != nullptr) {
    if (!_ReadAll(pipe->fd, *output)) {
      int const error = errno;
      CSLogger::Log(3, "[%s] Error reading from pipe: %s", kTag, std::strerror(error));
      ::close(pipe->fd);
      ZekuserCompat_PAbandon(pipe);
      return {RunReadFailed, error};
    }
    CSLogger::Log(3, "[%s] Got result : %s", kTag, output->c_str());
  }

  int status = 0;
  int const closed = ZekuserCompat_PClose(pipe, &status);
  CSLogger::Log(3, "[%s] Status from pclose %d", kTag, closed);
  if (closed == 0 && (status & 0x7f) == 0) {
    status = (status >> 8) & 0xff;
  }
  CSLogger::Log(3, "[%s] Command return code %d", kTag, status);
  return {status == 0 ? RunOk : RunNonZeroExit, status};
}

RunCommandResult RunCommand(std::string const& command) {
  errno = 0;
  try {
    int const code = ZekCtl::Util::ZekCtl_Exec(command, false, true, true);
    CSLogger::Log(3, "[%s] Got returnCode from exec: %d", kTag, code);
    return {code == 0 ? RunOk : RunNonZeroExit, code};
  } catch (...) {
    int const error = errno;
    CSLogger::Log(0, "[%s] Got exception from exec", kTag);
    return {RunSpawnFailed, error};
  }
}

}  // namespace LifeCycle
