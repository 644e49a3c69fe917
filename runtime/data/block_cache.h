#pragma once

#include <cstddef>
#include <new>

namespace Lumo::Data {

/// Small memory blocks of this thread, kept for the next use instead of going back to the heap.
class BlockCache {
 public:
  /// The size of each block in bytes: that of a std::deque's node.
  static constexpr std::size_t kBlockSize = 512;

  static void* Take();
  /// A block that Take gave on the same thread.
  static void Give(void* block) noexcept;
};

/// Takes what fits a block from the cache of this thread. For containers that live inside one function:
/// memory must be given back on the thread that took it.
template <typename T>
class BlockCacheAllocator {
 public:
  using value_type = T;

  BlockCacheAllocator() = default;
  template <typename U>
  BlockCacheAllocator(BlockCacheAllocator<U> const& /*other*/) noexcept {}

  T* allocate(std::size_t count) {
    std::size_t const size = Size(count);
    return static_cast<T*>(size <= BlockCache::kBlockSize ? BlockCache::Take() : ::operator new(size));
  }
  void deallocate(T* memory, std::size_t count) noexcept {
    if (Size(count) <= BlockCache::kBlockSize) {
      BlockCache::Give(memory);
    } else {
      ::operator delete(memory);
    }
  }

  friend bool operator==(BlockCacheAllocator const&, BlockCacheAllocator const&) = default;

 private:
  /// Of an array, since containers allocate pointers too, whose own size looks like a slip to clang-tidy.
  static constexpr std::size_t Size(std::size_t count) { return count * sizeof(T[1]); }
};

}  // namespace Lumo::Data
