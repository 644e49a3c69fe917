#include "platform/process/zekuser.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "process_test_support.h"

namespace {

using Attributes = std::unique_ptr<ZekuserSpawnAttr, ZekCtl::Util::SpawnAttrDestroyer>;

Attributes NewAttributes() {
  ZekuserSpawnAttr* attributes = nullptr;
  EXPECT_EQ(ZekuserCompat_SpawnAttrInit(&attributes), 0);
  return Attributes(attributes);
}

ZekuserPipe* Open(std::string const& command, char const* mode,
                  ZekuserSpawnAttr const* attributes = nullptr) {
  ZekuserPipe* pipe = nullptr;
  EXPECT_EQ(ZekuserCompat_POpen_SpawnAttrs(attributes, command.c_str(), mode, &pipe), 0) << command;
  return pipe;
}

std::string ReadAll(int descriptor) {
  std::string text;
  char buffer[4096];
  for (ssize_t count = 0; (count = read(descriptor, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

int Close(ZekuserPipe* pipe) {
  int status = -1;
  EXPECT_EQ(ZekuserCompat_PClose(pipe, &status), 0);
  return status;
}

std::string Output(std::string const& command, ZekuserSpawnAttr const* attributes = nullptr) {
  ZekuserPipe* const pipe = Open(command, "r", attributes);
  std::string text = ReadAll(pipe->fd);
  EXPECT_EQ(Close(pipe), 0) << command;
  return text;
}

bool HasChildren() {
  return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

using Zekuser = ProcessTest;

TEST_F(Zekuser, ReadsOutput) {
  EXPECT_EQ(Output("/bin/echo one 'two  three'"), "one two  three\n");
  EXPECT_FALSE(HasChildren());
}

TEST_F(Zekuser, MuchOutputArrivesWhole) {
  EXPECT_EQ(Output("/usr/bin/head -c 1000000 /dev/zero"), std::string(1000000, '\0'));
}

TEST_F(Zekuser, OtherStreamsAreNull) {
  std::string const script = Script("echo lost >&2; readlink /proc/$$/fd/0 /proc/$$/fd/2; cat");
  EXPECT_EQ(Output(script), "/dev/null\n/dev/null\n");
  ZekuserPipe* const pipe =
      Open(Script("one=$(readlink /proc/$$/fd/1); two=$(readlink /proc/$$/fd/2)\necho \"$one $two\" >'" +
                  Path("out") + "'; cat"),
           "w");
  ASSERT_EQ(write(pipe->fd, "x", 1), 1);
  EXPECT_EQ(Close(pipe), 0);
  EXPECT_EQ(Content(Path("out")), "/dev/null /dev/null\n");
}

TEST_F(Zekuser, WritesInput) {
  ZekuserPipe* const pipe = Open(Script("cat >'" + Path("in") + "'"), "w");
  std::string const text = "a document\n";
  ASSERT_EQ(write(pipe->fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  EXPECT_EQ(Close(pipe), 0);
  EXPECT_EQ(Content(Path("in")), text);
}

TEST_F(Zekuser, StatusIsTheWaitStatus) {
  EXPECT_EQ(Close(Open("/bin/sh -c 'exit 7'", "r")), 7 << 8);
  EXPECT_EQ(Close(Open("/bin/sh -c 'kill -9 $$'", "r")), 9);
}

TEST_F(Zekuser, StartFailures) {
  struct Case {
    char const* command;
    char const* mode;
    int error;
  };
  Case const cases[] = {
      {"/nonexistent/program", "r", ENOENT},
      {"/nonexistent/program", "w", ENOENT},
      {"/etc/passwd", "r", EACCES},
      {"/bin/echo 'open", "r", EINVAL},
      {"", "r", EINVAL},
      {"/bin/true", "rw", EINVAL},
      {"/bin/true", "", EINVAL},
  };
  int const before = open("/dev/null", O_RDONLY);
  close(before);
  for (Case const& each : cases) {
    auto* pipe = reinterpret_cast<ZekuserPipe*>(1);
    EXPECT_EQ(ZekuserCompat_POpen_SpawnAttrs(nullptr, each.command, each.mode, &pipe), each.error)
        << each.command;
    EXPECT_EQ(pipe, nullptr);
  }
  int const after = open("/dev/null", O_RDONLY);
  close(after);
  EXPECT_EQ(after, before) << "no descriptor was left open";
  EXPECT_FALSE(HasChildren());
}

TEST_F(Zekuser, WritingToAChildThatHasGoneGivesEpipe) {
  ZekuserPipe* const pipe = Open("/bin/true", "w");
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pipe->pid), &info, WEXITED | WNOWAIT), 0);
  errno = 0;
  EXPECT_EQ(write(pipe->fd, "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(Close(pipe), 0);
  EXPECT_EQ(Output("/bin/grep -c '^SigIgn:\\s0*$' /proc/self/status"), "1\n")
      << "children have the default back";
}

TEST_F(Zekuser, AHandlerOfTheProgramForBrokenPipesStays) {
  EXPECT_EXIT(
      {
        struct sigaction action {};
        action.sa_handler = [](int) { _exit(42); };
        sigaction(SIGPIPE, &action, nullptr);
        Open("/bin/cat", "w");
        raise(SIGPIPE);
      },
      ::testing::ExitedWithCode(42), "");
}

TEST_F(Zekuser, TheParentsEndIsNotInheritedByOthers) {
  ZekuserPipe* const first = Open("/bin/cat", "w");
  EXPECT_EQ(fcntl(first->fd, F_GETFD), FD_CLOEXEC);
  // If the second child held the first one's pipe, closing it would not end the first.
  ZekuserPipe* const second = Open("/bin/cat", "w");
  EXPECT_EQ(Close(first), 0);
  EXPECT_EQ(Close(second), 0);
}

TEST_F(Zekuser, CloseOfNothing) {
  int status = -1;
  EXPECT_EQ(ZekuserCompat_PClose(nullptr, &status), EINVAL);
  ZekuserCompat_PAbandon(nullptr);
}

TEST_F(Zekuser, AnAbandonedChildIsReapedLater) {
  ZekuserPipe* const pipe = Open("/bin/true", "r");
  pid_t const pid = pipe->pid;
  close(pipe->fd);
  ZekuserCompat_PAbandon(pipe);
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(Output("/bin/echo next"), "next\n");
  EXPECT_FALSE(HasChildren());
}

TEST_F(Zekuser, AbandonedChildrenThatRunAreLeftAlone) {
  ZekuserPipe* const pipe = Open("/bin/cat", "w");
  pid_t const pid = pipe->pid;
  int const descriptor = pipe->fd;
  ZekuserCompat_PAbandon(pipe);
  EXPECT_EQ(Output("/bin/echo next"), "next\n");
  EXPECT_EQ(kill(pid, 0), 0) << "still there";
  close(descriptor);
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(Output("/bin/echo next"), "next\n");
  EXPECT_FALSE(HasChildren());
}

TEST_F(Zekuser, AttributesAreChecked) {
  Attributes const attributes = NewAttributes();
  EXPECT_EQ(ZekuserCompat_SpawnAttrSetRP(attributes.get(), "keeld-nontask-forks"), 0);
  EXPECT_EQ(ZekuserCompat_SpawnAttrSetRP(attributes.get(), "../x"), EINVAL);
  EXPECT_EQ(ZekuserCompat_SpawnAttrSetMemMB(attributes.get(), 200), 0);
  EXPECT_EQ(ZekuserCompat_SpawnAttrSetMemMB(attributes.get(), 0), EINVAL);
  EXPECT_EQ(ZekuserCompat_SpawnAttrSetFlags(attributes.get(), 0x300), 0);
  EXPECT_EQ(ZekuserCompat_SpawnAttrSetFlags(attributes.get(), 0), 0);
  EXPECT_EQ(ZekuserCompat_SpawnAttrSetFlags(attributes.get(), 0x400), EINVAL);
}

TEST_F(Zekuser, MemoryIsLimitedByDataSizeNeverByAddressSpace) {
  Attributes const attributes = NewAttributes();
  ASSERT_EQ(ZekuserCompat_SpawnAttrSetRP(attributes.get(), "keeld-nontask-forks"), 0);
  ASSERT_EQ(ZekuserCompat_SpawnAttrSetMemMB(attributes.get(), 200), 0);
  ASSERT_EQ(ZekuserCompat_SpawnAttrSetFlags(attributes.get(), 0x300), 0);
  EXPECT_EQ(Output("/bin/sh -c 'ulimit -d; ulimit -v'", attributes.get()), "204800\nunlimited\n");
  EXPECT_EQ(Output("/bin/sh -c 'ulimit -d; ulimit -v'"), "unlimited\nunlimited\n");
}

TEST_F(Zekuser, ACommandThatWantsMoreMemoryFails) {
  Attributes const attributes = NewAttributes();
  ASSERT_EQ(ZekuserCompat_SpawnAttrSetMemMB(attributes.get(), 200), 0);
  std::string const allocate = "/usr/bin/python3 -c 'x = bytearray(%d * 1024 * 1024); print(len(x))'";
  auto const with = [&allocate](int megabytes) {
    std::string command = allocate;
    return command.replace(command.find("%d"), 2, std::to_string(megabytes));
  };
  EXPECT_EQ(Output(with(100), attributes.get()), "104857600\n");
  ZekuserPipe* const pipe = Open(with(300), "r", attributes.get());
  EXPECT_EQ(ReadAll(pipe->fd), "");
  EXPECT_EQ(WEXITSTATUS(Close(pipe)), 1);
}

TEST_F(Zekuser, TextsOfStatuses) {
  char buffer[256];
  EXPECT_STREQ(ZekuserStatus_CodeToString(ENOENT, buffer, sizeof buffer, 0), "No such file or directory");
  EXPECT_STREQ(ZekuserStatus_CodeToString(EINVAL, buffer, sizeof buffer, 0), "Invalid argument");
  EXPECT_STREQ(ZekuserStatus_CodeToString(99999, buffer, sizeof buffer, 0), "Unknown error 99999");
  EXPECT_STREQ(ZekuserStatus_CodeToString(ENOENT, buffer, 8, 0), "No such");
}

}  // namespace
