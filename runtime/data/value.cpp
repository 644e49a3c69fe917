#include "runtime/data/value.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "runtime/data/arena.h"
#include "runtime/data/field_names.h"
#include "runtime/data/localizable_message.h"
#include "runtime/data/tail_allocator.h"

namespace Lumo::Data {
namespace {

// Where a text that TailAllocator made room for is put when the value is constructed.
struct TailText {
  std::string_view source;
  char* tail = nullptr;

  operator std::string_view() const {
    if (source.empty())
      return {};
    return {static_cast<char const*>(std::memcpy(tail, source.data(), source.size())), source.size()};
  }
};

template <typename T>
std::shared_ptr<T> MakeWithText(std::string_view text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max())
    throw std::length_error("text of a value is too long");
  TailText tail{text};
  return std::allocate_shared<T>(TailAllocator<T>(text.size(), &tail.tail), std::as_const(tail));
}

bool HasChildren(DataValue const* value) noexcept {
  return value && (ListValue::Accepts(value->KindTag()) || CompoundValue::Accepts(value->KindTag()) ||
                   OptionalValue::Accepts(value->KindTag()));
}

// Containers that wait for their release. Set while a release runs on this thread, so that the destructors
// which it calls add to it instead of going deeper.
thread_local std::vector<DataValuePtr>* pendingReleases = nullptr;

class Releaser {
 public:
  void Take(DataValuePtr& child) {
    if (!HasChildren(child.get())) {
      child.reset();
    } else if (pendingReleases) {
      pendingReleases->push_back(std::move(child));
    } else {
      pending_.push_back(std::move(child));
    }
  }

  ~Releaser() {
    if (pending_.empty())
      return;
    pendingReleases = &pending_;
    while (!pending_.empty()) {
      DataValuePtr const next = std::move(pending_.back());
      pending_.pop_back();
    }
    pendingReleases = nullptr;
  }

 private:
  std::vector<DataValuePtr> pending_;
};

std::uint32_t GrownCapacity(std::uint32_t capacity) {
  constexpr std::uint32_t kFirst = 4;
  if (capacity > std::numeric_limits<std::uint32_t>::max() / 2)
    throw std::length_error("value has too many parts");
  return std::max(kFirst, capacity * 2);
}

std::uint32_t CheckedCapacity(std::size_t count) {
  if (count > std::numeric_limits<std::uint32_t>::max())
    throw std::length_error("value has too many parts");
  return static_cast<std::uint32_t>(count);
}

}  // namespace

std::shared_ptr<VoidValue const> VoidValue::GetInstance() {
  static auto const instance = std::make_shared<VoidValue const>();
  return instance;
}

std::shared_ptr<BooleanValue> BooleanValue::GetInstance(bool value) {
  return std::make_shared<BooleanValue>(value);
}

std::shared_ptr<IntegerValue> IntegerValue::GetInstance(long long value) {
  return std::make_shared<IntegerValue>(value);
}

std::shared_ptr<DoubleValue> DoubleValue::GetInstance(double value) {
  return std::make_shared<DoubleValue>(value);
}

std::shared_ptr<StringValue> StringValue::GetInstance(std::string_view text) {
  return MakeWithText<StringValue>(text);
}

std::shared_ptr<BinaryValue> BinaryValue::GetInstance(std::string_view bytes) {
  return MakeWithText<BinaryValue>(bytes);
}

std::shared_ptr<SecretValue> SecretValue::GetInstance(std::string_view text) {
  return MakeWithText<SecretValue>(text);
}

OptionalValue::~OptionalValue() {
  Releaser().Take(inner_);
}

std::shared_ptr<OptionalValue> OptionalValue::GetInstance() {
  return std::make_shared<OptionalValue>();
}

DataValuePtr* OptionalValue::value(DataValuePtr const& inner) {
  set_ = true;
  inner_ = inner;
  return &inner_;
}

DataValuePtr OptionalValue::GetInner() const {
  return arena_ ? arena_->Share(inner_.get()) : inner_;
}

ListValue::~ListValue() {
  Releaser releaser;
  for (std::uint32_t index = 0; index < size_; ++index)
    releaser.Take(items_[index]);
  delete[] items_;
}

std::shared_ptr<ListValue> ListValue::GetInstance(Form form) {
  return std::make_shared<ListValue>(form);
}

void ListValue::Reserve(std::size_t count) {
  if (count <= capacity_)
    return;
  std::uint32_t const capacity = CheckedCapacity(count);
  auto grown = std::make_unique<DataValuePtr[]>(capacity);
  std::move(items_, items_ + size_, grown.get());
  delete[] std::exchange(items_, grown.release());
  capacity_ = capacity;
}

DataValuePtr* ListValue::AddSlot() {
  if (size_ == capacity_)
    Reserve(GrownCapacity(capacity_));
  return &items_[size_++];
}

DataValuePtr ListValue::GetItem(std::size_t index) const {
  return arena_ ? arena_->Share(Item(index)) : items_[index];
}

CompoundValue::~CompoundValue() {
  Releaser releaser;
  for (std::uint32_t index = 0; index < size_; ++index) {
    releaser.Take(fields_[index].value);
    if (fields_[index].nameOwned)
      delete[] fields_[index].name;
  }
  delete[] fields_;
}

std::size_t CompoundValue::IndexOf(std::string_view name) const noexcept {
  std::size_t index = 0;
  while (index < size_ && fields_[index].Name() != name)
    ++index;
  return index;
}

DataValuePtr CompoundValue::GetFieldValue(std::size_t index) const {
  return arena_ ? arena_->Share(FieldValue(index)) : fields_[index].value;
}

DataValue const* CompoundValue::Find(std::string_view name) const noexcept {
  std::size_t const index = IndexOf(name);
  return index < size_ ? FieldValue(index) : nullptr;
}

bool CompoundValue::GetField(std::string_view name, DataValuePtr& value, MessageList& errors) const {
  std::size_t const index = IndexOf(name);
  if (index < size_) {
    value = GetFieldValue(index);
    return true;
  }
  errors.push_back(Message<CoreTag>::Make("lumo.data.field.missing", name));
  return false;
}

void CompoundValue::SetField(std::string_view name, DataValuePtr const& value) {
  std::size_t const index = IndexOf(name);
  *(index < size_ ? &fields_[index].value : AddFieldSlot(name)) = value;
}

void CompoundValue::ReserveFields(std::size_t count) {
  if (count <= capacity_)
    return;
  std::uint32_t const capacity = CheckedCapacity(count);
  auto grown = std::make_unique<Field[]>(capacity);
  std::move(fields_, fields_ + size_, grown.get());
  delete[] std::exchange(fields_, grown.release());
  capacity_ = capacity;
}

DataValuePtr* CompoundValue::AddFieldSlot(std::string_view name) {
  std::uint32_t const nameSize = CheckedCapacity(name.size());
  if (size_ == capacity_)
    ReserveFields(GrownCapacity(capacity_));
  Field& field = fields_[size_];
  field.name = InternFieldName(name);
  if (!field.name) {
    char* copy = new char[name.size()];
    std::memcpy(copy, name.data(), name.size());
    field.name = copy;
    field.nameOwned = true;
  }
  field.nameSize = nameSize;
  ++size_;
  return &field.value;
}

std::shared_ptr<StructValue> StructValue::GetInstance(std::string_view name) {
  return MakeWithText<StructValue>(name);
}

std::shared_ptr<ErrorValue> ErrorValue::GetInstance(std::string_view name) {
  return MakeWithText<ErrorValue>(name);
}

std::shared_ptr<ErrorValue> ErrorValue::Create(std::string_view name, MessageList const& messages) {
  auto list = ListValue::GetInstance(ListValue::Form::List);
  list->Reserve(messages.size());
  for (BaseMessage const& message : messages)
    list->Add(MakeLocalizableMessage(message));
  auto error = GetInstance(name);
  error->SetField("messages", list);
  return error;
}

}  // namespace Lumo::Data
