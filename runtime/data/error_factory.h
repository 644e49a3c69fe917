// API errors from native error records.
#pragma once

#include <boost/optional/optional.hpp>
#include <memory>
#include <string_view>
#include <utility>

#include "runtime/data/native_to_value.h"
#include "runtime/data/value.h"
#include "runtime/message.h"

namespace Lumo::L10n {
class RequestLocalizer;
}

namespace Lumo::Data {

/// Builds errors. They keep ids, default texts and arguments of their messages; localisation happens at the
/// edge.
class ErrorFactory {
 public:
  /// An error of the generated record `E`, as it is by default, with these messages. An empty list makes a
  /// bare error.
  template <typename E>
  static std::shared_ptr<ErrorValue> GetError(MessageList const& messages) {
    E const record;
    return Build(RecordPointer(record), NativeToValueAdapter::AdaptMethod<E>::Get(&record), messages);
  }

  /// A list of LocalizableMessage structures.
  static std::shared_ptr<ListValue const> CastMessages(MessageList const& messages);

 private:
  static std::shared_ptr<ErrorValue> Build(NativeConstPtr const& record, NativeToValueMethod method,
                                           MessageList const& messages);
};

/// A native error record of any type, shared.
class NativeError {
 public:
  template <typename E>
  requires std::is_base_of_v<Specializable, E>
  explicit NativeError(std::shared_ptr<E const> record)
      : pointer_(RecordPointer(*record)),
        method_(NativeToValueAdapter::AdaptMethod<E>::Get(record.get())),
        owner_(std::move(record)) {}
  NativeConstPtr const& pointer() const noexcept { return pointer_; }
  NativeToValueMethod method() const noexcept { return method_; }

 private:
  NativeConstPtr pointer_;
  NativeToValueMethod method_;
  std::shared_ptr<void const> owner_;
};

class NativeErrorHelper {
 public:
  /// The error value itself where there is one, else the native error as a value, else a bare
  /// InternalServerError; the latter also for a native error that can't be adapted, with the adapter's
  /// messages.
  static std::shared_ptr<ErrorValue const> GetError(std::shared_ptr<ErrorValue const> const& value,
                                                    boost::optional<NativeError> const& native,
                                                    L10n::RequestLocalizer const& localizer);
};

/// A standard error of the runtime itself, for code below the generated bindings. `name` is the record's name
/// in snake case, as "internal_server_error"; the value equals that of GetError for the record of that name.
std::shared_ptr<ErrorValue> MakeStandardError(std::string_view name, MessageList const& messages);

}  // namespace Lumo::Data
