// Short makers of values for tests.
#pragma once

#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>

#include "runtime/data/value.h"

namespace Lumo::Tree {

using Data::DataValuePtr;
using Form = Data::ListValue::Form;

inline DataValuePtr Int(long long value) {
  return Data::IntegerValue::GetInstance(value);
}
inline DataValuePtr Real(double value) {
  return Data::DoubleValue::GetInstance(value);
}
inline DataValuePtr Str(std::string_view text) {
  return Data::StringValue::GetInstance(text);
}
inline DataValuePtr Bool(bool value) {
  return Data::BooleanValue::GetInstance(value);
}
inline DataValuePtr Void() {
  return Data::VoidValue::GetInstance();
}
inline DataValuePtr Unset() {
  return Data::OptionalValue::GetInstance();
}

inline DataValuePtr Optional(DataValuePtr const& inner) {
  auto optional = Data::OptionalValue::GetInstance();
  optional->value(inner);
  return optional;
}

inline std::shared_ptr<Data::ListValue> List(Form form, std::initializer_list<DataValuePtr> items) {
  auto list = Data::ListValue::GetInstance(form);
  for (auto const& item : items)
    list->Add(item);
  return list;
}

using Fields = std::initializer_list<std::pair<std::string_view, DataValuePtr>>;

template <typename Compound>
std::shared_ptr<Compound> Make(std::string_view name, Fields fields) {
  auto record = Compound::GetInstance(name);
  for (auto const& [field, value] : fields)
    record->SetField(field, value);
  return record;
}
inline std::shared_ptr<Data::StructValue> Struct(std::string_view name, Fields fields) {
  return Make<Data::StructValue>(name, fields);
}
inline std::shared_ptr<Data::ErrorValue> Error(std::string_view name, Fields fields) {
  return Make<Data::ErrorValue>(name, fields);
}
inline DataValuePtr Entry(DataValuePtr const& key, DataValuePtr const& value) {
  return Struct("map-entry", {{"key", key}, {"value", value}});
}

}  // namespace Lumo::Tree
