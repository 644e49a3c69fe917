#include "security/token_clock.h"

#include <algorithm>
#include <utility>

namespace Ryn::Authn {
namespace {

long long Seconds(std::chrono::system_clock::time_point time) {
  return std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
}

}  // namespace

TokenClock::TokenClock(Wall wall, Steady steady)
    : wall_(std::move(wall)), steady_(std::move(steady)), latest_(wall_()), seen_(steady_()) {}

TokenClock::Times TokenClock::Now() {
  auto const wall = wall_();
  auto const steady = steady_();
  auto const carriedOn =
      latest_ + std::chrono::duration_cast<std::chrono::system_clock::duration>(steady - seen_);
  latest_ = std::max(wall, carriedOn);
  seen_ = steady;
  return {Seconds(wall), Seconds(latest_)};
}

}  // namespace Ryn::Authn
