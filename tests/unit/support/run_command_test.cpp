// The runner over the host's real process control.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "support/command_runner.h"
#include "temp_dir.h"

namespace {

using LifeCycle::RunCommand;
using LifeCycle::RunCommandResult;

class RunRealCommand : public testing::Test {
 protected:
  /// The command word of a script with that text.
  std::string Script(std::string const& text) {
    std::string const path = dir_ / "script";
    Put(path, "#!/bin/sh\n" + text + "\n");
    ::chmod(path.c_str(), 0755);
    return path;
  }

  Orbane::TestOnlyLogCapture log_{1};
  TempDir dir_;
};

TEST_F(RunRealCommand, OutputOfManyPagesArrivesWhole) {
  std::string output;
  EXPECT_EQ(RunCommand("/usr/bin/seq 1 20000", nullptr, &output), (RunCommandResult{LifeCycle::RunOk, 0}));
  std::string expected;
  for (int i = 1; i <= 20000; ++i) {
    expected += std::to_string(i) + "\n";
  }
  EXPECT_EQ(output, expected);
}

TEST_F(RunRealCommand, NulCutsItsChunkOnly) {
  // Two writes with a wait for the first to be read would need a sleep: one chunk of a page each is sure
  // instead.
  std::string output;
  std::string const command = Script("printf 'a\\0b'; head -c 4093 /dev/zero | tr '\\0' x; printf second");
  EXPECT_EQ(RunCommand(command, nullptr, &output).kind, LifeCycle::RunOk);
  EXPECT_EQ(output.substr(0, 1), "a");
  EXPECT_EQ(output.substr(output.size() - 6), "second");
  EXPECT_EQ(output.find('b'), std::string::npos);
}

TEST_F(RunRealCommand, ExitCodeAndSignal) {
  EXPECT_EQ(RunCommand(Script("exit 7"), nullptr, nullptr), (RunCommandResult{LifeCycle::RunNonZeroExit, 7}));
  EXPECT_EQ(RunCommand(Script("kill -9 $$"), nullptr, nullptr),
            (RunCommandResult{LifeCycle::RunNonZeroExit, SIGKILL}));
}

TEST_F(RunRealCommand, StandardInput) {
  std::string const text = "{\"document\": 1}";
  std::string const out = dir_ / "out";
  EXPECT_EQ(RunCommand(Script("cat > " + out), &text, nullptr), (RunCommandResult{LifeCycle::RunOk, 0}));
  EXPECT_EQ(Content(out), text);
}

TEST_F(RunRealCommand, NothingToStart) {
  std::string output;
  EXPECT_EQ(RunCommand("/no/such/program --x", nullptr, &output),
            (RunCommandResult{LifeCycle::RunSpawnFailed, ENOENT}));
  EXPECT_EQ(log_.texts(0).size(), 1U);
  EXPECT_EQ(RunCommand("/no/such/program --x"), (RunCommandResult{LifeCycle::RunSpawnFailed, ENOENT}));
}

TEST_F(RunRealCommand, NoShell) {
  std::string output;
  EXPECT_EQ(RunCommand("/bin/echo a;b $HOME `id` &", nullptr, &output).kind, LifeCycle::RunOk);
  EXPECT_EQ(output, "a;b $HOME `id` &\n");
}

TEST_F(RunRealCommand, OneArgument) {
  EXPECT_EQ(RunCommand(Script("exit 0")), (RunCommandResult{LifeCycle::RunOk, 0}));
  EXPECT_EQ(RunCommand(Script("exit 3")), (RunCommandResult{LifeCycle::RunNonZeroExit, 3}));
}

TEST_F(RunRealCommand, SideBySide) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 10; ++round) {
        std::string output;
        EXPECT_EQ(RunCommand("/bin/echo " + std::to_string(i), nullptr, &output).kind, LifeCycle::RunOk);
        EXPECT_EQ(output, std::to_string(i) + "\n");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
