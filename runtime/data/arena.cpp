#include "runtime/data/arena.h"

#include <algorithm>
#include <cstdlib>

#include "runtime/data/tail_allocator.h"

namespace Lumo::Data {
namespace {

constexpr std::size_t kLargestBlock = std::size_t{1} << 20;

// Never destroyed, so that values of other static objects may refer to them to the end.
template <typename T, typename... Args>
T const* Immortal(Args... args) {
  return new T(args...);
}

// A child without an owner count of its own.
DataValuePtr Unowned(DataValue const* value) noexcept {
  return {DataValuePtr(), value};
}

}  // namespace

struct Arena::Storage : Arena {
  Storage(char* const& begin, std::size_t bytes) : Arena(begin, bytes) {}
};

std::shared_ptr<Arena> Arena::Create(std::size_t firstBytes) {
  firstBytes = (firstBytes + kAlign - 1) & ~(kAlign - 1);
  char* begin = nullptr;
  return std::allocate_shared<Storage>(TailAllocator<Storage>(firstBytes, &begin), begin, firstBytes);
}

Arena::~Arena() {
  while (last_) {
    Block* const previous = last_->previous;
    std::free(last_);
    last_ = previous;
  }
}

void* Arena::AllocateSlow(std::size_t bytes) {
  static_assert(sizeof(Block) % kAlign == 0);
  std::size_t const payload = std::max(bytes, std::min(nextBlock_, kLargestBlock));
  nextBlock_ = payload * 2;
  void* const memory = std::malloc(sizeof(Block) + payload);
  if (!memory)
    throw std::bad_alloc();
  last_ = new (memory) Block{last_};
  next_ = static_cast<char*>(memory) + sizeof(Block);
  end_ = next_ + payload;
  void* const result = next_;
  next_ += bytes;
  return result;
}

DataValue const* Arena::Void() const noexcept {
  static VoidValue const* const value = Immortal<VoidValue>();
  return value;
}

DataValue const* Arena::Boolean(bool value) const noexcept {
  static BooleanValue const* const no = Immortal<BooleanValue>(false);
  static BooleanValue const* const yes = Immortal<BooleanValue>(true);
  return value ? yes : no;
}

DataValue const* Arena::Optional(DataValue const* inner) {
  auto* result = New<OptionalValue>();
  result->arena_ = this;
  result->set_ = inner != nullptr;
  result->inner_ = Unowned(inner);
  return result;
}

ListValue* Arena::List(ListValue::Form form, std::span<DataValue const* const> items) {
  auto* result = New<ListValue>(form);
  result->arena_ = this;
  auto* slots = static_cast<DataValuePtr*>(Allocate(items.size() * sizeof(DataValuePtr)));
  result->items_ = slots;
  result->size_ = static_cast<std::uint32_t>(items.size());
  for (DataValue const* item : items)
    new (slots++) DataValuePtr(Unowned(item));
  return result;
}

void Arena::Fill(CompoundValue& compound, std::span<NamedChild const> fields) {
  compound.arena_ = this;
  auto* slots = static_cast<CompoundValue::Field*>(Allocate(fields.size() * sizeof(CompoundValue::Field)));
  compound.fields_ = slots;
  compound.size_ = static_cast<std::uint32_t>(fields.size());
  for (NamedChild const& field : fields) {
    new (slots++) CompoundValue::Field{field.name.data(), static_cast<std::uint32_t>(field.name.size()),
                                       false, Unowned(field.value)};
  }
}

void Arena::SetForm(ListValue const* list, ListValue::Form form) noexcept {
  const_cast<ListValue*>(list)->SetForm(form);
}

void Arena::SetItem(ListValue const* list, std::size_t index, DataValue const* item) noexcept {
  list->items_[index] = Unowned(item);
}

}  // namespace Lumo::Data
