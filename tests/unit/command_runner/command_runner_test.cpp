#include "support/command_runner.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "fake_process.h"
#include "platform/logging/test_only_log_capture.h"

namespace {

using LifeCycle::RunCommand;
using LifeCycle::RunCommandResult;
using Orbane::CapturedLine;
using testing::ElementsAre;

/// The reading end of a pipe that holds `text`. For texts that fit a pipe.
int PipeHolding(std::string const& text) {
  int ends[2] = {-1, -1};
  EXPECT_EQ(::pipe(ends), 0);
  EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ::close(ends[1]);
  return ends[0];
}

bool IsOpen(int fd) {
  return ::fcntl(fd, F_GETFD) != -1;
}

class CommandRunner : public testing::Test {
 protected:
  Orbane::TestOnlyLogCapture log_;
};

TEST_F(CommandRunner, FixedSettingsAndCallsInOrder) {
  FakeProcess::Reset({.fd = PipeHolding("")});
  std::string output;
  EXPECT_EQ(RunCommand("tool --list ", nullptr, &output), (RunCommandResult{LifeCycle::RunOk, 0}));
  EXPECT_THAT(FakeProcess::Calls(), ElementsAre("init", "group keeld-nontask-forks", "memory 200",
                                                "flags 768", "open r tool --list ", "close", "destroy"));
}

TEST_F(CommandRunner, ReadingLogs) {
  FakeProcess::Reset({.fd = PipeHolding("[1]")});
  std::string output = "before ";
  RunCommand("tool", nullptr, &output);
  EXPECT_EQ(output, "before [1]");
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{3, "[RunCommand] About to run command tool"},
                                                     {3, "[RunCommand] Got result : before [1]"},
                                                     {3, "[RunCommand] Status from pclose 0"},
                                                     {3, "[RunCommand] Command return code 0"}}));
}

TEST_F(CommandRunner, WritingIsOneWriteOfTheWholeText) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe(ends), 0);
  FakeProcess::Reset({.fd = ends[1]});
  std::string const input("{\"a\":\0}", 7);
  EXPECT_EQ(RunCommand("tool --set", &input, nullptr), (RunCommandResult{LifeCycle::RunOk, 0}));
  char got[64];
  EXPECT_EQ(std::string(got, static_cast<std::size_t>(::read(ends[0], got, sizeof got))), input);
  ::close(ends[0]);
  EXPECT_EQ(FakeProcess::Calls()[4], "open w tool --set");
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{3, "[RunCommand] About to run command tool --set"},
                                                     {3, "[RunCommand]: Writing to command: tool --set."},
                                                     {3, "[RunCommand] Status from pclose 0"},
                                                     {3, "[RunCommand] Command return code 0"}}));
}

TEST_F(CommandRunner, TextWithANulIsNoCommand) {
  FakeProcess::Reset({});
  EXPECT_EQ(RunCommand(std::string("tool a\0b", 8), nullptr, nullptr),
            (RunCommandResult{LifeCycle::RunSpawnFailed, EINVAL}));
  EXPECT_THAT(FakeProcess::Calls(), testing::Not(testing::Contains(testing::StartsWith("open"))));
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{
                {3, "[RunCommand] About to run command tool a"},
                {0, "[RunCommand] Could not start command: tool a, error: status 22 of 256, 0"}}));
}

TEST_F(CommandRunner, BothPointersNullReadsNothing) {
  int const fd = PipeHolding("unread");
  FakeProcess::Reset({.fd = fd, .waitStatus = 3 << 8});
  EXPECT_EQ(RunCommand("tool", nullptr, nullptr), (RunCommandResult{LifeCycle::RunNonZeroExit, 3}));
  EXPECT_EQ(FakeProcess::Calls()[4], "open r tool");
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{3, "[RunCommand] About to run command tool"},
                                                     {3, "[RunCommand] Status from pclose 0"},
                                                     {3, "[RunCommand] Command return code 3"}}));
}

TEST_F(CommandRunner, StartFailure) {
  FakeProcess::Reset({.openStatus = 22});
  std::string output;
  EXPECT_EQ(RunCommand("tool \"", nullptr, &output), (RunCommandResult{LifeCycle::RunSpawnFailed, 22}));
  EXPECT_EQ(FakeProcess::Calls().back(), "destroy");
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{
                {3, "[RunCommand] About to run command tool \""},
                {0, "[RunCommand] Could not start command: tool \", error: status 22 of 256, 0"}}));
}

TEST_F(CommandRunner, WriteFailureClosesAndDoesNotWait) {
  int const fd = ::open("/dev/null", O_RDONLY);  // not for writing: EBADF
  FakeProcess::Reset({.fd = fd});
  std::string const input = "four";
  EXPECT_EQ(RunCommand("tool", &input, nullptr), (RunCommandResult{LifeCycle::RunWriteFailed, EBADF}));
  EXPECT_THAT(FakeProcess::Calls(), testing::Not(testing::Contains("close")));
  EXPECT_THAT(FakeProcess::Calls(), testing::Contains("abandon"));
  EXPECT_EQ(FakeProcess::Calls().back(), "destroy");
  EXPECT_FALSE(IsOpen(fd));
  EXPECT_EQ(log_.lines().back(), (CapturedLine{0, "[RunCommand]: Failed to write 4 bytes to pipe."}));
}

TEST_F(CommandRunner, ReadFailureClosesAndDoesNotWait) {
  int const fd = ::open("/", O_RDONLY | O_DIRECTORY);  // EISDIR
  FakeProcess::Reset({.fd = fd});
  std::string output = "kept";
  EXPECT_EQ(RunCommand("tool", nullptr, &output), (RunCommandResult{LifeCycle::RunReadFailed, EISDIR}));
  EXPECT_EQ(output, "kept");
  EXPECT_THAT(FakeProcess::Calls(), testing::Not(testing::Contains("close")));
  EXPECT_THAT(FakeProcess::Calls(), testing::Contains("abandon"));
  EXPECT_FALSE(IsOpen(fd));
  EXPECT_EQ(log_.lines().back(), (CapturedLine{3, "[RunCommand] Error reading from pipe: Is a directory"}));
}

TEST_F(CommandRunner, WaitStatus) {
  struct Case {
    int closeStatus;
    int waitStatus;
    RunCommandResult result;
  };
  for (Case const& c : {
           Case{0, 0, {LifeCycle::RunOk, 0}}, Case{0, 1 << 8, {LifeCycle::RunNonZeroExit, 1}},
           Case{0, 255 << 8, {LifeCycle::RunNonZeroExit, 255}},
           Case{0, SIGKILL, {LifeCycle::RunNonZeroExit, SIGKILL}},                // raw
           Case{0, SIGSEGV | 0x80, {LifeCycle::RunNonZeroExit, SIGSEGV | 0x80}},  // raw, core dumped
           Case{10, 4 << 8, {LifeCycle::RunNonZeroExit, 4 << 8}},                 // close failed: raw
           Case{10, 0, {LifeCycle::RunOk, 0}},                                    // close failed, status 0
       }) {
    FakeProcess::Reset({.fd = PipeHolding(""), .closeStatus = c.closeStatus, .waitStatus = c.waitStatus});
    log_.Clear();
    EXPECT_EQ(RunCommand("tool", nullptr, nullptr), c.result) << c.closeStatus << ' ' << c.waitStatus;
    EXPECT_EQ(log_.lines().at(1),
              (CapturedLine{3, "[RunCommand] Status from pclose " + std::to_string(c.closeStatus)}));
    EXPECT_EQ(log_.lines().at(2),
              (CapturedLine{3, "[RunCommand] Command return code " + std::to_string(c.result.code)}));
  }
}

TEST_F(CommandRunner, ChunksArePagesCutAtTheirFirstNul) {
  auto const page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  std::string first(page, 'a');
  first[10] = '\0';
  std::string const second = "bb" + std::string(page - 2, 'c');
  std::string const third("d\0e", 3);
  FakeProcess::Reset({.fd = PipeHolding(first + second + third)});
  std::string output;
  EXPECT_EQ(RunCommand("tool", nullptr, &output).kind, LifeCycle::RunOk);
  EXPECT_EQ(output, std::string(10, 'a') + second + "d");
}

TEST_F(CommandRunner, OneArgument) {
  FakeProcess::Reset({});
  EXPECT_EQ(RunCommand("tool --delete x"), (RunCommandResult{LifeCycle::RunOk, 0}));
  EXPECT_THAT(FakeProcess::Calls(), ElementsAre("exec tool --delete x false true true"));
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{3, "[RunCommand] Got returnCode from exec: 0"}}));

  FakeProcess::Reset({.execCode = 137});
  log_.Clear();
  EXPECT_EQ(RunCommand("tool"), (RunCommandResult{LifeCycle::RunNonZeroExit, 137}));
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{3, "[RunCommand] Got returnCode from exec: 137"}}));

  FakeProcess::Reset({.execThrows = true, .execErrno = ENOENT});
  log_.Clear();
  EXPECT_EQ(RunCommand("tool"), (RunCommandResult{LifeCycle::RunSpawnFailed, ENOENT}));
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{0, "[RunCommand] Got exception from exec"}}));
}

}  // namespace
