// The dynamically typed values that all API data is made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

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

class DataValue;
using DataValuePtr = std::shared_ptr<DataValue const>;

/// A node of a value tree. Immutable once shared; built by one thread, then read by any.
/// Depth is unbounded for builders, so nothing here recurses: not ToString, Equals or destruction.
///
/// Values come in two storages. Those made by GetInstance own their children. Those made by a JSON reader live
/// with all their descendants in one arena, which every owning pointer that is handed out keeps alive. A borrowed
/// pointer (`const*`) is valid as long as somebody owns the tree that it was taken from.
class DataValue {
 public:
  DataValue(DataValue const&) = delete;
  DataValue& operator=(DataValue const&) = delete;

  virtual Kind GetKind() const noexcept = 0;
  virtual ~DataValue() = default;

  /// Printable form for logs: the direct JSON form with the name in front of structures and errors
  /// (`name{"field":…}`), secrets as "***", cut at 16 KiB.
  std::string ToString() const;

  /// Deep comparison: kinds, names, and fields in the same order.
  static bool Equals(DataValue const& a, DataValue const& b);

 protected:
  DataValue() = default;
};

class VoidValue final : public DataValue {
 public:
  static std::shared_ptr<VoidValue const> GetInstance();
  Kind GetKind() const noexcept override { return Kind::Void; }
};

class BooleanValue final : public DataValue {
 public:
  explicit BooleanValue(bool value) : value_(value) {}
  static std::shared_ptr<BooleanValue> GetInstance(bool value);
  Kind GetKind() const noexcept override { return Kind::Boolean; }
  bool value() const noexcept { return value_; }

 private:
  bool value_;
};

class IntegerValue final : public DataValue {
 public:
  explicit IntegerValue(long long value) : value_(value) {}
  static std::shared_ptr<IntegerValue> GetInstance(long long value);
  Kind GetKind() const noexcept override { return Kind::Integer; }
  long long value() const noexcept { return value_; }

 private:
  long long value_;
};

class DoubleValue final : public DataValue {
 public:
  explicit DoubleValue(double value) : value_(value) {}
  static std::shared_ptr<DoubleValue> GetInstance(double value);
  Kind GetKind() const noexcept override { return Kind::Double; }
  double value() const noexcept { return value_; }

 private:
  double value_;
};

/// Storage common to text-like values: owned text, or a view into the arena that the value lives in.
class TextStorage : public DataValue {
 public:
  std::string_view value() const noexcept { return view_; }

 protected:
  struct Borrowed {};
  explicit TextStorage(std::string text) : owned_(std::move(text)), view_(owned_) {}
  TextStorage(Borrowed /*tag*/, std::string_view view) : view_(view) {}

 private:
  std::string owned_;
  std::string_view view_;
};

class StringValue final : public TextStorage {
 public:
  explicit StringValue(std::string text) : TextStorage(std::move(text)) {}
  static std::shared_ptr<StringValue> GetInstance(std::string const& text);
  Kind GetKind() const noexcept override { return Kind::String; }
};

/// `value()` is the bytes, not their base64 form.
class BinaryValue final : public TextStorage {
 public:
  explicit BinaryValue(std::string bytes) : TextStorage(std::move(bytes)) {}
  static std::shared_ptr<BinaryValue> GetInstance(std::string const& bytes);
  Kind GetKind() const noexcept override { return Kind::Binary; }
};

/// A text that no log and no ToString() ever shows.
class SecretValue final : public TextStorage {
 public:
  explicit SecretValue(std::string text) : TextStorage(std::move(text)) {}
  static std::shared_ptr<SecretValue> GetInstance(std::string const& text);
  Kind GetKind() const noexcept override { return Kind::Secret; }
};

/// An optional. `GetInstance` makes an unset one.
class OptionalValue final : public DataValue {
 public:
  ~OptionalValue() override;
  static std::shared_ptr<OptionalValue> GetInstance();
  Kind GetKind() const noexcept override { return Kind::Optional; }

  bool HasValue() const noexcept;
  /// Sets it and returns the slot of the inner value, which an adapter fills later. A null argument makes it set
  /// with an empty slot.
  DataValuePtr* value(DataValuePtr const& inner);
  /// Borrowed; null when unset.
  DataValue const* Inner() const noexcept;
  /// Owning; null when unset.
  DataValuePtr GetInner() const;
};

/// A list. Kind EnumSet for a set of enumeration texts, List for the rest.
class ListValue final : public DataValue {
 public:
  enum class Form : int { List = 1, Set = 2, Map = 3, EnumSet = 4 };

  ~ListValue() override;
  static std::shared_ptr<ListValue> GetInstance(Form form);
  Kind GetKind() const noexcept override;
  Form form() const noexcept;

  std::size_t size() const noexcept;
  void Reserve(std::size_t count);
  void Add(DataValuePtr const& item);
  /// Appends an empty slot for an adapter to fill; valid until the next Add, AddSlot or Reserve.
  DataValuePtr* AddSlot();
  /// Borrowed; `index` below size().
  DataValue const* Item(std::size_t index) const noexcept;
  /// Owning.
  DataValuePtr GetItem(std::size_t index) const;
};

/// A structure or an error: a name and fields in order of insertion.
class CompoundValue : public DataValue {
 public:
  ~CompoundValue() override;
  std::string_view name() const noexcept;

  std::size_t size() const noexcept;
  std::string_view FieldName(std::size_t index) const noexcept;
  /// Borrowed; `index` below size().
  DataValue const* FieldValue(std::size_t index) const noexcept;
  /// Borrowed; null when there is no such field.
  DataValue const* Find(std::string_view name) const noexcept;

  bool HasField(std::string_view name) const noexcept { return Find(name) != nullptr; }
  /// False, with a message "lumo.data.field.missing" (argument: the name) added, when there is no such field.
  bool GetField(std::string_view name, DataValuePtr& value, MessageList& errors) const;

  /// Sets or replaces a field. By the builder only, before the value is shared.
  void SetField(std::string_view name, DataValuePtr const& value);
  void ReserveFields(std::size_t count);
  /// Appends a field with an empty slot for an adapter to fill. The slot stays valid while no more fields are added
  /// than were reserved.
  DataValuePtr* AddFieldSlot(std::string_view name);
};

class StructValue final : public CompoundValue {
 public:
  static std::shared_ptr<StructValue> GetInstance(std::string const& name);
  Kind GetKind() const noexcept override { return Kind::Structure; }
};

class ErrorValue final : public CompoundValue {
 public:
  static std::shared_ptr<ErrorValue> GetInstance(std::string const& name);
  /// An error with the field "messages", a list of LocalizableMessage structures.
  static std::shared_ptr<ErrorValue> Create(std::string const& name, MessageList const& messages);
  Kind GetKind() const noexcept override { return Kind::Error; }
};

/// Downcast on the kind: null when `value` is null or of another kind. CompoundValue takes structures and errors,
/// ListValue all list forms.
template <typename T>
T const* As(DataValue const* value) noexcept;
template <typename T>
std::shared_ptr<T const> As(DataValuePtr const& value) noexcept {
  T const* raw = As<T>(value.get());
  return raw ? std::shared_ptr<T const>(value, raw) : nullptr;
}

}  // namespace Lumo::Data
