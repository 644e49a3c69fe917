// The types that native records are made of, and the tables that describe them to the adapters.
#pragma once

#include <cstddef>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "runtime/data/value.h"

namespace Lumo {

/// A text that is never printed.
class Secret {
 public:
  Secret() = default;
  explicit Secret(std::string text) : text_(std::move(text)) {}
  std::string const& text() const noexcept { return text_; }
  friend bool operator==(Secret const&, Secret const&) = default;
  friend std::ostream& operator<<(std::ostream& out, Secret const& /*secret*/) { return out << "***"; }

 private:
  std::string text_;
};

/// An optional native record, held by shared pointer: unset is null.
template <typename T>
class OptionalPtr {
 public:
  OptionalPtr() = default;
  OptionalPtr(std::nullptr_t) {}
  template <typename U>
  requires std::is_convertible_v<U*, T*> OptionalPtr(std::shared_ptr<U> record)
      : record_(std::move(record)) {}

  explicit operator bool() const noexcept { return record_ != nullptr; }
  T* operator->() const noexcept { return record_.get(); }
  T& operator*() const noexcept { return *record_; }
  T* get() const noexcept { return record_.get(); }
  std::shared_ptr<T> const& ptr() const noexcept { return record_; }
  void reset() noexcept { record_.reset(); }
  friend bool operator==(OptionalPtr const&, OptionalPtr const&) = default;

 private:
  std::shared_ptr<T> record_;
};

/// One enumerator of a native enumeration.
struct EnumText {
  int number;
  std::string_view text;
};

/// What the adapters know of a native enumeration. `unknown` is the number of an unset or unknown value.
struct EnumDescriptor {
  std::string_view name;
  std::span<EnumText const> texts;
  int unknown;
};

/// Base of native enumerations: a number, and for a value that the definition doesn't know, the text as it
/// came.
class Enum {
 public:
  int number() const noexcept { return number_; }
  /// Empty for a known value, and for one that was never set.
  std::string const& unknownText() const noexcept { return unknownText_; }

  /// The text on the wire; empty for a value that was never set.
  std::string TextOf(EnumDescriptor const& descriptor) const;
  /// The enumerator of that text, or the unknown value with it.
  void Assign(EnumDescriptor const& descriptor, std::string_view text);
  /// The enumerator of that number, or the unknown value with the number as its text.
  void Assign(EnumDescriptor const& descriptor, long long number);

  friend bool operator==(Enum const&, Enum const&) = default;
  friend auto operator<=>(Enum const&, Enum const&) = default;

 protected:
  explicit Enum(int number, std::string unknownText = {})
      : number_(number), unknownText_(std::move(unknownText)) {}
  ~Enum() = default;
  Enum(Enum const&) = default;
  Enum(Enum&&) = default;
  Enum& operator=(Enum const&) = default;
  Enum& operator=(Enum&&) = default;

 private:
  int number_;
  std::string unknownText_;
};

namespace Data {

/// A field that holds a value as it came, without conversion. Empty until set; an empty one can't be adapted.
class DynamicStructure {
 public:
  DynamicStructure() = default;
  template <typename V>
  requires std::is_convertible_v<std::shared_ptr<V>, DataValuePtr> DynamicStructure(std::shared_ptr<V> value)
      : value_(std::move(value)) {}

  explicit operator bool() const noexcept { return value_ != nullptr; }
  DataValuePtr const& value() const noexcept { return value_; }

 private:
  DataValuePtr value_;
};

/// What the adapters know of a type. Generated for each record, enumeration and service interface: `name()`
/// is the full identifier; records also have `table()` and `defaultInstance(source)`.
template <typename T>
struct TypeInfo;

struct RecordTable;

/// Base of all native records.
struct BaseNative {};

/// Base of records that others derive from: the table of the most derived record is known at run time.
struct Specializable : BaseNative {
  virtual RecordTable const& nativeTable() const = 0;
  virtual ~Specializable() = default;

 protected:
  Specializable() = default;
  Specializable(Specializable const&) = default;
  Specializable(Specializable&&) = default;
  Specializable& operator=(Specializable const&) = default;
  Specializable& operator=(Specializable&&) = default;
};

/// A native object without its type: its address and, for a record, the table of its adaptation. Borrowed.
class NativeConstPtr {
 public:
  NativeConstPtr() = default;
  explicit NativeConstPtr(void const* object, RecordTable const* table = nullptr)
      : object_(object), table_(table) {}
  template <typename T>
  T const& as() const {
    return *static_cast<T const*>(object_);
  }
  void const* object() const noexcept { return object_; }
  RecordTable const* table() const noexcept { return table_; }

 private:
  void const* object_ = nullptr;
  RecordTable const* table_ = nullptr;
};

/// The same for an object that is being filled.
class NativePtr {
 public:
  NativePtr() = default;
  explicit NativePtr(void* object, RecordTable const* table = nullptr) : object_(object), table_(table) {}
  template <typename T>
  T& as() const {
    return *static_cast<T*>(object_);
  }
  void* object() const noexcept { return object_; }
  RecordTable const* table() const noexcept { return table_; }

 private:
  void* object_ = nullptr;
  RecordTable const* table_ = nullptr;
};

}  // namespace Data
}  // namespace Lumo
