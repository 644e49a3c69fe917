// Foreground commands with a one-way pipe and resource limits.
#pragma once

#include <cstddef>

struct ZekuserSpawnAttr;
/// `fd` is the parent's end of the pipe.
struct ZekuserPipe {
  int fd = -1;
  int pid = -1;
};

/// A new attribute object in `*attr`; 0 or an errno.
int ZekuserCompat_SpawnAttrInit(ZekuserSpawnAttr** attr);
/// Resource group: joined where the host has a delegated one of that name.
int ZekuserCompat_SpawnAttrSetRP(ZekuserSpawnAttr* attr, char const* group);
/// Most memory: `memory.max` of the group, else RLIMIT_DATA. 0 is EINVAL.
int ZekuserCompat_SpawnAttrSetMemMB(ZekuserSpawnAttr* attr, unsigned megabytes);
/// 0x100: no inherited descriptors; 0x200: default signals. Every start does both, so the bits change
/// nothing; others are EINVAL.
int ZekuserCompat_SpawnAttrSetFlags(ZekuserSpawnAttr* attr, unsigned flags);

/// Starts `command` without a shell (see zekctl.h) with a pipe from its standard output (mode "r") or to its
/// standard input (mode "w"); the other streams are "/dev/null", standard error included. 0, or an errno when
/// it can't be started. Writing to a child that has gone gives EPIPE and no signal.
int ZekuserCompat_POpen_SpawnAttrs(ZekuserSpawnAttr const* attr, char const* command, char const* mode,
                                   ZekuserPipe** pipe);
/// Closes the descriptor, waits for the child and gives its wait status; frees `pipe`. 0, or an errno.
int ZekuserCompat_PClose(ZekuserPipe* pipe, int* status);
/// Instead of ZekuserCompat_PClose, when nobody waits for the child: frees `pipe`, whose descriptor the
/// caller has closed; the child is reaped at a later start of a program.
void ZekuserCompat_PAbandon(ZekuserPipe* pipe);
/// Text of a status into `buffer`.
char const* ZekuserStatus_CodeToString(int status, char* buffer, std::size_t size, int extra);

namespace ZekCtl::Util {
struct SpawnAttrDestroyer {
  void operator()(ZekuserSpawnAttr* attr) const;
};
}  // namespace ZekCtl::Util
