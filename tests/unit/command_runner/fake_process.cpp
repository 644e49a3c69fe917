#include "fake_process.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/process/zekctl.h"
#include "platform/process/zekuser.h"

struct ZekuserSpawnAttr {};

namespace {

FakeProcess::Script script;
std::vector<std::string> calls;
ZekuserPipe openPipe;

char const* Flag(bool flag) {
  return flag ? "true" : "false";
}

}  // namespace

namespace FakeProcess {

void Reset(Script const& next) {
  script = next;
  calls.clear();
}

std::vector<std::string> const& Calls() {
  return calls;
}

}  // namespace FakeProcess

int ZekuserCompat_SpawnAttrInit(ZekuserSpawnAttr** attr) {
  *attr = new ZekuserSpawnAttr;
  calls.emplace_back("init");
  return 0;
}

int ZekuserCompat_SpawnAttrSetRP(ZekuserSpawnAttr*, char const* group) {
  calls.push_back(std::string("group ") + group);
  return 0;
}

int ZekuserCompat_SpawnAttrSetMemMB(ZekuserSpawnAttr*, unsigned megabytes) {
  calls.push_back("memory " + std::to_string(megabytes));
  return 0;
}

int ZekuserCompat_SpawnAttrSetFlags(ZekuserSpawnAttr*, unsigned flags) {
  calls.push_back("flags " + std::to_string(flags));
  return 0;
}

int ZekuserCompat_POpen_SpawnAttrs(ZekuserSpawnAttr const*, char const* command, char const* mode,
                                   ZekuserPipe** pipe) {
  calls.push_back(std::string("open ") + mode + " " + command);
  if (script.openStatus == 0) {
    openPipe.fd = script.fd;
    *pipe = &openPipe;
  }
  return script.openStatus;
}

int ZekuserCompat_PClose(ZekuserPipe* pipe, int* status) {
  calls.emplace_back("close");
  ::close(pipe->fd);
  *status = script.waitStatus;
  return script.closeStatus;
}

void ZekuserCompat_PAbandon(ZekuserPipe* pipe) {
  calls.emplace_back(pipe == &openPipe ? "abandon" : "abandon another");
}

char const* ZekuserStatus_CodeToString(int status, char* buffer, std::size_t size, int extra) {
  std::snprintf(buffer, size, "status %d of %zu, %d", status, size, extra);
  return buffer;
}

namespace ZekCtl::Util {

void SpawnAttrDestroyer::operator()(ZekuserSpawnAttr* attr) const {
  calls.emplace_back("destroy");
  delete attr;
}

int ZekCtl_Exec(std::string const& command, bool inheritStdio, bool wait, bool newSession) {
  calls.push_back("exec " + command + " " + Flag(inheritStdio) + " " + Flag(wait) + " " + Flag(newSession));
  if (script.execThrows) {
    errno = script.execErrno;
    throw HostCtl::Lib::HostCtlException("refused");
  }
  return script.execCode;
}

}  // namespace ZekCtl::Util
