// The work lists of the two adapters: adaptation is a list of small pieces of work, never recursion, so that
// deep records cost heap and not stack.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/data/block_cache.h"
#include "runtime/data/native.h"
#include "runtime/data/value.h"
#include "runtime/message.h"

namespace Lumo::Data {

/// One piece of work: adapt `source` into `destination` by running `method`, which may push further work.
/// `owner` keeps the source alive where nothing else does.
template <typename From, typename To, typename Messages, typename Stack>
struct BasicAdaptEntry {
  using Method = void (*)(From const& source, To const& destination, Stack& work, Messages& errors);

  From source;
  std::shared_ptr<void const> owner;
  Method method;
  To destination;
};

/// Work taken from the front. Work that a method pushes to the front is done before all earlier work.
template <typename Entry>
class Deque {
 public:
  bool empty() const noexcept { return entries_.empty(); }
  void clear() noexcept { entries_.clear(); }
  void push_front(Entry entry) { entries_.push_front(std::move(entry)); }
  Entry pop_front() {
    Entry entry = std::move(entries_.front());
    entries_.pop_front();
    return entry;
  }

 private:
  std::deque<Entry, BlockCacheAllocator<Entry>> entries_;
};

namespace V2N_internal {

/// Work of ValueToNativeAdapter: beside each entry stands the place of its source in the whole value, so that
/// a message can name the field. Texts of places are views into the source value or of static life.
template <typename Entry>
class StackMapCnt {
 public:
  /// `refuseUnknown`: a field that the record doesn't have is a fault, but for "host" at the top.
  explicit StackMapCnt(bool refuseUnknown) : refuseUnknown_(refuseUnknown) {
    entries_.reserve(kUsualWork);
    places_.reserve(kUsualWork);
  }

  bool refuseUnknown() const noexcept { return refuseUnknown_; }
  bool empty() const noexcept { return entries_.empty(); }
  void clear() noexcept { entries_.clear(); }
  bool atTop() const noexcept { return current_ == kTop; }

  /// Work on the same place.
  void push_front(Entry entry) { entries_.emplace_back(std::move(entry), current_); }
  /// Work on a field or map entry of the current place.
  void PushField(Entry entry, std::string_view name) {
    PushAt(std::move(entry), Place{current_, kField, name});
  }
  /// Work on an element of the current place.
  void PushElement(Entry entry, std::size_t index) { PushAt(std::move(entry), Place{current_, index, {}}); }

  Entry pop_front() {
    Entry entry = std::move(entries_.back().first);
    current_ = entries_.back().second;
    entries_.pop_back();
    return entry;
  }

  /// The current place, as "spec.solutions.tools.components[2]"; "$" at the top. `name` and `index` go one
  /// further.
  std::string Path() const { return Render(current_); }
  std::string Path(std::string_view name) const {
    std::string const path = Render(current_);
    return current_ == kTop ? std::string(name) : path + "." + std::string(name);
  }
  std::string Path(std::size_t index) const { return Render(current_) + "[" + std::to_string(index) + "]"; }

 private:
  static constexpr std::size_t kUsualWork = 16;  // the fields of most records
  static constexpr std::size_t kTop = static_cast<std::size_t>(-1);
  static constexpr std::size_t kField = static_cast<std::size_t>(-1);
  struct Place {
    std::size_t parent;     // in places_, or kTop
    std::size_t index;      // of an element; kField for a field
    std::string_view name;  // of a field
  };

  void PushAt(Entry entry, Place place) {
    places_.push_back(place);
    entries_.emplace_back(std::move(entry), places_.size() - 1);
  }

  std::string Render(std::size_t place) const {
    std::vector<Place const*> way;
    for (; place != kTop; place = places_[place].parent) {
      way.push_back(&places_[place]);
    }
    std::string text;
    for (auto step = way.rbegin(); step != way.rend(); ++step) {
      if ((*step)->index != kField) {
        text += (text.empty() ? "$[" : "[") + std::to_string((*step)->index) + "]";
      } else {
        text.append(text.empty() ? "" : ".").append((*step)->name);
      }
    }
    return text.empty() ? "$" : text;
  }

  std::vector<std::pair<Entry, std::size_t>, BlockCacheAllocator<std::pair<Entry, std::size_t>>>
      entries_;  // the front is at the end
  std::vector<Place, BlockCacheAllocator<Place>> places_;
  std::size_t current_ = kTop;
  bool refuseUnknown_;
};

}  // namespace V2N_internal

class NativeToValueStack;
using NativeToValueEntry = BasicAdaptEntry<NativeConstPtr, DataValuePtr*, MessageList, NativeToValueStack>;
using NativeToValueMethod = NativeToValueEntry::Method;
class NativeToValueStack final : public Deque<NativeToValueEntry> {};

class ValueToNativeStack;
using ValueToNativeEntry = BasicAdaptEntry<DataValuePtr, NativePtr, MessageList, ValueToNativeStack>;
using ValueToNativeMethod = ValueToNativeEntry::Method;
class ValueToNativeStack final : public V2N_internal::StackMapCnt<ValueToNativeEntry> {
 public:
  using StackMapCnt::StackMapCnt;
};

/// One field of a record, as the adapters see it.
struct FieldAdapter {
  std::string_view name;
  void const* (*address)(void const* record);
  NativeToValueMethod toValue;
  ValueToNativeMethod toNative;
  bool optional;
};

/// One record type. Fields in declared order.
struct RecordTable {
  std::string const& (*name)();
  bool isError;
  std::span<FieldAdapter const> fields;
};

}  // namespace Lumo::Data
