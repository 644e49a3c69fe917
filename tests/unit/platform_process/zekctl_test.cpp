#include "platform/process/zekctl.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "process_test_support.h"

namespace {

using ZekCtl::Util::ZekCtl_Daemon;
using ZekCtl::Util::ZekCtl_Exec;

int Daemon(std::string const& command) {
  return ZekCtl_Daemon(command, false, false, true, true);
}
int Exec(std::string const& command) {
  return ZekCtl_Exec(command, false, true, true);
}

bool HasChildren() {
  return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

using Zekctl = ProcessTest;

TEST_F(Zekctl, ExecGivesTheExitCode) {
  EXPECT_EQ(Exec("/bin/true"), 0);
  EXPECT_EQ(Exec("/bin/sh -c 'exit 7'"), 7);
  EXPECT_EQ(Exec("/bin/sh -c 'exit 255'"), 255);
  EXPECT_EQ(Exec("/bin/sh -c 'kill -9 $$'"), 128 + 9);
  EXPECT_FALSE(HasChildren());
}

TEST_F(Zekctl, ExecThrowsWhenTheCommandCannotBeStarted) {
  struct Case {
    std::string command;
    int error;
  };
  std::string const plain = Path("plain");
  std::ofstream(plain) << "#!/bin/sh\n";
  chmod(plain.c_str(), 0600);
  std::string const binary = Path("binary");
  std::ofstream(binary) << "neither script nor program";
  chmod(binary.c_str(), 0700);
  std::string const interpreter = Path("interpreter");
  std::ofstream(interpreter) << "#!/nonexistent/interpreter\n";
  chmod(interpreter.c_str(), 0700);
  Case const cases[] = {
      {"", EINVAL},
      {"   ", EINVAL},
      {"/bin/true 'unbalanced", EINVAL},
      {"/bin/true \"unbalanced", EINVAL},
      {"/bin/true \\", EINVAL},
      {std::string("/bin/true a\0b", 13), EINVAL},
      {"''", ENOENT},
      {"/nonexistent/program", ENOENT},
      {"no-such-program-in-path", ENOENT},
      {"true;id", ENOENT},
      {plain, EACCES},
      {folder_, EACCES},
      {binary, ENOEXEC},
      {interpreter, ENOENT},
      {"/bin/true " + std::string(200000, 'x'), E2BIG},
  };
  for (Case const& each : cases) {
    errno = 0;
    int error = 0;
    try {
      Exec(each.command);
      ADD_FAILURE() << each.command.substr(0, 50);
    } catch (HostCtl::Lib::HostCtlException const& failure) {
      error = errno;
      EXPECT_NE(std::string(failure.what()), "");
    }
    EXPECT_EQ(error, each.error) << each.command.substr(0, 50);
    EXPECT_EQ(Daemon(each.command), each.error) << each.command.substr(0, 50);
  }
  EXPECT_FALSE(HasChildren());
}

TEST_F(Zekctl, AProgramWithoutSlashIsFoundInPath) {
  EXPECT_EQ(Exec("true"), 0);
  EXPECT_EQ(Exec("false"), 1);
  std::string const script = Script("exit 33");
  std::string const name = script.substr(script.rfind('/') + 1);
  std::string const before = getenv("PATH");
  setenv("PATH", (":relative:" + folder_ + ":" + before).c_str(), 1);
  EXPECT_EQ(Exec(name), 33);
  chmod(script.c_str(), 0600);
  EXPECT_EQ(Daemon(name), EACCES);
  setenv("PATH", before.c_str(), 1);
  EXPECT_EQ(Daemon(name), ENOENT);
}

TEST_F(Zekctl, NoShellSeesTheCommand) {
  std::string const script = Script("printf '%s\\n' \"$@\" >'" + Path("out.part") + "'; mv '" +
                                    Path("out.part") + "' '" + Path("out") + "'");
  EXPECT_EQ(
      Exec(script + " a;touch " + Path("x") + " && $(id) `id` | b > " + Path("y") + " ~ * # \"two words\""),
      0);
  EXPECT_EQ(Content(Path("out")),
            "a;touch\n" + Path("x") + "\n&&\n$(id)\n`id`\n|\nb\n>\n" + Path("y") + "\n~\n*\n#\ntwo words\n");
  EXPECT_FALSE(std::filesystem::exists(Path("x")));
  EXPECT_FALSE(std::filesystem::exists(Path("y")));
}

TEST_F(Zekctl, DaemonsAreDetached) {
  std::string const script = Script(
      "exec 9<&-\n"
      "{ echo \"ppid $(ps -o ppid= -p $$ | tr -d ' ')\"\n"
      "  echo \"session $(ps -o sid= -p $$ | tr -d ' ') own $$\"\n"
      "  echo \"streams $(readlink /proc/$$/fd/0) $(readlink /proc/$$/fd/1) $(readlink /proc/$$/fd/2)\"\n"
      "} >'" +
      Path("out.part") + "'\nmv '" + Path("out.part") + "' '" + Path("out") + "'");
  EXPECT_EQ(Daemon(script), 0);
  EXPECT_FALSE(HasChildren()) << "the process in between was reaped";
  std::istringstream out(Await("out"));
  std::string word;
  long parent = 0;
  long session = 0;
  long own = 0;
  out >> word >> parent >> word >> session >> word >> own;
  EXPECT_NE(parent, getpid());
  EXPECT_NE(session, getsid(0));
  EXPECT_NE(session, own) << "it does not lead its session, so it can't take a terminal";
  std::string streams[3];
  out >> word >> streams[0] >> streams[1] >> streams[2];
  // While it writes, the script's standard output is the file; another test looks at it.
  EXPECT_EQ(streams[0], "/dev/null");
  EXPECT_EQ(streams[2], "/dev/null");
}

TEST_F(Zekctl, ChildrenInheritNoDescriptors) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);  // not close-on-exec
  ASSERT_EQ(dup2(ends[0], 300), 300);
  std::string const list = "ls /proc/self/fd >'" + Path("out") + "'";
  EXPECT_EQ(Exec(Script(list)), 0);
  // 3 is ls's own look at the folder.
  EXPECT_EQ(Content(Path("out")), "0\n1\n2\n3\n");
  for (int const descriptor : {ends[0], ends[1], 300}) {
    EXPECT_EQ(fcntl(descriptor, F_GETFD), 0) << "ours are as they were";
    close(descriptor);
  }
}

TEST_F(Zekctl, ChildrenGetDefaultSignals) {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction before[2];
  sigaction(SIGPIPE, &ignore, &before[0]);
  sigaction(SIGUSR1, &ignore, &before[1]);
  sigset_t mask;
  sigset_t maskBefore;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigaddset(&mask, SIGINT);
  pthread_sigmask(SIG_SETMASK, &mask, &maskBefore);
  EXPECT_EQ(Exec("/bin/grep -q '^SigIgn:\\s0*$' /proc/self/status"), 0);
  EXPECT_EQ(Exec("/bin/grep -q '^SigBlk:\\s0*$' /proc/self/status"), 0);
  sigset_t maskAfter;
  pthread_sigmask(SIG_SETMASK, &maskBefore, &maskAfter);
  EXPECT_EQ(sigismember(&maskAfter, SIGTERM), 1);
  EXPECT_EQ(sigismember(&maskAfter, SIGUSR2), 0);
  struct sigaction after {};
  sigaction(SIGPIPE, &before[0], &after);
  EXPECT_EQ(after.sa_handler, SIG_IGN) << "ours are as they were";
  sigaction(SIGUSR1, &before[1], nullptr);
}

TEST_F(Zekctl, WorksWithClosedStandardStreams) {
  std::string const script = Script("readlink /proc/$$/fd/0 /proc/$$/fd/2 >'" + Path("out") + "'");
  pid_t const pid = fork();
  if (pid == 0) {
    for (int stream = 0; stream < 3; ++stream) {
      close(stream);
    }
    _exit(Exec(script));
  }
  int status = -1;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Content(Path("out")), "/dev/null\n/dev/null\n");
}

TEST_F(Zekctl, OnlyTheWordBehindTheProgramIsTakenAsResources) {
  std::string const script = Script("printf '%s\\n' \"$@\" >'" + Path("out.part") + "'; mv '" +
                                    Path("out.part") + "' '" + Path("out") + "'");
  EXPECT_EQ(Daemon(script + " ++group=keeld-task-forks,mem=groupMax,stats ++group=x a ++stats"), 0);
  EXPECT_EQ(Await("out"), "++group=x\na\n++stats\n");
  EXPECT_EQ(Exec(script + " ++stats b"), 0);
  EXPECT_EQ(Content(Path("out")), "++stats\nb\n") << "a foreground command gets all its words";
}

TEST_F(Zekctl, AResourceWordThatCannotBeReadIsAStartFailure) {
  EXPECT_EQ(Daemon("/bin/true ++nonsense"), EINVAL);
  EXPECT_EQ(Daemon("/bin/true ++group=../x"), EINVAL);
  EXPECT_EQ(Daemon("/bin/true ++mem=groupMax"), EINVAL);
}

/// Soft and hard limit that a daemon sees, in KiB as the shell tells them.
class Limits : public ProcessTest {
 protected:
  std::string Of(std::string const& words) {
    std::filesystem::remove(Path("out"));
    std::string const script = Script("{ ulimit -S -d; ulimit -H -d; ulimit -v; } >'" + Path("out.part") +
                                      "'\nmv '" + Path("out.part") + "' '" + Path("out") + "'");
    EXPECT_EQ(Daemon(script + " " + words), 0);
    return Await("out");
  }
};

TEST_F(Limits, WithoutAGroupTheDataSizeIsLimited) {
  EXPECT_EQ(Of("++mem=64"), "65536\n65536\nunlimited\n");
  EXPECT_EQ(Of("++group=no-such-group,mem=64"), "65536\n65536\nunlimited\n");
  EXPECT_EQ(Of("++group=no-such-group,mem=groupMax,stats"), "1048576\n1048576\nunlimited\n");
  EXPECT_EQ(Of("++group=no-such-group"), "unlimited\nunlimited\nunlimited\n");
  EXPECT_EQ(Of("++stats"), "unlimited\nunlimited\nunlimited\n");
  EXPECT_EQ(Of(""), "unlimited\nunlimited\nunlimited\n");
}

TEST_F(Zekctl, AHardLimitOfOursIsNotExceeded) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers need more data than the limit";
#endif
  pid_t const pid = fork();
  if (pid == 0) {
    rlimit const limit{32U * 1024 * 1024, 32U * 1024 * 1024};
    setrlimit(RLIMIT_DATA, &limit);
    std::string const script =
        Script("ulimit -d >'" + Path("out.part") + "'; mv '" + Path("out.part") + "' '" + Path("out") + "'");
    _exit(Daemon(script + " ++mem=64"));
  }
  int status = -1;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Await("out"), "32768\n");
}

TEST_F(Zekctl, OtherFlags) {
  EXPECT_EQ(ZekCtl_Daemon("/bin/sh -c 'exit 5'", false, true, false, true), 5) << "not detached, waited for";
  EXPECT_EQ(ZekCtl_Daemon("/bin/true", false, true, true, true), EINVAL)
      << "who is detached can't be waited for";
  EXPECT_EQ(ZekCtl_Daemon("/bin/true", false, false, false, false), 0);
  EXPECT_EQ(ZekCtl_Exec("/bin/true", false, false, false), 0);
  // Both were left; later starts reap them.
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (std::chrono::steady_clock::now() < end) {
    EXPECT_EQ(Exec("/bin/true"), 0);
    siginfo_t info{};
    if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1) {
      break;
    }
  }
  EXPECT_FALSE(HasChildren());
}

TEST_F(Zekctl, StreamsAreInheritedWhenAsked) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(ZekCtl_Exec("/bin/echo heard", true, true, false), 0);
  EXPECT_EQ(ZekCtl_Exec("/bin/echo unheard", false, true, false), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "heard\n");
}

TEST_F(Zekctl, ManyThreadsStartAtOnce) {
  std::vector<std::thread> threads;
  std::vector<int> failures(8, 0);
  for (std::size_t t = 0; t < failures.size(); ++t) {
    threads.emplace_back([&failures, t] {
      for (int i = 0; i < 20; ++i) {
        failures[t] += Exec("/bin/sh -c 'exit " + std::to_string(t) + "'") == static_cast<int>(t) ? 0 : 1;
        failures[t] += Daemon("/bin/true") == 0 ? 0 : 1;
        failures[t] += Daemon("/nonexistent") == ENOENT ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures, std::vector<int>(8, 0));
  EXPECT_FALSE(HasChildren());
}

TEST_F(Zekctl, SignalsDuringAStartReachTheCallerOnly) {
  static std::atomic<int> taken{0};
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { ++taken; };
  action.sa_flags = SA_RESTART;
  sigaction(SIGUSR1, &action, &before);
  std::atomic<bool> done{false};
  pthread_t const starter = pthread_self();
  std::thread sender([&done, starter] {
    while (!done) {
      pthread_kill(starter, SIGUSR1);
      std::this_thread::yield();
    }
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(Exec("/bin/true"), 0);
    EXPECT_EQ(Daemon("/bin/true"), 0);
  }
  done = true;
  sender.join();
  sigaction(SIGUSR1, &before, nullptr);
  EXPECT_GT(taken, 0);
}

TEST_F(Zekctl, IgnoredChildSignalsDoNotDisturb) {
  struct sigaction ignore {};
  struct sigaction before {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGCHLD, &ignore, &before);
  EXPECT_EQ(Exec("/bin/false"), 0) << "the system keeps no status then";
  EXPECT_EQ(Daemon("/bin/true"), 0);
  EXPECT_EQ(Daemon("/nonexistent"), ENOENT);
  sigaction(SIGCHLD, &before, nullptr);
}

}  // namespace
