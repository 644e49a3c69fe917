// Memory of objects that every call needs, kept for the next call.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace Lumo::Core {

/// Allocates single objects from blocks that this thread has freed: as many as calls usually are under way
/// together. An object may be freed on another thread than the one that made it.
template <typename T>
struct RecyclingAllocator {
  using value_type = T;

  RecyclingAllocator() = default;
  template <typename U>
  explicit RecyclingAllocator(RecyclingAllocator<U> const& /*other*/) {}

  T* allocate(std::size_t count) {
    Blocks& kept = Kept();
    if (count == 1 && kept.count != 0) {
      return static_cast<T*>(kept.memory[--kept.count]);
    }
    return static_cast<T*>(::operator new(count * sizeof(T)));
  }
  void deallocate(T* memory, std::size_t count) noexcept {
    Blocks& kept = Kept();
    if (count == 1 && kept.count != kept.memory.size()) {
      kept.memory[kept.count++] = memory;
    } else {
      ::operator delete(memory);
    }
  }
  friend bool operator==(RecyclingAllocator const& /*a*/, RecyclingAllocator const& /*b*/) { return true; }

 private:
  struct Blocks {
    Blocks() = default;
    Blocks(Blocks const&) = delete;
    Blocks& operator=(Blocks const&) = delete;
    ~Blocks() {
      while (count != 0) {
        ::operator delete(memory[--count]);
      }
    }

    std::array<void*, 64> memory;
    std::size_t count = 0;
  };

  static Blocks& Kept() {
    static thread_local Blocks kept;
    return kept;
  }
};

/// A shared object in such memory.
template <typename T, typename... Args>
std::shared_ptr<T> MakeRecycled(Args&&... args) {
#if defined(__SANITIZE_ADDRESS__)
  return std::make_shared<T>(std::forward<Args>(args)...);  // which sees what is used after its end
#else
  return std::allocate_shared<T>(RecyclingAllocator<std::remove_const_t<T>>(), std::forward<Args>(args)...);
#endif
}

}  // namespace Lumo::Core
