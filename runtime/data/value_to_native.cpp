#include "runtime/data/value_to_native.h"

#include <algorithm>

namespace Lumo::Data {

namespace {

std::string_view KindName(DataValue const* value) {
  if (value == nullptr) {
    return "null";
  }
  switch (value->GetKind()) {
    case Kind::Void:
      return "null";
    case Kind::Boolean:
      return "boolean";
    case Kind::Integer:
      return "integer";
    case Kind::String:
      return "string";
    case Kind::Structure:
      return "structure";
    case Kind::Error:
      return "error";
    case Kind::Optional:
      return "optional";
    case Kind::List:
    case Kind::EnumSet:
      return "list";
    case Kind::Double:
      return "double";
    case Kind::Binary:
      return "binary";
    case Kind::Secret:
      return "secret";
  }
  return "unknown";
}

std::string TextOf(CompoundValue const& structure, std::string_view field) {
  StringValue const* const text = As<StringValue>(structure.Find(field));
  return text ? std::string(text->value()) : std::string();
}

/// Messages whose arguments are fixed and hold no place.
bool TellsNoPlace(BaseMessage const& message) {
  return message.id() == "lumo.data.invalid.type" || message.id() == "lumo.data.bad.cast2";
}

}  // namespace

bool ValueToNativeAdapter::Adapt(DataValuePtr const& source, Method method, NativePtr const& destination,
                                 MessageList& errors, UnknownFields unknown) {
  Stack work(unknown == UnknownFields::Refuse);
  work.push_front({source, nullptr, method, destination});
  while (!work.empty()) {
    ValueToNativeEntry const entry = work.pop_front();
    entry.method(entry.source, entry.destination, work, errors);
  }
  if (!errors.empty() && !work.atTop() && TellsNoPlace(errors.back())) {
    errors.insert(std::prev(errors.end()), Message<CoreTag>::Make("lumo.data.field.unreadable", work.Path()));
  }
  return errors.empty();
}

void ValueToNativeAdapter::Fault(Stack& work, MessageList& errors, BaseMessage message) {
  errors.push_back(std::move(message));
  work.clear();
}

DataValuePtr ValueToNativeAdapter::Unwrap(DataValuePtr const& source) {
  DataValue const* value = source.get();
  while (value != nullptr && value->GetKind() == Kind::Optional) {
    value = static_cast<OptionalValue const*>(value)->Inner();
  }
  if (value == nullptr || value->GetKind() == Kind::Void) {
    return nullptr;
  }
  return {source, value};
}

DataValuePtr ValueToNativeAdapter::UnwrapOnce(DataValuePtr const& source) {
  if (auto const* optional = As<OptionalValue>(source.get())) {
    return optional->HasValue() ? DataValuePtr(source, optional->Inner()) : nullptr;
  }
  return Unwrap(source);
}

void ValueToNativeAdapter::WrongType(DataValue const* source, std::string_view expected, Stack& work,
                                     MessageList& errors) {
  Fault(work, errors, Message<CoreTag>::Make("lumo.data.bad.cast", work.Path(), KindName(source), expected));
}

void ValueToNativeAdapter::WrongElement(DataValue const* element, std::size_t index,
                                        std::string const& expected, Stack& work, MessageList& errors) {
  Fault(work, errors,
        Message<CoreTag>::Make("lumo.data.bad.cast", work.Path(index), KindName(element), expected));
}

void ValueToNativeAdapter::NotAList(Stack& work, MessageList& errors) {
  Fault(work, errors, Message<CoreTag>::Make("lumo.data.invalid.type"));
}

void ValueToNativeAdapter::NoSetOfTexts(Kind kind, std::string const& elementName, Stack& work,
                                        MessageList& errors) {
  Fault(work, errors,
        Message<CoreTag>::Make("lumo.data.bad.cast2", static_cast<int>(kind),
                               "SharedPtr<" + elementName + ">"));
}

bool ValueToNativeAdapter::IsMap(DataValue const* source, Stack& work, MessageList& errors) {
  ListValue const* const list = As<ListValue>(source);
  if (As<CompoundValue>(source) != nullptr || (list != nullptr && list->form() == ListValue::Form::Map)) {
    return true;
  }
  WrongType(source, "map", work, errors);
  return false;
}

bool ValueToNativeAdapter::MapEntry(ListValue const& list, std::size_t index, std::string_view& key,
                                    DataValue const*& value, Stack& work, MessageList& errors) {
  CompoundValue const* const entry = As<CompoundValue>(list.Item(index));
  StringValue const* const text = entry ? As<StringValue>(entry->Find("key")) : nullptr;
  value = entry ? entry->Find("value") : nullptr;
  if (text == nullptr || value == nullptr) {
    WrongElement(list.Item(index), index, "map-entry", work, errors);
    return false;
  }
  key = text->value();
  return true;
}

void ValueToNativeAdapter::DuplicateKey(std::string_view key, Stack& work, MessageList& errors) {
  Fault(work, errors, Message<CoreTag>::Make("lumo.data.duplicate.key", work.Path(key)));
}

template <>
void ValueToNativeAdapter::PrimitiveMethod<bool>(DataValuePtr const& source, NativePtr const& destination,
                                                 Stack& work, MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  if (auto const* boolean = As<BooleanValue>(value.get())) {
    destination.as<bool>() = boolean->value();
  } else {
    WrongType(value.get(), "boolean", work, errors);
  }
}

template <>
void ValueToNativeAdapter::PrimitiveMethod<long long>(DataValuePtr const& source,
                                                      NativePtr const& destination, Stack& work,
                                                      MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  if (auto const* integer = As<IntegerValue>(value.get())) {
    destination.as<long long>() = integer->value();
  } else {
    WrongType(value.get(), "integer", work, errors);
  }
}

template <>
void ValueToNativeAdapter::PrimitiveMethod<double>(DataValuePtr const& source, NativePtr const& destination,
                                                   Stack& work, MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  if (auto const* real = As<DoubleValue>(value.get())) {
    destination.as<double>() = real->value();
  } else if (auto const* integer = As<IntegerValue>(value.get())) {
    destination.as<double>() = static_cast<double>(integer->value());
  } else {
    WrongType(value.get(), "double", work, errors);
  }
}

template <>
void ValueToNativeAdapter::PrimitiveMethod<std::string>(DataValuePtr const& source,
                                                        NativePtr const& destination, Stack& work,
                                                        MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  if (auto const* text = As<StringValue>(value.get())) {
    destination.as<std::string>() = text->value();
  } else {
    WrongType(value.get(), "string", work, errors);
  }
}

template <>
void ValueToNativeAdapter::PrimitiveMethod<Secret>(DataValuePtr const& source, NativePtr const& destination,
                                                   Stack& work, MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  if (auto const* secret = As<SecretValue>(value.get())) {
    destination.as<Secret>() = Secret(std::string(secret->value()));
  } else if (auto const* text = As<StringValue>(value.get())) {
    destination.as<Secret>() = Secret(std::string(text->value()));
  } else {
    WrongType(value.get(), "secret", work, errors);
  }
}

template <>
void ValueToNativeAdapter::PrimitiveMethod<DateTime>(DataValuePtr const& source, NativePtr const& destination,
                                                     Stack& work, MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  bool read = false;
  if (auto const* text = As<StringValue>(value.get())) {
    read = DateTime::Create(std::string(text->value()), destination.as<DateTime>());
  } else if (auto const* milliseconds = As<IntegerValue>(value.get())) {
    read = DateTime::Create(static_cast<long>(milliseconds->value()), destination.as<DateTime>());
  }
  if (!read) {
    WrongType(value.get(), "date_time", work, errors);
  }
}

template <>
void ValueToNativeAdapter::NullMethod<DynamicStructure>(DataValuePtr const& source,
                                                        NativePtr const& destination, Stack& work,
                                                        MessageList& errors) {
  if (!source) {
    WrongType(nullptr, "dynamic", work, errors);
    return;
  }
  destination.as<DynamicStructure>() = DynamicStructure(source);
}

void ValueToNativeAdapter::VoidMethod(DataValuePtr const& source, NativePtr const& /*destination*/,
                                      Stack& work, MessageList& errors) {
  if (DataValuePtr const value = Unwrap(source)) {
    WrongType(value.get(), "void", work, errors);
  }
}

void ValueToNativeAdapter::AssignEnum(DataValuePtr const& source, Enum& destination,
                                      EnumDescriptor const& descriptor, Stack& work, MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  if (auto const* text = As<StringValue>(value.get())) {
    destination.Assign(descriptor, text->value());
  } else if (auto const* number = As<IntegerValue>(value.get())) {
    destination.Assign(descriptor, number->value());
  } else {
    WrongType(value.get(), descriptor.name, work, errors);
  }
}

void ValueToNativeAdapter::MessageMethod(DataValuePtr const& source, NativePtr const& destination,
                                         Stack& work, MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  CompoundValue const* const structure = As<CompoundValue>(value.get());
  if (structure == nullptr || As<StringValue>(structure->Find("id")) == nullptr) {
    WrongType(value.get(), kLocalizableMessageName, work, errors);
    return;
  }
  destination.as<BaseMessage>() = BaseMessage(TextOf(*structure, "id"), TextOf(*structure, "default_message"),
                                              MessageArguments(*structure));
}

void ValueToNativeAdapter::FieldsMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                                        MessageList& errors) {
  auto const& compound = *As<CompoundValue>(source.get());
  RecordTable const& table = *destination.table();
  if (work.refuseUnknown()) {
    for (std::size_t index = 0; index < compound.size(); ++index) {
      std::string_view const name = compound.FieldName(index);
      bool const known = std::any_of(table.fields.begin(), table.fields.end(),
                                     [name](FieldAdapter const& field) { return field.name == name; });
      if (!known && !(work.atTop() && name == "host")) {
        Fault(work, errors, Message<CoreTag>::Make("lumo.data.unknown.field", work.Path(name)));
        return;
      }
    }
  }
  for (FieldAdapter const& field : table.fields) {
    if (!field.optional && compound.Find(field.name) == nullptr) {
      Fault(work, errors, Message<CoreTag>::Make("lumo.data.field.missing", work.Path(field.name)));
      return;
    }
  }
  for (std::size_t index = table.fields.size(); index-- > 0;) {
    FieldAdapter const& field = table.fields[index];
    if (DataValue const* const value = compound.Find(field.name)) {
      work.PushField({DataValuePtr(source, value), nullptr, field.toNative,
                      NativePtr(const_cast<void*>(field.address(destination.object())))},
                     field.name);
    }
  }
}

}  // namespace Lumo::Data
