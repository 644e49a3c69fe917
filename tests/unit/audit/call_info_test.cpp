#include "security/call_info.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Api::CallInfo;

TEST(CallInfo, StoresNumbers) {
  CallInfo info;
  EXPECT_EQ(info.callKind(), std::nullopt);
  EXPECT_EQ(info.callStatus(), std::nullopt);
  info.SetCallKind(7);
  info.SetCallStatus(4'000'000'000U);
  EXPECT_EQ(info.callKind(), 7U);
  EXPECT_EQ(info.callStatus(), 4'000'000'000U);
}

TEST(CallInfo, TakesTextsAndPeerByExchange) {
  CallInfo info;
  EXPECT_EQ(info.callTarget(), std::nullopt);
  EXPECT_EQ(info.callScope(), std::nullopt);
  EXPECT_EQ(info.callUser(), std::nullopt);
  EXPECT_EQ(info.peer(), std::nullopt);
  for (std::string const before : {"", "first"}) {
    std::string const now = before.empty() ? "first" : "second";
    std::string target = now + " target";
    std::string scope = now + " scope";
    std::string user = now + " user";
    std::pair<std::string, std::uint32_t> peer{now, before.empty() ? 1 : 2};
    info.SetCallTarget(target);
    info.SetCallScope(scope);
    info.SetCallUser(user);
    info.SetPeer(peer);
    EXPECT_EQ(info.callTarget(), now + " target");
    EXPECT_EQ(info.callScope(), now + " scope");
    EXPECT_EQ(info.callUser(), now + " user");
    EXPECT_EQ(info.peer(), (std::pair<std::string, std::uint32_t>{now, before.empty() ? 1 : 2}));
    EXPECT_EQ(target, before.empty() ? "" : "first target");
    EXPECT_EQ(scope, before.empty() ? "" : "first scope");
    EXPECT_EQ(user, before.empty() ? "" : "first user");
    EXPECT_EQ(peer.first, before);
  }
}

TEST(CallInfo, PreparesNothing) {
  CallInfo info;
  EXPECT_FALSE(info.PrepareAudit());
}

TEST(CallInfo, CompletionRunsAfterTheStatusIsStored) {
  std::vector<std::uint32_t> seen;
  CallInfo const* told = nullptr;
  CallInfo info([&](CallInfo const* of) {
    told = of;
    seen.push_back(of->callStatus().value());
  });
  info.SetCallStatus(3);
  EXPECT_EQ(told, &info);
  info.SetCallStatus(0);
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{3, 0}));
}

TEST(CallInfo, LivesUntilItsCompletionHasRun) {
  std::shared_ptr<CallInfo> info;
  std::weak_ptr<CallInfo> watch;
  bool lived = false;
  info = std::make_shared<CallInfo>([&](CallInfo const* of) {
    info.reset();
    lived = !watch.expired() && of->callStatus() == 1U;
  });
  watch = info;
  CallInfo* const raw = info.get();
  raw->SetCallStatus(1);
  EXPECT_TRUE(lived);
  EXPECT_TRUE(watch.expired());
}

}  // namespace
