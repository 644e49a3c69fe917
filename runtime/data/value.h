// The dynamically typed values that all API data is made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/message.h"

namespace Lumo::Data {

/// What a value is. The numbers appear in messages and logs and are fixed.
enum class Kind : int {
  Void = 1,
  Boolean = 2,
  Integer = 3,
  String = 4,
  Structure = 5,
  Error = 6,
  Optional = 7,
  List = 8,  // the list form of a map too
  Double = 9,
  Binary = 10,
  Secret = 11,
  EnumSet = 20,  // a list used as a set of enumeration texts
};

class Arena;
class DataValue;
using DataValuePtr = std::shared_ptr<DataValue const>;

/// A node of a value tree. Immutable once shared; built by one thread, then read by any.
/// Depth is unbounded for builders, so nothing here recurses: not ToString, Equals or destruction.
///
/// Values come in two storages. Those made by GetInstance own their children. Those made by a JSON reader
/// live with all their descendants in one arena, which every owning pointer that is handed out keeps alive. A
/// borrowed pointer (`const*`) is valid as long as somebody owns the tree that it was taken from.
class DataValue {
 public:
  DataValue(DataValue const&) = delete;
  DataValue& operator=(DataValue const&) = delete;

  virtual Kind GetKind() const noexcept { return static_cast<Kind>(tag_); }
  virtual ~DataValue() = default;

  /// GetKind() without the virtual call, for code that walks whole trees.
  Kind KindTag() const noexcept { return static_cast<Kind>(tag_); }

  /// Printable form for logs: the direct JSON form with the name in front of structures and errors
  /// (`name{"field":…}`), secrets as "***", cut at 16 KiB.
  std::string ToString() const;

  /// Deep comparison: kinds, names, and fields in the same order.
  static bool Equals(DataValue const& a, DataValue const& b);

 protected:
  explicit DataValue(Kind kind) : tag_(static_cast<std::uint8_t>(kind)) {}

  std::uint8_t tag_;
};

class VoidValue final : public DataValue {
 public:
  VoidValue() : DataValue(Kind::Void) {}
  static std::shared_ptr<VoidValue const> GetInstance();
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Void; }
};

class BooleanValue final : public DataValue {
 public:
  explicit BooleanValue(bool value) : DataValue(Kind::Boolean), value_(value) {}
  static std::shared_ptr<BooleanValue> GetInstance(bool value);
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Boolean; }
  bool value() const noexcept { return value_; }

 private:
  bool value_;
};

class IntegerValue final : public DataValue {
 public:
  explicit IntegerValue(long long value) : DataValue(Kind::Integer), value_(value) {}
  static std::shared_ptr<IntegerValue> GetInstance(long long value);
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Integer; }
  long long value() const noexcept { return value_; }

 private:
  long long value_;
};

class DoubleValue final : public DataValue {
 public:
  explicit DoubleValue(double value) : DataValue(Kind::Double), value_(value) {}
  static std::shared_ptr<DoubleValue> GetInstance(double value);
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Double; }
  double value() const noexcept { return value_; }

 private:
  double value_;
};

/// Storage common to text-like values. The bytes lie behind the value in its own memory block, or in its
/// arena. At most 4 GiB - 1; GetInstance throws std::length_error beyond.
class TextStorage : public DataValue {
 public:
  std::string_view value() const noexcept { return {data_, size_}; }

 protected:
  TextStorage(Kind kind, std::string_view text)
      : DataValue(kind), size_(static_cast<std::uint32_t>(text.size())), data_(text.data()) {}

 private:
  std::uint32_t size_;
  char const* data_;
};

class StringValue final : public TextStorage {
 public:
  /// The value only refers to `text`; GetInstance copies it.
  explicit StringValue(std::string_view text) : TextStorage(Kind::String, text) {}
  static std::shared_ptr<StringValue> GetInstance(std::string_view text);
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::String; }
};

/// `value()` is the bytes, not their base64 form.
class BinaryValue final : public TextStorage {
 public:
  explicit BinaryValue(std::string_view bytes) : TextStorage(Kind::Binary, bytes) {}
  static std::shared_ptr<BinaryValue> GetInstance(std::string_view bytes);
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Binary; }
};

/// A text that no log and no ToString() ever shows.
class SecretValue final : public TextStorage {
 public:
  explicit SecretValue(std::string_view text) : TextStorage(Kind::Secret, text) {}
  static std::shared_ptr<SecretValue> GetInstance(std::string_view text);
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Secret; }
};

/// An optional. `GetInstance` makes an unset one.
class OptionalValue final : public DataValue {
 public:
  OptionalValue() : DataValue(Kind::Optional) {}
  ~OptionalValue() override;
  static std::shared_ptr<OptionalValue> GetInstance();
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Optional; }

  bool HasValue() const noexcept { return set_; }
  /// Sets it and returns the slot of the inner value, which an adapter fills later. A null argument makes it
  /// set with an empty slot.
  DataValuePtr* value(DataValuePtr const& inner);
  /// Borrowed; null when unset.
  DataValue const* Inner() const noexcept { return inner_.get(); }
  /// Owning; null when unset.
  DataValuePtr GetInner() const;

 private:
  friend class Arena;

  bool set_ = false;
  Arena* arena_ = nullptr;
  DataValuePtr inner_;
};

/// A list. Kind EnumSet for a set of enumeration texts, List for the rest.
class ListValue final : public DataValue {
 public:
  enum class Form : int { List = 1, Set = 2, Map = 3, EnumSet = 4 };

  explicit ListValue(Form form) : DataValue(KindOf(form)), form_(static_cast<std::uint8_t>(form)) {}
  ~ListValue() override;
  static std::shared_ptr<ListValue> GetInstance(Form form);
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::List || kind == Kind::EnumSet; }
  Form form() const noexcept { return static_cast<Form>(form_); }

  std::size_t size() const noexcept { return size_; }
  void Reserve(std::size_t count);
  void Add(DataValuePtr const& item) { *AddSlot() = item; }
  /// Appends an empty slot for an adapter to fill; valid until the next Add, AddSlot or Reserve.
  DataValuePtr* AddSlot();
  /// Borrowed; `index` below size().
  DataValue const* Item(std::size_t index) const noexcept { return items_[index].get(); }
  /// Owning.
  DataValuePtr GetItem(std::size_t index) const;

 private:
  friend class Arena;

  static constexpr Kind KindOf(Form form) noexcept {
    return form == Form::EnumSet ? Kind::EnumSet : Kind::List;
  }
  void SetForm(Form form) noexcept {
    form_ = static_cast<std::uint8_t>(form);
    tag_ = static_cast<std::uint8_t>(KindOf(form));
  }

  std::uint8_t form_;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
  DataValuePtr* items_ = nullptr;  // in the arena, else an array of capacity_ from new[]
  Arena* arena_ = nullptr;
};

/// A structure or an error: a name and fields in order of insertion.
class CompoundValue : public DataValue {
 public:
  ~CompoundValue() override;
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Structure || kind == Kind::Error; }
  std::string_view name() const noexcept { return {name_, nameSize_}; }

  std::size_t size() const noexcept { return size_; }
  std::string_view FieldName(std::size_t index) const noexcept { return fields_[index].Name(); }
  /// Borrowed; `index` below size().
  DataValue const* FieldValue(std::size_t index) const noexcept { return fields_[index].value.get(); }
  /// Owning; `index` below size().
  DataValuePtr GetFieldValue(std::size_t index) const;
  /// Borrowed; null when there is no such field.
  DataValue const* Find(std::string_view name) const noexcept;

  bool HasField(std::string_view name) const noexcept { return IndexOf(name) < size_; }
  /// False, with a message "lumo.data.field.missing" (argument: the name) added, when there is no such field.
  bool GetField(std::string_view name, DataValuePtr& value, MessageList& errors) const;

  /// Sets or replaces a field. By the builder only, before the value is shared.
  void SetField(std::string_view name, DataValuePtr const& value);
  void ReserveFields(std::size_t count);
  /// Appends a field with an empty slot for an adapter to fill. The slot stays valid while no more fields are
  /// added than were reserved.
  DataValuePtr* AddFieldSlot(std::string_view name);

 protected:
  /// The value only refers to `name`.
  CompoundValue(Kind kind, std::string_view name)
      : DataValue(kind), nameSize_(static_cast<std::uint32_t>(name.size())), name_(name.data()) {}

 private:
  friend class Arena;

  struct Field {
    char const* name = nullptr;
    std::uint32_t nameSize = 0;
    bool nameOwned = false;  // from new char[]; otherwise interned or in the arena
    DataValuePtr value;

    std::string_view Name() const noexcept { return {name, nameSize}; }
  };

  std::size_t IndexOf(std::string_view name) const noexcept;

  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
  std::uint32_t nameSize_;
  char const* name_;
  Field* fields_ = nullptr;  // in the arena, else an array of capacity_ from new[]
  Arena* arena_ = nullptr;
};

class StructValue : public CompoundValue {
 public:
  /// The value only refers to `name`; GetInstance copies it.
  explicit StructValue(std::string_view name) : StructValue(Kind::Structure, name) {}
  static std::shared_ptr<StructValue> GetInstance(std::string_view name);

 protected:
  StructValue(Kind kind, std::string_view name) : CompoundValue(kind, name) {}
};

/// Read as a structure it is one whose name is the error's identifier.
class ErrorValue final : public StructValue {
 public:
  /// The value only refers to `name`; GetInstance copies it.
  explicit ErrorValue(std::string_view name) : StructValue(Kind::Error, name) {}
  static std::shared_ptr<ErrorValue> GetInstance(std::string_view name);
  /// An error with the field "messages", a list of LocalizableMessage structures.
  static std::shared_ptr<ErrorValue> Create(std::string_view name, MessageList const& messages);
  static constexpr bool Accepts(Kind kind) noexcept { return kind == Kind::Error; }
};

/// Downcast on the kind: null when `value` is null or of another kind. CompoundValue and StructValue take
/// structures and errors, ListValue all list forms.
template <typename T>
T const* As(DataValue const* value) noexcept {
  return value && T::Accepts(value->KindTag()) ? static_cast<T const*>(value) : nullptr;
}
template <typename T>
std::shared_ptr<T const> As(DataValuePtr const& value) noexcept {
  T const* raw = As<T>(value.get());
  return raw ? std::shared_ptr<T const>(value, raw) : nullptr;
}

}  // namespace Lumo::Data
