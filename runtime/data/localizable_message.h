// The structure that carries a message in API data.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/data/value.h"
#include "runtime/message.h"

namespace Lumo::Data {

inline constexpr std::string_view kLocalizableMessageName = "com.orbane.lumo.std.localizable_message";

/// `message` as a structure of that name with the fields id, default_message, args and localized, which is
/// unset: it is filled at the edge.
std::shared_ptr<StructValue> MakeLocalizableMessage(BaseMessage const& message);

/// The field args of such a structure: empty when there is none, with an empty text for each argument that is
/// no text.
std::list<std::string> MessageArguments(CompoundValue const& message);

}  // namespace Lumo::Data
