#include "security/token_clock.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using Ryn::Authn::TokenClock;

class TokenClockTest : public testing::Test {
 protected:
  TokenClock::Times Now() { return clock.Now(); }
  void Pass(std::chrono::seconds time) {
    wall += time;
    steady += time;
  }

  std::chrono::system_clock::time_point wall{1'000'000s};
  std::chrono::steady_clock::time_point steady{77s};
  TokenClock clock{[this] { return wall; }, [this] { return steady; }};
};

TEST_F(TokenClockTest, BothFollowAWallClockThatRuns) {
  EXPECT_EQ(Now().wall, 1'000'000);
  EXPECT_EQ(Now().latest, 1'000'000);
  Pass(30s);
  EXPECT_EQ(Now().wall, 1'000'030);
  EXPECT_EQ(Now().latest, 1'000'030);
}

TEST_F(TokenClockTest, BothJumpAhead) {
  wall += 1000s;
  EXPECT_EQ(Now().wall, 1'001'000);
  EXPECT_EQ(Now().latest, 1'001'000);
}

TEST_F(TokenClockTest, LatestDoesNotGoBackButOn) {
  wall -= 5000s;
  EXPECT_EQ(Now().wall, 995'000);
  EXPECT_EQ(Now().latest, 1'000'000);
  Pass(10s);
  EXPECT_EQ(Now().wall, 995'010);
  EXPECT_EQ(Now().latest, 1'000'010);
  Pass(10s);
  EXPECT_EQ(Now().latest, 1'000'020);
  wall += 5000s;
  EXPECT_EQ(Now().latest, 1'000'020) << "not counted twice";
}

TEST_F(TokenClockTest, SecondsAreRoundedDown) {
  wall += 999ms;
  EXPECT_EQ(Now().wall, 1'000'000);
  wall = std::chrono::system_clock::time_point(-1ms);
  EXPECT_EQ(Now().wall, -1);
}

TEST(TokenClock, TakesTheHostsClocks) {
  TokenClock clock;
  auto const before = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  auto const now = clock.Now();
  EXPECT_GE(now.wall, before);
  EXPECT_GE(now.latest, now.wall);
}

}  // namespace
