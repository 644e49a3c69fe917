// Storage of value trees that are built in one go and dropped in one go.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <span>
#include <string_view>

#include "runtime/data/value.h"

namespace Lumo::Data {

/// A monotonic arena and the factory of the values in it. Values inside refer to their children without
/// owning them and are never destroyed one by one; owning pointers share the arena's own count. One thread
/// builds.
class Arena : public std::enable_shared_from_this<Arena> {
 public:
  /// A field on its way into a structure.
  struct NamedChild {
    std::string_view name;
    DataValue const* value;
  };

  /// One heap block holds the arena and its first `firstBytes` bytes; later blocks grow from there.
  static std::shared_ptr<Arena> Create(std::size_t firstBytes);
  Arena(Arena const&) = delete;
  Arena& operator=(Arena const&) = delete;
  ~Arena();

  /// Aligned for any value. Throws std::bad_alloc.
  void* Allocate(std::size_t bytes) {
    bytes = (bytes + kAlign - 1) & ~(kAlign - 1);
    if (bytes > static_cast<std::size_t>(end_ - next_))
      return AllocateSlow(bytes);
    void* result = next_;
    next_ += bytes;
    return result;
  }

  /// An owning pointer to a value of this arena, or to one that is never destroyed.
  DataValuePtr Share(DataValue const* value) {
    return value ? DataValuePtr(shared_from_this(), value) : nullptr;
  }

  DataValue const* Void() const noexcept;
  DataValue const* Boolean(bool value) const noexcept;
  DataValue const* Integer(long long value) { return New<IntegerValue>(value); }
  DataValue const* Double(double value) { return New<DoubleValue>(value); }
  /// `Text` is a text-like class; the bytes must live as long as the arena.
  template <typename Text>
  DataValue const* MakeText(std::string_view bytes) {
    return New<Text>(bytes);
  }
  /// Null for an unset one.
  DataValue const* Optional(DataValue const* inner);
  ListValue* List(ListValue::Form form, std::span<DataValue const* const> items);
  /// `name` and the field names must live as long as the arena.
  template <typename Compound>
  Compound* MakeCompound(std::string_view name, std::span<NamedChild const> fields) {
    auto* result = New<Compound>(name);
    Fill(*result, fields);
    return result;
  }

  /// Turns a plain list of this arena, not shared yet, into another list form.
  static void SetForm(ListValue const* list, ListValue::Form form) noexcept;
  /// Replaces an item of a list of this arena that isn't shared yet.
  static void SetItem(ListValue const* list, std::size_t index, DataValue const* item) noexcept;

 private:
  struct Block {
    Block* previous;
  };
  struct Storage;

  static constexpr std::size_t kAlign = alignof(DataValuePtr);

  Arena(char* begin, std::size_t bytes) : next_(begin), end_(begin + bytes), nextBlock_(bytes * 2) {}
  void* AllocateSlow(std::size_t bytes);
  void Fill(CompoundValue& compound, std::span<NamedChild const> fields);

  template <typename T, typename... Args>
  T* New(Args... args) {
    return new (Allocate(sizeof(T))) T(args...);
  }

  char* next_;
  char* end_;
  std::size_t nextBlock_;  // bytes of the next block
  Block* last_ = nullptr;
};

}  // namespace Lumo::Data
