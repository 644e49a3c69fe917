#include "runtime/data/localizable_message.h"

namespace Lumo::Data {

std::shared_ptr<StructValue> MakeLocalizableMessage(BaseMessage const& message) {
  auto const args = ListValue::GetInstance(ListValue::Form::List);
  args->Reserve(message.args().size());
  for (std::string const& arg : message.args()) {
    args->Add(StringValue::GetInstance(arg));
  }
  auto structure = StructValue::GetInstance(kLocalizableMessageName);
  structure->ReserveFields(4);
  structure->SetField("id", StringValue::GetInstance(message.id()));
  structure->SetField("default_message", StringValue::GetInstance(message.defaultMessage()));
  structure->SetField("args", args);
  structure->SetField("localized", OptionalValue::GetInstance());
  return structure;
}

std::list<std::string> MessageArguments(CompoundValue const& message) {
  std::list<std::string> args;
  if (auto const* const list = As<ListValue>(message.Find("args"))) {
    for (std::size_t index = 0; index < list->size(); ++index) {
      auto const* const arg = As<StringValue>(list->Item(index));
      args.emplace_back(arg ? arg->value() : std::string_view());
    }
  }
  return args;
}

}  // namespace Lumo::Data
