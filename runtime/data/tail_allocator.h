#pragma once

#include <cstddef>
#include <new>

namespace Lumo::Data {

/// Allocator for std::allocate_shared that puts `extra` bytes behind the object into the same heap block and
/// reports where they begin through `tail`, before the object is constructed.
template <typename T>
class TailAllocator {
 public:
  using value_type = T;

  TailAllocator(std::size_t extra, char** tail) : extra_(extra), tail_(tail) {}
  template <typename U>
  TailAllocator(TailAllocator<U> const& other) : extra_(other.extra_), tail_(other.tail_) {}

  T* allocate(std::size_t count) {
    std::size_t const size = count * sizeof(T);
    auto* memory = static_cast<char*>(::operator new(size + extra_));
    *tail_ = memory + size;
    return reinterpret_cast<T*>(memory);
  }
  void deallocate(T* memory, std::size_t /*count*/) noexcept { ::operator delete(memory); }

  friend bool operator==(TailAllocator const&, TailAllocator const&) = default;

 private:
  template <typename U>
  friend class TailAllocator;

  std::size_t extra_;
  char** tail_;
};

}  // namespace Lumo::Data
