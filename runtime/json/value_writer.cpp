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
constexpr char const* kBadKey = "a key of a map is neither a text nor a number";
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

  // Writes a scalar whole and gives false; of a container the opening, for Step to go on with.
  bool Value(DataValue const* value);
  // Writes children of the innermost container up to one that is a container, or to its end.
  void Step(Level& level);
  void StepList(Level& level);
  void StepMap(Level& level);
  void StepEntry(Level& level);
  void StepCompound(Level& level);

  void OpenList(ListValue const& list);
  void OpenCompound(CompoundValue const& compound);
  bool MayGoOn() const { return form != WriteForm::Log || sink_.Size() < limit_; }
  void Double(double value);
  void Secret(std::string_view text);
  void MapKey(Level& level, DataValue const* key);

  void Wrapper(std::string_view annotation) {
    sink_.Put('{');
    sink_.Member(false, annotation);
    if (indent_ > 0)
      sink_.Put(' ');
  }
  // Before an item: the comma that it needs, and its line.
  void Separate(Level& level) {
    if (!level.empty)
      sink_.Put(',');
    level.empty = false;
    if (indent_ > 0)
      NewLine(open_.Depth());
  }
  // Everything of a member but its value.
  void Name(Level& level, std::string_view name) {
    if (indent_ == 0) {
      sink_.Member(!level.empty, name);
      level.empty = false;
      return;
    }
    Separate(level);
    sink_.Member(false, name);
    sink_.Put(' ');
  }
  void NewLine(std::size_t depth) {
    sink_.Put('\n');
    sink_.Blanks(depth * indent_);
  }
  // `wrapped`: inside an annotation's object, which ends too.
  void Close(Level const& level, char end, bool wrapped = false) {
    if (indent_ > 0 && !level.empty)
      NewLine(open_.Depth() - 1);
    sink_.Put(end);
    if (wrapped)
      sink_.Put('}');
    open_.Pop();
  }

  TextSink& sink_;
  unsigned long const indent_;
  std::size_t const limit_;
  OpenStack open_;
  char const* problem_ = nullptr;
};

template <WriteForm form>
bool TreeWriter<form>::Value(DataValue const* value) {
  if (!kFull)
    value = Unwrap(value);
  switch (value ? value->KindTag() : Kind::Void) {
    case Kind::Void:
      sink_.Raw("null");
      return false;
    case Kind::Boolean:
      sink_.Raw(static_cast<Data::BooleanValue const*>(value)->value() ? "true" : "false");
      return false;
    case Kind::Integer:
      sink_.Integer(static_cast<Data::IntegerValue const*>(value)->value());
      return false;
    case Kind::Double:
      Double(static_cast<Data::DoubleValue const*>(value)->value());
      return false;
    case Kind::String: {
      std::string_view const text = static_cast<Data::StringValue const*>(value)->value();
      sink_.Text(form == WriteForm::Log ? text.substr(0, limit_) : text);
      return false;
    }
    case Kind::Binary:
      if (kFull)
        Wrapper(Annotation::kBinary);
      sink_.Base64(static_cast<Data::BinaryValue const*>(value)->value());
      if (kFull)
        sink_.Put('}');
      return false;
    case Kind::Secret:
      Secret(static_cast<Data::SecretValue const*>(value)->value());
      return false;
    case Kind::Optional:
      Wrapper(Annotation::kOptional);
      open_.Push(value, Shape::Optional);
      return true;
    case Kind::List:
    case Kind::EnumSet:
      OpenList(static_cast<ListValue const&>(*value));
      return true;
    case Kind::Structure:
    case Kind::Error:
      OpenCompound(static_cast<CompoundValue const&>(*value));
      return true;
  }
  return false;
}

template <WriteForm form>
void TreeWriter<form>::Secret(std::string_view text) {
  if (form == WriteForm::Log)
    return sink_.Raw("\"***\"");
  if (kFull)
    Wrapper(Annotation::kSecret);
  sink_.Text(text);
  if (kFull)
    sink_.Put('}');
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
  Name(open_.Top(), compound.KindTag() == Kind::Error ? Annotation::kError : Annotation::kStruct);
  sink_.Text(compound.name());
}

template <WriteForm form>
void TreeWriter<form>::Step(Level& level) {
  switch (level.shape) {
    case Shape::Optional:
      if (level.next++ == 0 && Value(static_cast<OptionalValue const*>(level.value)->Inner()))
        return;
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
  while (level.next < list.size()) {
    Separate(level);
    if (Value(list.Item(level.next++)) || problem_ || !MayGoOn())
      return;
  }
  Close(level, ']', kFull && list.form() != ListValue::Form::List);
}

template <WriteForm form>
void TreeWriter<form>::StepMap(Level& level) {
  auto const& list = static_cast<ListValue const&>(*level.value);
  while (level.next < list.size()) {
    CompoundValue const* const entry = MapEntry(list.Item(level.next++));
    if (!entry) {
      problem_ = kBadEntry;
      return;
    }
    if (kFull) {
      Separate(level);
      sink_.Put('{');
      return open_.Push(entry, Shape::Entry);
    }
    MapKey(level, Unwrap(entry->FieldValue(0)));
    if (Value(entry->FieldValue(1)) || problem_ || !MayGoOn())
      return;
  }
  Close(level, kFull ? ']' : '}', kFull);
}

template <WriteForm form>
void TreeWriter<form>::StepEntry(Level& level) {
  auto const& entry = static_cast<CompoundValue const&>(*level.value);
  while (level.next < entry.size()) {
    Name(level, level.next == 0 ? kMapKey : kMapValue);
    if (Value(entry.FieldValue(level.next++)) || problem_)
      return;
  }
  Close(level, '}');
}

template <WriteForm form>
void TreeWriter<form>::StepCompound(Level& level) {
  auto const& compound = static_cast<CompoundValue const&>(*level.value);
  while (level.next < compound.size()) {
    std::size_t const index = level.next++;
    DataValue const* const field = compound.FieldValue(index);
    if (!kFull && field && field->KindTag() == Kind::Optional && !Unwrap(field))
      continue;
    std::string_view const name = compound.FieldName(index);
    if (kFull && name.starts_with('@')) {
      Name(level, Annotation::kEscape + std::string(name));
    } else {
      Name(level, name);
    }
    if (Value(field) || problem_ || !MayGoOn())
      return;
  }
  Close(level, '}');
}

// A member's name in the direct form of a map.
template <WriteForm form>
void TreeWriter<form>::MapKey(Level& level, DataValue const* key) {
  switch (key ? key->KindTag() : Kind::Void) {
    case Kind::String:
      return Name(level, static_cast<Data::StringValue const*>(key)->value());
    case Kind::Boolean:
    case Kind::Integer:
    case Kind::Double: {
      std::string text;
      {
        TextSink sink(text);
        problem_ = TreeWriter<form>(sink, 0, limit_).Run(key);
      }
      return Name(level, text);
    }
    default:
      problem_ = kBadKey;
  }
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
