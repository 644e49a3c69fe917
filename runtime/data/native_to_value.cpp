#include "runtime/data/native_to_value.h"

#include <vector>

#include "runtime/data/localizable_message.h"

namespace Lumo::Data {

namespace {

BaseMessage CoreMessage(std::string const& id, std::string const& argument) {
  return Message<CoreTag>::Make(id, argument);
}

}  // namespace

bool NativeToValueAdapter::Adapt(NativeConstPtr const& source, Method method, DataValuePtr* destination,
                                 MessageList& errors, L10n::RequestLocalizer const& /*localizer*/) {
  Stack work;
  work.push_front({source, nullptr, method, destination});
  while (!work.empty()) {
    NativeToValueEntry const entry = work.pop_front();
    entry.method(entry.source, entry.destination, work, errors);
  }
  return errors.empty();
}

void NativeToValueAdapter::Fault(Stack& work, MessageList& errors, BaseMessage message) {
  errors.push_back(std::move(message));
  work.clear();
}

void NativeToValueAdapter::UnsetSharedPtr(std::string const& recordName, Stack& work, MessageList& errors) {
  Fault(work, errors, CoreMessage("lumo.data.unset.non.optional.field", recordName));
}

template <>
void NativeToValueAdapter::PrimitiveMethod<bool>(NativeConstPtr const& source,
                                                 DataValuePtr* const& destination, Stack& /*work*/,
                                                 MessageList& /*errors*/) {
  *destination = BooleanValue::GetInstance(source.as<bool>());
}

template <>
void NativeToValueAdapter::PrimitiveMethod<long long>(NativeConstPtr const& source,
                                                      DataValuePtr* const& destination, Stack& /*work*/,
                                                      MessageList& /*errors*/) {
  *destination = IntegerValue::GetInstance(source.as<long long>());
}

template <>
void NativeToValueAdapter::PrimitiveMethod<double>(NativeConstPtr const& source,
                                                   DataValuePtr* const& destination, Stack& /*work*/,
                                                   MessageList& /*errors*/) {
  *destination = DoubleValue::GetInstance(source.as<double>());
}

template <>
void NativeToValueAdapter::PrimitiveMethod<std::string>(NativeConstPtr const& source,
                                                        DataValuePtr* const& destination, Stack& /*work*/,
                                                        MessageList& /*errors*/) {
  *destination = StringValue::GetInstance(source.as<std::string>());
}

template <>
void NativeToValueAdapter::PrimitiveMethod<Secret>(NativeConstPtr const& source,
                                                   DataValuePtr* const& destination, Stack& /*work*/,
                                                   MessageList& /*errors*/) {
  *destination = SecretValue::GetInstance(source.as<Secret>().text());
}

template <>
void NativeToValueAdapter::PrimitiveMethod<DateTime>(NativeConstPtr const& source,
                                                     DataValuePtr* const& destination, Stack& /*work*/,
                                                     MessageList& /*errors*/) {
  *destination = StringValue::GetInstance(source.as<DateTime>().ToString());
}

template <>
void NativeToValueAdapter::NullMethod<DynamicStructure>(NativeConstPtr const& source,
                                                        DataValuePtr* const& destination, Stack& work,
                                                        MessageList& errors) {
  DataValuePtr const& value = source.as<DynamicStructure>().value();
  if (!value) {
    Fault(work, errors, CoreMessage("lumo.data.unset.field", "DynamicStructure"));
    return;
  }
  *destination = value;
}

void NativeToValueAdapter::VoidMethod(NativeConstPtr const& /*source*/, DataValuePtr* const& destination,
                                      Stack& /*work*/, MessageList& /*errors*/) {
  *destination = VoidValue::GetInstance();
}

void NativeToValueAdapter::EnumText(Enum const& source, EnumDescriptor const& descriptor,
                                    DataValuePtr* destination, Stack& work, MessageList& errors) {
  std::string const text = source.TextOf(descriptor);
  if (text.empty()) {
    Fault(work, errors, CoreMessage("lumo.data.unset.field", std::string(descriptor.name)));
    return;
  }
  *destination = StringValue::GetInstance(text);
}

void NativeToValueAdapter::MessageMethod(NativeConstPtr const& source, DataValuePtr* const& destination,
                                         Stack& /*work*/, MessageList& /*errors*/) {
  *destination = MakeLocalizableMessage(source.as<BaseMessage>());
}

void NativeToValueAdapter::FieldsMethod(NativeConstPtr const& source, DataValuePtr* const& destination,
                                        Stack& work, MessageList& /*errors*/) {
  RecordTable const& table = *source.table();
  std::shared_ptr<CompoundValue> compound;
  if (table.isError) {
    compound = ErrorValue::GetInstance(table.name());
  } else {
    compound = StructValue::GetInstance(table.name());
  }
  *destination = compound;
  std::vector<DataValuePtr*> slots;
  slots.reserve(table.fields.size());
  compound->ReserveFields(table.fields.size());
  for (FieldAdapter const& field : table.fields) {
    slots.push_back(compound->AddFieldSlot(field.name));
  }
  for (std::size_t index = table.fields.size(); index-- > 0;) {
    FieldAdapter const& field = table.fields[index];
    work.push_front({NativeConstPtr(field.address(source.object())), nullptr, field.toValue, slots[index]});
  }
}

}  // namespace Lumo::Data
