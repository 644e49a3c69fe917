#include "runtime/json/annotations.h"

#include <algorithm>
#include <array>

#include "runtime/json/base64.h"
#include "runtime/json/reason.h"

namespace Lumo::Protocol::Json {
namespace {

using Data::DataValue;
using Data::ListValue;
using Data::StringValue;
using Member = Data::Arena::NamedChild;

bool IsEscaped(std::string_view name) {
  return name.size() > 1 && name[1] == Annotation::kEscape;
}
bool IsAnnotation(std::string_view name) {
  return !name.empty() && name[0] == '@' && !IsEscaped(name);
}

// A list that stands bare in the document, as the set and map annotations want it.
ListValue const* BareList(DataValue const* value) {
  auto const* list = Data::As<ListValue>(value);
  return list && list->form() == ListValue::Form::List ? list : nullptr;
}

DataValue const* Binary(Data::Arena& arena, DataValue const* value) {
  auto const* text = Data::As<StringValue>(value);
  if (!text)
    return nullptr;
  std::size_t const encoded = text->value().size();
  char* const bytes = static_cast<char*>(arena.Allocate(encoded / 4 * 3));
  auto const size = DecodeBase64(text->value(), bytes);
  return size ? arena.MakeText<Data::BinaryValue>({bytes, *size}) : nullptr;
}

DataValue const* Secret(Data::Arena& arena, DataValue const* value) {
  auto const* text = Data::As<StringValue>(value);
  return text ? arena.MakeText<Data::SecretValue>(text->value()) : nullptr;
}

DataValue const* Optional(Data::Arena& arena, DataValue const* value) {
  return arena.Optional(Data::As<Data::VoidValue>(value) ? nullptr : value);
}

DataValue const* Set(Data::Arena& /*arena*/, DataValue const* value) {
  auto const* list = BareList(value);
  if (list)
    Data::Arena::SetForm(list, ListValue::Form::Set);
  return list;
}

DataValue const* EnumSet(Data::Arena& /*arena*/, DataValue const* value) {
  auto const* list = BareList(value);
  if (!list)
    return nullptr;
  for (std::size_t index = 0; index < list->size(); ++index) {
    if (!Data::As<StringValue>(list->Item(index)))
      return nullptr;
  }
  Data::Arena::SetForm(list, ListValue::Form::EnumSet);
  return list;
}

// Every item has to be a plain object of key and value, in either order.
DataValue const* Map(Data::Arena& arena, DataValue const* value) {
  auto const* list = BareList(value);
  if (!list)
    return nullptr;
  for (std::size_t index = 0; index < list->size(); ++index) {
    auto const* entry = Data::As<Data::StructValue>(list->Item(index));
    if (!entry || entry->KindTag() != Data::Kind::Structure || entry->size() != 2 ||
        !(entry->name().empty() || entry->name() == kMapEntryName))
      return nullptr;
    std::array<Member, 2> const fields{
        {{kMapKey, entry->Find(kMapKey)}, {kMapValue, entry->Find(kMapValue)}}};
    if (!fields[0].value || !fields[1].value)
      return nullptr;
    arena.SetItem(list, index, arena.MakeCompound<Data::StructValue>(kMapEntryName, fields));
  }
  Data::Arena::SetForm(list, ListValue::Form::Map);
  return list;
}

struct Wrapper {
  std::string_view name;
  DataValue const* (*resolve)(Data::Arena&, DataValue const*);
  char const* wants;
};

constexpr std::array<Wrapper, 6> kWrappers{{
    {Annotation::kOptional, Optional, "a value"},
    {Annotation::kMap, Map, "a list of objects with key and value"},
    {Annotation::kSet, Set, "a list"},
    {Annotation::kEnumSet, EnumSet, "a list of texts"},
    {Annotation::kBinary, Binary, "a text in base64"},
    {Annotation::kSecret, Secret, "a text"},
}};

DataValue const* Named(Data::Arena& arena, std::span<Member> members, std::size_t annotation,
                       std::string& problem) {
  auto const* name = Data::As<StringValue>(members[annotation].value);
  if (!name) {
    problem = Concat({"annotation ", Quoted(members[annotation].name), " wants a text"});
    return nullptr;
  }
  bool const isError = members[annotation].name == Annotation::kError;
  std::rotate(members.begin(), members.begin() + static_cast<std::ptrdiff_t>(annotation),
              members.begin() + static_cast<std::ptrdiff_t>(annotation) + 1);
  std::span<Member const> const fields = members.subspan(1);
  if (isError)
    return arena.MakeCompound<Data::ErrorValue>(name->value(), fields);
  return arena.MakeCompound<Data::StructValue>(name->value(), fields);
}

}  // namespace

bool HoldsNestedValue(std::string_view memberName) {
  return !IsAnnotation(memberName) || memberName == Annotation::kOptional;
}

DataValue const* ResolveAnnotations(Data::Arena& arena, std::span<Member> members, std::string& problem) {
  std::size_t annotation = members.size();
  for (std::size_t index = 0; index < members.size(); ++index) {
    std::string_view& name = members[index].name;
    if (!IsAnnotation(name)) {
      if (!name.empty() && name[0] == '@')
        name.remove_prefix(1);
      continue;
    }
    if (annotation < members.size()) {
      problem =
          Concat({"annotations ", Quoted(members[annotation].name), " and ", Quoted(name), " in one object"});
      return nullptr;
    }
    annotation = index;
  }
  if (annotation == members.size())
    return arena.MakeCompound<Data::StructValue>({}, members);

  std::string_view const name = members[annotation].name;
  if (name == Annotation::kStruct || name == Annotation::kError)
    return Named(arena, members, annotation, problem);
  for (Wrapper const& wrapper : kWrappers) {
    if (wrapper.name != name)
      continue;
    if (members.size() > 1) {
      problem = Concat({"annotation ", Quoted(name), " beside other members"});
      return nullptr;
    }
    DataValue const* const value = wrapper.resolve(arena, members[0].value);
    if (!value)
      problem = Concat({"annotation ", Quoted(name), " wants ", wrapper.wants});
    return value;
  }
  problem = Concat({"unknown annotation ", Quoted(name)});
  return nullptr;
}

}  // namespace Lumo::Protocol::Json
