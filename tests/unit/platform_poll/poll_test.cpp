#include "platform/poll/poll.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using std::chrono::steady_clock;

char volatile exitFlag = 0;

extern "C" void SetExitFlag(int /*signal*/) {
  __atomic_store_n(&exitFlag, 1, __ATOMIC_RELEASE);
}

class PollLoop : public ::testing::Test {
 protected:
  void SetUp() override {
    exitFlag = 0;
    struct sigaction action {};
    action.sa_handler = SetExitFlag;
    sigaction(SIGTERM, &action, &before_);
    Poll_InitDefault();
  }
  void TearDown() override {
    Poll_Exit();
    sigaction(SIGTERM, &before_, nullptr);
  }

 private:
  struct sigaction before_ {};
};

TEST_F(PollLoop, ReturnsAtOnceWhenTheFlagIsSetAlready) {
  exitFlag = 1;
  auto const start = steady_clock::now();
  Poll_Loop(true, &exitFlag, 0);
  EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(150));
}

TEST_F(PollLoop, ASignalBeforeTheLoopIsNotLost) {
  raise(SIGTERM);
  Poll_Loop(true, &exitFlag, 0);
  EXPECT_EQ(exitFlag, 1);
}

TEST_F(PollLoop, ReturnsOnASignalToItsOwnThread) {
  pthread_t const waiting = pthread_self();
  std::thread sender([waiting] { pthread_kill(waiting, SIGTERM); });
  Poll_Loop(true, &exitFlag, 0);
  sender.join();
  EXPECT_EQ(exitFlag, 1);
}

TEST_F(PollLoop, ReturnsInTimeOnASignalThatAnotherThreadTook) {
  std::atomic<bool> done{false};
  std::thread other([&done] {
    while (!done) {
      std::this_thread::yield();
    }
  });
  std::thread sender([&other] { pthread_kill(other.native_handle(), SIGTERM); });
  auto const start = steady_clock::now();
  Poll_Loop(true, &exitFlag, 0);
  auto const time = steady_clock::now() - start;
  done = true;
  sender.join();
  other.join();
  EXPECT_EQ(exitFlag, 1);
  // 250 ms are promised; the rest is for a machine that is busy with other tests.
  EXPECT_LT(time, std::chrono::seconds(5));
}

TEST_F(PollLoop, ASignalThatMeansNothingToTheFlagDoesNotEndTheWait) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, &before);
  pthread_t const waiting = pthread_self();
  std::thread sender([waiting] {
    for (int i = 0; i < 100; ++i) {
      pthread_kill(waiting, SIGUSR1);
      std::this_thread::yield();
    }
    __atomic_store_n(&exitFlag, 2, __ATOMIC_RELEASE);
  });
  Poll_Loop(true, &exitFlag, 0);
  EXPECT_EQ(exitFlag, 2);
  sender.join();
  sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(PollLoop, LeavesTheSignalMaskAsItWas) {
  sigset_t mask;
  sigset_t before;
  sigemptyset(&mask);
  sigaddset(&mask, SIGUSR2);
  pthread_sigmask(SIG_SETMASK, &mask, &before);
  exitFlag = 1;
  Poll_Loop(true, &exitFlag, 0);
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, &before, &after);
  EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
  EXPECT_EQ(sigismember(&after, SIGTERM), 0);
  EXPECT_EQ(sigismember(&after, SIGINT), 0);
}

TEST_F(PollLoop, OneSliceWithoutLoop) {
  Poll_Loop(false, &exitFlag, 0);
  EXPECT_EQ(exitFlag, 0);
}

/// Signals that come at all moments around the start of the wait. One that slipped past would be noticed a
/// whole slice later.
TEST_F(PollLoop, NoSignalSlipsPast) {
  constexpr int kSignals = 300;
  int late = 0;
  for (int i = 0; i < kSignals; ++i) {
    exitFlag = 0;
    std::atomic<bool> go{false};
    pthread_t const waiting = pthread_self();
    std::thread sender([waiting, i, &go] {
      while (!go) {
        std::this_thread::yield();
      }
      for (std::atomic<int> spin{0}; spin < i; ++spin) {
      }
      pthread_kill(waiting, SIGTERM);
    });
    auto const start = steady_clock::now();
    go = true;
    Poll_Loop(true, &exitFlag, 0);
    late += steady_clock::now() - start > std::chrono::milliseconds(150) ? 1 : 0;
    EXPECT_EQ(exitFlag, 1);
    sender.join();
  }
  EXPECT_LT(late, kSignals / 10) << "a few may be late when the machine is busy";
}

}  // namespace
