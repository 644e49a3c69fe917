#include "runtime/data/block_cache.h"

#include <array>

namespace Lumo::Data {
namespace {

/// Enough for the work lists of a small call: two deques of a node and an index each way, and what they push.
constexpr std::size_t kKeptBlocks = 32;

struct ThreadBlocks {
  ~ThreadBlocks() {
    while (count > 0) {
      ::operator delete(blocks[--count]);
    }
    full = true;
  }

  std::array<void*, kKeptBlocks> blocks{};
  std::size_t count = 0;
  bool full = false;  // nothing is kept while the thread ends
};

thread_local ThreadBlocks threadBlocks;

}  // namespace

void* BlockCache::Take() {
  ThreadBlocks& kept = threadBlocks;
  return kept.count > 0 ? kept.blocks[--kept.count] : ::operator new(kBlockSize);
}

void BlockCache::Give(void* block) noexcept {
  ThreadBlocks& kept = threadBlocks;
  if (kept.full || kept.count == kKeptBlocks) {
    ::operator delete(block);
    return;
  }
  kept.blocks[kept.count++] = block;
}

}  // namespace Lumo::Data
