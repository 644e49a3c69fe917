// Building blocks of the generated record tables.
#pragma once

#include "runtime/data/native_to_value.h"
#include "runtime/data/value_to_native.h"

namespace Lumo::Data {

/// Address of a member of the most derived record `R`.
template <typename R, auto Member>
void const* MemberAddress(void const* record) {
  return &(static_cast<R const*>(record)->*Member);
}

/// The table entry of one member.
template <typename R, auto Member>
constexpr FieldAdapter MakeField(std::string_view name) {
  using Field = std::remove_cvref_t<decltype(std::declval<R>().*Member)>;
  return {name, &MemberAddress<R, Member>, NativeToValueAdapter::MethodOf<Field>(),
          ValueToNativeAdapter::MethodOf<Field>(), Detail::kIsOptional<Field>};
}

}  // namespace Lumo::Data
