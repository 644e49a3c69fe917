// Values to native records.
#pragma once

#include <boost/optional/optional.hpp>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "runtime/data/adapt_entry.h"
#include "runtime/data/localizable_message.h"
#include "runtime/data/native_to_value.h"
#include "runtime/l10n/date_time.h"
#include "runtime/message.h"

namespace Lumo::Data {

/// Converts inputs of operations and outputs of tools to native records. Stateless; any thread.
///
/// It is tolerant where the meaning is plain: a bare value, null or a missing field for an optional, a set
/// optional for the plain type, a structure's fields or a map-form list for a map, any list for a set, an
/// integer for a double (never the reverse), a structure for a list of one (an unnamed one for an empty
/// list), an unknown text or number for an enumeration. Names of structures are not compared.
class ValueToNativeAdapter {
 public:
  using Stack = ValueToNativeStack;
  using Method = ValueToNativeMethod;

  enum class UnknownFields {
    Ignore,  // the output of tools
    Refuse,  // the input of operations; "host" at the top is ignored all the same
  };

  /// False when there was a fault: `errors` holds its message, behind a message that names the field where
  /// its own arguments don't, and `destination` is half filled, for the caller to drop.
  static bool Adapt(DataValuePtr const& source, Method method, NativePtr const& destination,
                    MessageList& errors, UnknownFields unknown = UnknownFields::Ignore);

  /// The work function of any type that a field, an input or an element may have.
  template <typename T>
  static constexpr Method MethodOf();

  /// The generated function of a record, which pushes one entry for each field.
  template <typename T>
  struct AdaptMethod {
    static Method Get(T const* /*record*/) { return &FieldsMethod; }
  };

  /// bool, long long, double, std::string, Secret, DateTime.
  template <typename T>
  static void PrimitiveMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                              MessageList& errors);
  template <typename T>
  static void SharedPtrMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                              MessageList& errors);
  template <typename E, typename L>
  static void ListBeginMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                              MessageList& errors);
  template <typename E, typename L>
  static void ListSetStringEnumHandling(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                                        MessageList& errors);
  /// `E` is std::string, long long or an enumeration.
  template <typename E, typename S>
  static void SetMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                        MessageList& errors);
  template <typename M>
  static void MapBeginMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                             MessageList& errors);
  /// `O` is boost::optional<T> or OptionalPtr<T>.
  template <typename T, typename O>
  static void OptionalBeginMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                                  MessageList& errors);
  template <typename T>
  static void NullMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                         MessageList& errors);
  template <typename E>
  static void EnumMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                         MessageList& errors);
  template <typename T>
  static void RecordMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                           MessageList& errors);
  static void FieldsMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                           MessageList& errors);
  static void VoidMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                         MessageList& errors);
  /// A structure LocalizableMessage, as a Lumo::BaseMessage.
  static void MessageMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                            MessageList& errors);

  /// Adds the message and drops all work.
  static void Fault(Stack& work, MessageList& errors, BaseMessage message);

 private:
  /// Set optionals are opened, however often they are nested: null for an absent, unset or void value.
  static DataValuePtr Unwrap(DataValuePtr const& source);
  /// Opens one optional, for a field whose value is then taken as it is.
  static DataValuePtr UnwrapOnce(DataValuePtr const& source);
  static void AssignEnum(DataValuePtr const& source, Enum& destination, EnumDescriptor const& descriptor,
                         Stack& work, MessageList& errors);
  static void WrongType(DataValue const* source, std::string_view expected, Stack& work, MessageList& errors);
  static void NotAList(Stack& work, MessageList& errors);
  static void NoSetOfTexts(Kind kind, std::string const& elementName, Stack& work, MessageList& errors);
  /// False, after a fault, unless the source is a compound value or a list in the form of a map.
  static bool IsMap(DataValue const* source, Stack& work, MessageList& errors);
  /// Key and value of one entry of the list form; false after a fault.
  static bool MapEntry(ListValue const& list, std::size_t index, std::string_view& key,
                       DataValue const*& value, Stack& work, MessageList& errors);
  static void WrongElement(DataValue const* element, std::size_t index, std::string const& expected,
                           Stack& work, MessageList& errors);
  static void DuplicateKey(std::string_view key, Stack& work, MessageList& errors);
};

namespace Detail {
/// The name in messages about an element or field type.
template <typename T>
std::string NativeTypeName() {
  if constexpr (std::is_same_v<T, bool>) {
    return "boolean";
  } else if constexpr (std::is_same_v<T, long long>) {
    return "integer";
  } else if constexpr (std::is_same_v<T, double>) {
    return "double";
  } else if constexpr (std::is_same_v<T, std::string>) {
    return "string";
  } else if constexpr (std::is_same_v<T, Secret>) {
    return "secret";
  } else if constexpr (std::is_same_v<T, DateTime>) {
    return "date_time";
  } else if constexpr (std::is_same_v<T, DynamicStructure>) {
    return "dynamic";
  } else if constexpr (std::is_same_v<T, BaseMessage>) {
    return std::string(kLocalizableMessageName);
  } else if constexpr (IsSharedPtr<T>::value) {
    return TypeInfo<std::remove_const_t<typename T::element_type>>::name();
  } else if constexpr (std::is_base_of_v<Enum, T>) {
    return std::string(T::descriptor().name);
  } else if constexpr (std::is_base_of_v<BaseNative, T>) {
    return TypeInfo<T>::name();
  } else if constexpr (IsMap<T>::value) {
    return "map";
  } else {
    return "list";
  }
}
}  // namespace Detail

template <typename T>
constexpr ValueToNativeMethod ValueToNativeAdapter::MethodOf() {
  if constexpr (Detail::kIsPrimitive<T>) {
    return &PrimitiveMethod<T>;
  } else if constexpr (std::is_same_v<T, Void>) {
    return &VoidMethod;
  } else if constexpr (std::is_same_v<T, DynamicStructure>) {
    return &NullMethod<T>;
  } else if constexpr (std::is_same_v<T, BaseMessage>) {
    return &MessageMethod;
  } else if constexpr (std::is_base_of_v<Enum, T>) {
    return &EnumMethod<T>;
  } else if constexpr (Detail::IsBoostOptional<T>::value) {
    return &OptionalBeginMethod<typename T::value_type, T>;
  } else if constexpr (Detail::IsOptionalPtr<T>::value) {
    return &OptionalBeginMethod<std::remove_reference_t<decltype(*std::declval<T>())>, T>;
  } else if constexpr (Detail::IsSharedPtr<T>::value) {
    return &SharedPtrMethod<typename T::element_type>;
  } else if constexpr (Detail::IsList<T>::value) {
    return &ListBeginMethod<typename T::value_type, T>;
  } else if constexpr (Detail::IsSet<T>::value) {
    return &SetMethod<typename T::value_type, T>;
  } else if constexpr (Detail::IsMap<T>::value) {
    return &MapBeginMethod<T>;
  } else {
    static_assert(std::is_base_of_v<BaseNative, T>, "no type of the interface definition");
    return &RecordMethod<T>;
  }
}

template <typename T>
void ValueToNativeAdapter::SharedPtrMethod(DataValuePtr const& source, NativePtr const& destination,
                                           Stack& work, MessageList& errors) {
  using Record = std::remove_const_t<T>;
  DataValuePtr const value = Unwrap(source);
  if (!As<CompoundValue>(value.get())) {
    WrongType(value.get(), TypeInfo<Record>::name(), work, errors);
    return;
  }
  std::shared_ptr<Record> const record = TypeInfo<Record>::defaultInstance(value);
  destination.as<std::shared_ptr<T>>() = record;
  NativeConstPtr const pointer = RecordPointer(*record);
  work.push_front({value, nullptr, AdaptMethod<Record>::Get(record.get()),
                   NativePtr(const_cast<void*>(pointer.object()), pointer.table())});
}

template <typename E, typename L>
void ValueToNativeAdapter::ListSetStringEnumHandling(DataValuePtr const& source, NativePtr const& destination,
                                                     Stack& work, MessageList& errors) {
  if constexpr (std::is_base_of_v<Enum, E>) {
    auto const& list = *As<ListValue>(source.get());
    auto& elements = destination.as<L>();
    elements.clear();
    for (std::size_t index = 0; index < list.size(); ++index) {
      elements.emplace_back();
    }
    auto element = elements.rbegin();
    for (std::size_t index = list.size(); index-- > 0; ++element) {
      work.PushElement({DataValuePtr(source, list.Item(index)), nullptr, MethodOf<E>(), NativePtr(&*element)},
                       index);
    }
  } else {
    NoSetOfTexts(source->GetKind(), Detail::NativeTypeName<E>(), work, errors);
  }
}

template <typename E, typename L>
void ValueToNativeAdapter::ListBeginMethod(DataValuePtr const& source, NativePtr const& destination,
                                           Stack& work, MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  auto& elements = destination.as<L>();
  if (CompoundValue const* const compound = As<CompoundValue>(value.get())) {
    elements.clear();
    if (compound->name().empty()) {
      return;
    }
    elements.emplace_back();
    work.PushElement({value, nullptr, MethodOf<E>(), NativePtr(&elements.back())}, 0);
    return;
  }
  ListValue const* const list = As<ListValue>(value.get());
  if (list == nullptr) {
    NotAList(work, errors);
    return;
  }
  if (list->GetKind() == Kind::EnumSet) {
    ListSetStringEnumHandling<E, L>(value, destination, work, errors);
    return;
  }
  elements.clear();
  for (std::size_t index = 0; index < list->size(); ++index) {
    elements.emplace_back();
  }
  auto element = elements.rbegin();
  for (std::size_t index = list->size(); index-- > 0; ++element) {
    work.PushElement({DataValuePtr(value, list->Item(index)), nullptr, MethodOf<E>(), NativePtr(&*element)},
                     index);
  }
}

template <typename E, typename S>
void ValueToNativeAdapter::SetMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                                     MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  auto& elements = destination.as<S>();
  elements.clear();
  if (CompoundValue const* const compound = As<CompoundValue>(value.get());
      compound && compound->name().empty()) {
    return;
  }
  ListValue const* const list = As<ListValue>(value.get());
  if (list == nullptr) {
    NotAList(work, errors);
    return;
  }
  // Elements are scalars, so nothing is left to push: each is read at its place.
  Stack single(false);
  MessageList faults;
  for (std::size_t index = 0; index < list->size(); ++index) {
    E element{};
    MethodOf<E>()(DataValuePtr(value, list->Item(index)), NativePtr(&element), single, faults);
    if (!faults.empty()) {
      WrongElement(list->Item(index), index, Detail::NativeTypeName<E>(), work, errors);
      return;
    }
    elements.insert(std::move(element));
  }
}

template <typename M>
void ValueToNativeAdapter::MapBeginMethod(DataValuePtr const& source, NativePtr const& destination,
                                          Stack& work, MessageList& errors) {
  using V = typename M::mapped_type;
  DataValuePtr const value = Unwrap(source);
  auto& map = destination.as<M>();
  map.clear();
  if (!IsMap(value.get(), work, errors)) {
    return;
  }
  // Pushed from the last to the first, so that the first fault in order of arrival is the one that is told.
  // Faulty entries of the list form come before faulty values.
  if (CompoundValue const* const compound = As<CompoundValue>(value.get())) {
    for (std::size_t index = compound->size(); index-- > 0;) {
      std::string_view const key = compound->FieldName(index);
      auto const [item, added] = map.emplace(key, V());
      work.PushField({DataValuePtr(value, compound->FieldValue(index)), nullptr, MethodOf<V>(),
                      NativePtr(&item->second)},
                     key);
    }
    return;
  }
  auto const& list = *As<ListValue>(value.get());
  struct Entry {
    std::string_view key;
    DataValue const* source;
    V* destination;
  };
  std::vector<Entry> entries(list.size());
  for (std::size_t index = 0; index < list.size(); ++index) {
    Entry& entry = entries[index];
    if (!MapEntry(list, index, entry.key, entry.source, work, errors)) {
      return;
    }
    auto const [item, added] = map.emplace(entry.key, V());
    if (!added) {
      DuplicateKey(entry.key, work, errors);
      return;
    }
    entry.destination = &item->second;
  }
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    work.PushField(
        {DataValuePtr(value, entry->source), nullptr, MethodOf<V>(), NativePtr(entry->destination)},
        entry->key);
  }
}

template <typename T, typename O>
void ValueToNativeAdapter::OptionalBeginMethod(DataValuePtr const& source, NativePtr const& destination,
                                               Stack& work, MessageList& errors) {
  auto& optional = destination.as<O>();
  DataValuePtr const value = std::is_same_v<T, DynamicStructure> ? UnwrapOnce(source) : Unwrap(source);
  if (!value) {
    optional.reset();
    return;
  }
  if constexpr (Detail::IsOptionalPtr<O>::value) {
    using Record = std::remove_const_t<T>;
    if (!As<CompoundValue>(value.get())) {
      WrongType(value.get(), TypeInfo<Record>::name(), work, errors);
      return;
    }
    std::shared_ptr<Record> const record = TypeInfo<Record>::defaultInstance(value);
    optional = O(record);
    NativeConstPtr const pointer = RecordPointer(*record);
    work.push_front({value, nullptr, AdaptMethod<Record>::Get(record.get()),
                     NativePtr(const_cast<void*>(pointer.object()), pointer.table())});
  } else {
    optional = T{};
    work.push_front({value, nullptr, MethodOf<T>(), NativePtr(&*optional)});
  }
}

template <typename E>
void ValueToNativeAdapter::EnumMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                                      MessageList& errors) {
  AssignEnum(source, destination.as<E>(), E::descriptor(), work, errors);
}

template <typename T>
void ValueToNativeAdapter::RecordMethod(DataValuePtr const& source, NativePtr const& destination, Stack& work,
                                        MessageList& errors) {
  DataValuePtr const value = Unwrap(source);
  if (!As<CompoundValue>(value.get())) {
    WrongType(value.get(), TypeInfo<T>::name(), work, errors);
    return;
  }
  work.push_front({value, nullptr, AdaptMethod<T>::Get(&destination.as<T>()),
                   NativePtr(destination.object(), &TypeInfo<T>::table())});
}

}  // namespace Lumo::Data
