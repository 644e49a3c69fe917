// Start of a command from a process of 200 MB against posix_spawn.
//
//   bench_spawn [--ratios]
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "platform/process/zekctl.h"
#include "platform/process/zekuser.h"

namespace {

constexpr int kRounds = 9;
constexpr int kStartsPerRound = 100;
constexpr std::size_t kResidentBytes = 200U * 1024 * 1024;

double MicrosecondsEach(std::function<void()> const& start) {
  auto const begin = std::chrono::steady_clock::now();
  for (int i = 0; i < kStartsPerRound; ++i) {
    start();
  }
  std::chrono::duration<double, std::micro> const time = std::chrono::steady_clock::now() - begin;
  return time.count() / kStartsPerRound;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Require(bool condition) {
  if (!condition) {
    std::fprintf(stderr, "a start failed\n");
    std::exit(1);
  }
}

/// The peer does what a caller of it would do for the same child: streams from "/dev/null", no other
/// descriptors, a session of its own, default signals.
void PosixSpawn() {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int stream = 0; stream < 3; ++stream) {
    posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
  }
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
  sigset_t all;
  sigfillset(&all);
  posix_spawnattr_setsigdefault(&attributes, &all);
  char program[] = "/bin/true";
  char* const arguments[] = {program, nullptr};
  pid_t pid = -1;
  Require(posix_spawn(&pid, program, &actions, &attributes, arguments, environ) == 0);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  Require(waitpid(pid, nullptr, 0) == pid);
}

void Exec() {
  Require(ZekCtl::Util::ZekCtl_Exec("/bin/true", false, true, true) == 0);
}

void Pipe() {
  ZekuserPipe* pipe = nullptr;
  Require(ZekuserCompat_POpen_SpawnAttrs(nullptr, "/bin/true", "r", &pipe) == 0);
  int status = 0;
  Require(ZekuserCompat_PClose(pipe, &status) == 0);
}

void Fork() {
  pid_t const pid = fork();
  if (pid == 0) {
    execl("/bin/true", "/bin/true", nullptr);
    _exit(127);
  }
  Require(waitpid(pid, nullptr, 0) == pid);
}

/// The daemon's hold: from the call to its return; the program's end is nobody's business.
void Daemon() {
  Require(ZekCtl::Util::ZekCtl_Daemon("/bin/true", false, false, true, true) == 0);
}

}  // namespace

int main(int argc, char** argv) {
  bool const ratios = argc > 1 && std::strcmp(argv[1], "--ratios") == 0;
  std::vector<char> resident(kResidentBytes, 1);
  for (std::size_t i = 0; i < resident.size(); i += 4096) {
    resident[i] = static_cast<char>(i);
  }
  std::vector<double> peer;
  std::vector<double> exec;
  std::vector<double> pipe;
  std::vector<double> daemon;
  std::vector<double> copied;
  for (int round = 0; round < kRounds; ++round) {
    peer.push_back(MicrosecondsEach(PosixSpawn));
    exec.push_back(MicrosecondsEach(Exec));
    pipe.push_back(MicrosecondsEach(Pipe));
    daemon.push_back(MicrosecondsEach(Daemon));
    copied.push_back(MicrosecondsEach(Fork));
  }
  if (ratios) {
    std::printf("spawn %.3f\nspawn_daemon %.3f\n", Median(exec) / Median(peer),
                Median(daemon) / Median(peer));
  } else {
    std::printf("posix_spawn, run and wait: %.1f µs\n", Median(peer));
    std::printf("fork and exec, run and wait: %.1f µs, ÷ posix_spawn %.2f\n", Median(copied),
                Median(copied) / Median(peer));
    std::printf("ZekCtl_Exec: %.1f µs, ÷ posix_spawn %.2f\n", Median(exec), Median(exec) / Median(peer));
    std::printf("POpen and PClose: %.1f µs, ÷ posix_spawn %.2f\n", Median(pipe), Median(pipe) / Median(peer));
    std::printf("ZekCtl_Daemon, start only: %.1f µs, ÷ posix_spawn %.2f\n", Median(daemon),
                Median(daemon) / Median(peer));
  }
  return 0;
}
