#include "runtime/json/value_writer.h"

#include <array>
#include <cmath>
#include <string_view>
#include <vector>

#include "runtime/json/annotations.h"

namespace Lumo::Protocol::Json {
namespace {

using Data::CompoundValue;
using Data::DataValue;
using Data::Kind;
using Data::ListValue;
using Data::OptionalValue;

constexpr char const* kBadEntry = "an entry of a map isn't a structure of key and value";
constexpr char const* kBadKey = "a key of a map is no scalar";
constexpr char const* kNotFinite = "a number is infinite or none at all";

// What an optional comes to in the direct form: the value inside, null for an unset one.
DataValue const* Unwrap(DataValue const* value) {
  while (value && value->KindTag() == Kind::Optional)
    value = static_cast<OptionalValue const*>(value)->Inner();
  return value;
}

CompoundValue const* MapEntry(DataValue const* item) {
  auto const* entry = Data::As<CompoundValue>(item);
  bool const ok =
      entry && entry->size() == 2 && entry->FieldName(0) == kMapKey && entry->FieldName(1) == kMapValue;
  return ok ? entry : nullptr;
}

// Containers that have been opened and not closed.
class OpenStack {
 public:
  enum class Shape : unsigned char { Optional, List, Map, Entry, Compound };
  struct Level {
    DataValue const* value;
    std::size_t next;  // index of the next child
    Shape shape;
    bool empty;  // nothing has been written inside
  };

  void Push(DataValue const* value, Shape shape) {
    Level const level{value, 0, shape, true};
    if (depth_ < near_.size()) {
      near_[depth_] = level;
    } else {
      far_.push_back(level);
    }
    ++depth_;
  }
  void Pop() {
    if (depth_ > near_.size())
      far_.pop_back();
    --depth_;
  }
  Level& Top() { return depth_ > near_.size() ? far_.back() : near_[depth_ - 1]; }
  std::size_t Depth() const { return depth_; }

 private:
  std::array<Level, 24> near_;  // deep enough for nearly every value, without memory of its own
  std::vector<Level> far_;
  std::size_t depth_ = 0;
};

template <WriteForm form>
class TreeWriter {
 public:
  TreeWriter(TextSink& sink, unsigned long indent, std::size_t limit)
      : sink_(sink), indent_(indent), limit_(limit) {}

  char const* Run(DataValue const* root) {
    Value(root);
    while (open_.Depth() > 0 && !problem_) {
      if (form == WriteForm::Log && sink_.Size() >= limit_)
        break;
      Step(open_.Top());
    }
    return problem_;
  }

 private:
  using Shape = OpenStack::Shape;
  using Level = OpenStack::Level;

  static constexpr bool kFull = form == WriteForm::Full;

  // Writes a scalar whole; of a container the opening, for Step to go on with.
  void Value(DataValue const* value);
  // Writes one child of the innermost container, or its end.
  void Step(Level& level);
  void StepList(Level& level);
  void StepMap(Level& level);
  void StepEntry(Level& level);
  void StepCompound(Level& level);

  void OpenList(ListValue const& list);
  void OpenCompound(CompoundValue const& compound);
  void Double(double value);
  void MapKey(DataValue const* key);

  void Wrapper(std::string_view annotation) {
    sink_.Put('{');
    sink_.Text(annotation);
    Colon();
  }
  void Colon() {
    sink_.Put(':');
    if (indent_ > 0)
      sink_.Put(' ');
  }
  // Before a child: the comma that it needs, and its line.
  void Separate(Level& level) {
    if (!level.empty)
      sink_.Put(',');
    level.empty = false;
    if (indent_ > 0)
      NewLine(open_.Depth());
  }
  void NewLine(std::size_t depth) {
    sink_.Put('\n');
    sink_.Blanks(depth * indent_);
  }
  void Close(Level const& level, std::string_view end) {
    if (indent_ > 0 && !level.empty)
      NewLine(open_.Depth() - 1);
    sink_.Raw(end);
    open_.Pop();
  }

  TextSink& sink_;
  unsigned long const indent_;
  std::size_t const limit_;
  OpenStack open_;
  char const* problem_ = nullptr;
};

template <WriteForm form>
void TreeWriter<form>::Value(DataValue const* value) {
  if (!kFull)
    value = Unwrap(value);
  if (!value)
    return sink_.Raw("null");
  switch (value->KindTag()) {
    case Kind::Void:
      return sink_.Raw("null");
    case Kind::Boolean:
      return sink_.Raw(static_cast<Data::BooleanValue const*>(value)->value() ? "true" : "false");
    case Kind::Integer:
      return sink_.Integer(static_cast<Data::IntegerValue const*>(value)->value());
    case Kind::Double:
      return Double(static_cast<Data::DoubleValue const*>(value)->value());
    case Kind::String: {
      std::string_view const text = static_cast<Data::StringValue const*>(value)->value();
      return sink_.Text(form == WriteForm::Log ? text.substr(0, limit_) : text);
    }
    case Kind::Binary:
      if (kFull)
        Wrapper(Annotation::kBinary);
      sink_.Base64(static_cast<Data::BinaryValue const*>(value)->value());
      if (kFull)
        sink_.Put('}');
      return;
    case Kind::Secret:
      if (form == WriteForm::Log)
        return sink_.Raw("\"***\"");
      if (kFull)
        Wrapper(Annotation::kSecret);
      sink_.Text(static_cast<Data::SecretValue const*>(value)->value());
      if (kFull)
        sink_.Put('}');
      return;
    case Kind::Optional:
      Wrapper(Annotation::kOptional);
      return open_.Push(value, Shape::Optional);
    case Kind::List:
    case Kind::EnumSet:
      return OpenList(static_cast<ListValue const&>(*value));
    case Kind::Structure:
    case Kind::Error:
      return OpenCompound(static_cast<CompoundValue const&>(*value));
  }
}

template <WriteForm form>
void TreeWriter<form>::Double(double value) {
  if (std::isfinite(value))
    return sink_.Real(value);
  if (form == WriteForm::Log)
    return sink_.Raw(std::isnan(value) ? "nan" : "infinity");
  problem_ = kNotFinite;
}

template <WriteForm form>
void TreeWriter<form>::OpenList(ListValue const& list) {
  bool const isMap = list.form() == ListValue::Form::Map;
  if (kFull) {
    if (isMap)
      Wrapper(Annotation::kMap);
    if (list.form() == ListValue::Form::Set)
      Wrapper(Annotation::kSet);
    if (list.form() == ListValue::Form::EnumSet)
      Wrapper(Annotation::kEnumSet);
  }
  sink_.Put(isMap && !kFull ? '{' : '[');
  open_.Push(&list, isMap ? Shape::Map : Shape::List);
}

template <WriteForm form>
void TreeWriter<form>::OpenCompound(CompoundValue const& compound) {
  if (form == WriteForm::Log)
    sink_.Raw(compound.name());
  sink_.Put('{');
  open_.Push(&compound, Shape::Compound);
  if (!kFull)
    return;
  Separate(open_.Top());
  sink_.Text(compound.KindTag() == Kind::Error ? Annotation::kError : Annotation::kStruct);
  Colon();
  sink_.Text(compound.name());
}

template <WriteForm form>
void TreeWriter<form>::Step(Level& level) {
  switch (level.shape) {
    case Shape::Optional:
      if (level.next++ == 0)
        return Value(static_cast<OptionalValue const*>(level.value)->Inner());
      sink_.Put('}');
      return open_.Pop();
    case Shape::List:
      return StepList(level);
    case Shape::Map:
      return StepMap(level);
    case Shape::Entry:
      return StepEntry(level);
    case Shape::Compound:
      return StepCompound(level);
  }
}

template <WriteForm form>
void TreeWriter<form>::StepList(Level& level) {
  auto const& list = static_cast<ListValue const&>(*level.value);
  if (level.next == list.size())
    return Close(level, kFull && list.form() != ListValue::Form::List ? "]}" : "]");
  Separate(level);
  Value(list.Item(level.next++));
}

template <WriteForm form>
void TreeWriter<form>::StepMap(Level& level) {
  auto const& list = static_cast<ListValue const&>(*level.value);
  if (level.next == list.size())
    return Close(level, kFull ? "]}" : "}");
  CompoundValue const* const entry = MapEntry(list.Item(level.next++));
  if (!entry) {
    problem_ = kBadEntry;
    return;
  }
  Separate(level);
  if (kFull) {
    sink_.Put('{');
    return open_.Push(entry, Shape::Entry);
  }
  MapKey(Unwrap(entry->FieldValue(0)));
  Colon();
  Value(entry->FieldValue(1));
}

template <WriteForm form>
void TreeWriter<form>::StepEntry(Level& level) {
  auto const& entry = static_cast<CompoundValue const&>(*level.value);
  if (level.next == entry.size())
    return Close(level, "}");
  Separate(level);
  sink_.Text(level.next == 0 ? kMapKey : kMapValue);
  Colon();
  Value(entry.FieldValue(level.next++));
}

template <WriteForm form>
void TreeWriter<form>::StepCompound(Level& level) {
  auto const& compound = static_cast<CompoundValue const&>(*level.value);
  if (level.next == compound.size())
    return Close(level, "}");
  std::size_t const index = level.next++;
  DataValue const* const field = compound.FieldValue(index);
  std::string_view const name = compound.FieldName(index);
  if (!kFull && field && field->KindTag() == Kind::Optional && !Unwrap(field))
    return;
  Separate(level);
  if (kFull && name.starts_with('@')) {
    sink_.Text(Annotation::kEscape + std::string(name));
  } else {
    sink_.Text(name);
  }
  Colon();
  Value(field);
}

// A member's name in the direct form of a map.
template <WriteForm form>
void TreeWriter<form>::MapKey(DataValue const* key) {
  Kind const kind = key ? key->KindTag() : Kind::Void;
  bool const isText = kind == Kind::String || (kind == Kind::Secret && form != WriteForm::Log);
  if (isText)
    return sink_.Text(static_cast<Data::TextStorage const*>(key)->value());
  bool const inQuotes = kind == Kind::Boolean || kind == Kind::Integer || kind == Kind::Double;
  if (!inQuotes && kind != Kind::Binary && kind != Kind::Secret) {
    problem_ = kBadKey;
    return;
  }
  if (inQuotes)
    sink_.Put('"');
  Value(key);
  if (inQuotes)
    sink_.Put('"');
}

}  // namespace

char const* ValueWriter::Write(DataValue const* value) {
  switch (form_) {
    case WriteForm::Full:
      return TreeWriter<WriteForm::Full>(sink_, indent_, limit_).Run(value);
    case WriteForm::Direct:
      return TreeWriter<WriteForm::Direct>(sink_, indent_, limit_).Run(value);
    case WriteForm::Log:
      return TreeWriter<WriteForm::Log>(sink_, indent_, limit_).Run(value);
  }
  return nullptr;
}

}  // namespace Lumo::Protocol::Json
