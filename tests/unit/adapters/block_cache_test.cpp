#include "runtime/data/block_cache.h"

#include <gtest/gtest.h>

#include <deque>
#include <set>
#include <thread>
#include <vector>

namespace {

using Lumo::Data::BlockCache;
using Lumo::Data::BlockCacheAllocator;

TEST(BlockCache, GivesABlockBackToItsThread) {
  void* const block = BlockCache::Take();
  BlockCache::Give(block);
  EXPECT_EQ(BlockCache::Take(), block);
  BlockCache::Give(block);
}

TEST(BlockCache, BlocksInUseAreApart) {
  std::set<void*> blocks;
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(blocks.insert(BlockCache::Take()).second);
  }
  for (void* const block : blocks) {
    BlockCache::Give(block);
  }
}

TEST(BlockCache, ThreadsHaveTheirOwn) {
  void* const mine = BlockCache::Take();
  BlockCache::Give(mine);
  std::thread([mine] {
    void* const other = BlockCache::Take();
    EXPECT_NE(other, mine);
    BlockCache::Give(other);
  }).join();
}

TEST(BlockCacheAllocator, ServesContainersOfAnySize) {
  std::deque<int, BlockCacheAllocator<int>> numbers;
  for (int i = 0; i < 100000; ++i) {
    numbers.push_front(i);
    numbers.push_back(-i);
  }
  EXPECT_EQ(numbers.front(), 99999);
  EXPECT_EQ(numbers.back(), -99999);
  std::vector<int, BlockCacheAllocator<int>> grown;
  for (int i = 0; i < 1000; ++i) {
    grown.push_back(i);
  }
  EXPECT_EQ(grown[999], 999);
}

}  // namespace
