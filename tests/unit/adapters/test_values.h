// Short ways to build values in tests.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "runtime/data/value.h"

namespace TestValues {

using Lumo::Data::DataValuePtr;
using Field = std::pair<char const*, DataValuePtr>;

inline DataValuePtr Text(std::string const& text) {
  return Lumo::Data::StringValue::GetInstance(text);
}
inline DataValuePtr Int(long long number) {
  return Lumo::Data::IntegerValue::GetInstance(number);
}
inline DataValuePtr Real(double number) {
  return Lumo::Data::DoubleValue::GetInstance(number);
}
inline DataValuePtr Flag(bool flag) {
  return Lumo::Data::BooleanValue::GetInstance(flag);
}
inline DataValuePtr Null() {
  return Lumo::Data::VoidValue::GetInstance();
}

inline DataValuePtr Unset() {
  return Lumo::Data::OptionalValue::GetInstance();
}
inline DataValuePtr Set(DataValuePtr const& inner) {
  auto const optional = Lumo::Data::OptionalValue::GetInstance();
  optional->value(inner);
  return optional;
}

inline DataValuePtr ListOf(std::initializer_list<DataValuePtr> items,
                           Lumo::Data::ListValue::Form form = Lumo::Data::ListValue::Form::List) {
  auto const list = Lumo::Data::ListValue::GetInstance(form);
  for (DataValuePtr const& item : items) {
    list->Add(item);
  }
  return list;
}

inline DataValuePtr Struct(std::string const& name, std::initializer_list<Field> fields) {
  auto const structure = Lumo::Data::StructValue::GetInstance(name);
  for (Field const& field : fields) {
    structure->SetField(field.first, field.second);
  }
  return structure;
}
inline DataValuePtr Object(std::initializer_list<Field> fields) {
  return Struct("", fields);
}

inline DataValuePtr MapOf(std::initializer_list<Field> entries) {
  auto const list = Lumo::Data::ListValue::GetInstance(Lumo::Data::ListValue::Form::Map);
  for (Field const& entry : entries) {
    list->Add(Struct("map-entry", {{"key", Text(entry.first)}, {"value", entry.second}}));
  }
  return list;
}

}  // namespace TestValues
