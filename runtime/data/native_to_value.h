// Native records to values.
#pragma once

#include <boost/optional/optional.hpp>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>

#include "runtime/data/adapt_entry.h"
#include "runtime/l10n/date_time.h"
#include "runtime/message.h"

namespace Lumo {
struct Void;
namespace L10n {
class RequestLocalizer;
}
}  // namespace Lumo

namespace Lumo::Data {

/// Converts results and errors of services to values. Stateless; any thread.
///
/// The functions below `Adapt` are the pieces of work: each fills its destination and pushes what lies below.
/// The first fault drops all pending work, so that exactly one message is left.
class NativeToValueAdapter {
 public:
  using Stack = NativeToValueStack;
  using Method = NativeToValueMethod;

  /// False when there was a fault: `errors` holds it, and `destination` what was built so far, for the caller
  /// to drop. Messages keep their ids and arguments, unlocalised: they are rendered at the edge, not here.
  static bool Adapt(NativeConstPtr const& source, Method method, DataValuePtr* destination,
                    MessageList& errors, L10n::RequestLocalizer const& localizer);

  /// The work function of any type that a field, a result or an element may have.
  template <typename T>
  static constexpr Method MethodOf();

  /// The generated function of a record, which pushes one entry for each field.
  template <typename T>
  struct AdaptMethod {
    static Method Get(T const* /*record*/) { return &FieldsMethod; }
  };

  /// bool, long long, double, std::string, Secret, DateTime.
  template <typename T>
  static void PrimitiveMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                              MessageList& errors);
  template <typename T>
  static void SharedPtrMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                              MessageList& errors);
  template <typename E, typename L, ListValue::Form FormOf>
  static void ListBeginMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                              MessageList& errors);
  template <typename M>
  static void MapBeginMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                             MessageList& errors);
  /// `O` is boost::optional<T> or OptionalPtr<T>.
  template <typename T, typename O>
  static void OptionalBeginMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                                  MessageList& errors);
  /// DynamicStructure: shares the value it holds.
  template <typename T>
  static void NullMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                         MessageList& errors);
  template <typename E>
  static void EnumMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                         MessageList& errors);
  template <typename T>
  static void RecordMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                           MessageList& errors);
  static void FieldsMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                           MessageList& errors);
  static void VoidMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                         MessageList& errors);
  /// Lumo::BaseMessage, as a structure LocalizableMessage.
  static void MessageMethod(NativeConstPtr const& source, DataValuePtr* const& destination, Stack& work,
                            MessageList& errors);

  /// Adds the message and drops all work.
  static void Fault(Stack& work, MessageList& errors, BaseMessage message);

 private:
  static void EnumText(Enum const& source, EnumDescriptor const& descriptor, DataValuePtr* destination,
                       Stack& work, MessageList& errors);
  static void UnsetSharedPtr(std::string const& recordName, Stack& work, MessageList& errors);
};

template <typename T>
NativeConstPtr RecordPointer(T const& record) {
  if constexpr (std::is_base_of_v<Specializable, T>) {
    // The table describes the most derived record, so the address must be that record's too.
    return NativeConstPtr(dynamic_cast<void const*>(&record), &record.nativeTable());
  } else {
    return NativeConstPtr(&record, &TypeInfo<T>::table());
  }
}

namespace Detail {
template <typename T>
struct IsBoostOptional : std::false_type {};
template <typename T>
struct IsBoostOptional<boost::optional<T>> : std::true_type {};
template <typename T>
struct IsOptionalPtr : std::false_type {};
template <typename T>
struct IsOptionalPtr<OptionalPtr<T>> : std::true_type {};
template <typename T>
struct IsSharedPtr : std::false_type {};
template <typename T>
struct IsSharedPtr<std::shared_ptr<T>> : std::true_type {};
template <typename T>
struct IsList : std::false_type {};
template <typename T>
struct IsList<std::list<T>> : std::true_type {};
template <typename T>
struct IsSet : std::false_type {};
template <typename T>
struct IsSet<std::set<T>> : std::true_type {};
template <typename T>
struct IsMap : std::false_type {};
template <typename T>
struct IsMap<std::map<std::string, T>> : std::true_type {};
template <typename T>
inline constexpr bool kIsOptional = IsBoostOptional<T>::value || IsOptionalPtr<T>::value;
template <typename T>
inline constexpr bool kIsPrimitive =
    std::is_same_v<T, bool> || std::is_same_v<T, long long> || std::is_same_v<T, double> ||
    std::is_same_v<T, std::string> || std::is_same_v<T, Secret> || std::is_same_v<T, DateTime>;
}  // namespace Detail

template <typename T>
constexpr NativeToValueMethod NativeToValueAdapter::MethodOf() {
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
    return &ListBeginMethod<typename T::value_type, T, ListValue::Form::List>;
  } else if constexpr (Detail::IsSet<T>::value) {
    constexpr auto form =
        std::is_base_of_v<Enum, typename T::value_type> ? ListValue::Form::EnumSet : ListValue::Form::Set;
    return &ListBeginMethod<typename T::value_type, T, form>;
  } else if constexpr (Detail::IsMap<T>::value) {
    return &MapBeginMethod<T>;
  } else {
    static_assert(std::is_base_of_v<BaseNative, T>, "no type of the interface definition");
    return &RecordMethod<T>;
  }
}

template <typename T>
void NativeToValueAdapter::SharedPtrMethod(NativeConstPtr const& source, DataValuePtr* const& destination,
                                           Stack& work, MessageList& errors) {
  auto const& pointer = source.as<std::shared_ptr<T>>();
  if (!pointer) {
    UnsetSharedPtr(TypeInfo<std::remove_const_t<T>>::name(), work, errors);
    return;
  }
  work.push_front({RecordPointer(*pointer), nullptr, AdaptMethod<T>::Get(pointer.get()), destination});
}

template <typename E, typename L, ListValue::Form FormOf>
void NativeToValueAdapter::ListBeginMethod(NativeConstPtr const& source, DataValuePtr* const& destination,
                                           Stack& work, MessageList& /*errors*/) {
  auto const& elements = source.as<L>();
  auto const list = ListValue::GetInstance(FormOf);
  *destination = list;
  std::vector<DataValuePtr*> slots;
  slots.reserve(elements.size());
  list->Reserve(elements.size());
  for (std::size_t index = 0; index < elements.size(); ++index) {
    slots.push_back(list->AddSlot());
  }
  auto slot = slots.rbegin();
  for (auto element = elements.rbegin(); element != elements.rend(); ++element, ++slot) {
    work.push_front({NativeConstPtr(&*element), nullptr, MethodOf<E>(), *slot});
  }
}

template <typename M>
void NativeToValueAdapter::MapBeginMethod(NativeConstPtr const& source, DataValuePtr* const& destination,
                                          Stack& work, MessageList& /*errors*/) {
  auto const& map = source.as<M>();
  auto const list = ListValue::GetInstance(ListValue::Form::Map);
  *destination = list;
  std::vector<DataValuePtr*> slots;
  slots.reserve(map.size());
  list->Reserve(map.size());
  for (auto const& [key, value] : map) {
    auto const entry = StructValue::GetInstance("map-entry");
    entry->ReserveFields(2);
    entry->SetField("key", StringValue::GetInstance(key));
    slots.push_back(entry->AddFieldSlot("value"));
    list->Add(entry);
  }
  auto slot = slots.rbegin();
  for (auto item = map.rbegin(); item != map.rend(); ++item, ++slot) {
    work.push_front({NativeConstPtr(&item->second), nullptr, MethodOf<typename M::mapped_type>(), *slot});
  }
}

template <typename T, typename O>
void NativeToValueAdapter::OptionalBeginMethod(NativeConstPtr const& source, DataValuePtr* const& destination,
                                               Stack& work, MessageList& /*errors*/) {
  auto const& native = source.as<O>();
  auto const optional = OptionalValue::GetInstance();
  *destination = optional;
  if (!native) {
    return;
  }
  DataValuePtr* const slot = optional->value(nullptr);
  if constexpr (Detail::IsOptionalPtr<O>::value) {
    work.push_front({RecordPointer(*native), nullptr, AdaptMethod<T>::Get(native.get()), slot});
  } else {
    work.push_front({NativeConstPtr(&*native), nullptr, MethodOf<T>(), slot});
  }
}

template <typename E>
void NativeToValueAdapter::EnumMethod(NativeConstPtr const& source, DataValuePtr* const& destination,
                                      Stack& work, MessageList& errors) {
  EnumText(source.as<E>(), E::descriptor(), destination, work, errors);
}

template <typename T>
void NativeToValueAdapter::RecordMethod(NativeConstPtr const& source, DataValuePtr* const& destination,
                                        Stack& work, MessageList& /*errors*/) {
  T const& record = source.as<T>();
  work.push_front({RecordPointer(record), nullptr, AdaptMethod<T>::Get(&record), destination});
}

}  // namespace Lumo::Data
