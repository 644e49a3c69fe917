#include "held_thread.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>

namespace {

using Pipe = std::array<int, 2>;

Pipe MakePipe() {
  Pipe pipe{};
  EXPECT_EQ(::pipe(pipe.data()), 0);
  return pipe;
}

Pipe const arrival = MakePipe();    // the thread tells that it stands
Pipe const departure = MakePipe();  // and reads that it may go on

void Say(Pipe const& pipe) {
  char const byte = 0;
  EXPECT_EQ(::write(pipe[1], &byte, 1), 1);
}

void Hear(Pipe const& pipe) {
  char byte = 0;
  EXPECT_EQ(::read(pipe[0], &byte, 1), 1);
}

void StandStill(int /*signal*/) {
  int const before = errno;
  Say(arrival);
  Hear(departure);
  errno = before;
}

}  // namespace

std::set<pid_t> ThreadIds() {
  std::set<pid_t> ids;
  for (auto const& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    ids.insert(std::stoi(entry.path().filename().string()));
  }
  return ids;
}

HeldThread::HeldThread(pid_t thread) {
  struct sigaction action {};
  action.sa_handler = StandStill;
  action.sa_flags = SA_RESTART;
  EXPECT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
  EXPECT_EQ(::syscall(SYS_tgkill, ::getpid(), thread, SIGUSR1), 0);
  Hear(arrival);
}

HeldThread::~HeldThread() {
  LetGo();
}

void HeldThread::LetGo() {
  if (held_) {
    Say(departure);
    held_ = false;
  }
}
