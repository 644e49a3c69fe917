// Texts of the runtime's own messages.
#include <algorithm>
#include <iterator>

#include "runtime/message.h"

namespace Lumo {
namespace {

struct CoreMessage {
  std::string id;
  std::string text;
};

}  // namespace

std::string const& Message<CoreTag>::DefaultMessageForId(std::string const& id) {
  // In order of the ids.
  static CoreMessage const kMessages[] = {
      {"lumo.authz.metadata.duplicate", "The entry '{1}' is there a second time."},
      {"lumo.authz.metadata.empty", "The file is no JSON object with members."},
      {"lumo.authz.metadata.malformed", "The file is damaged: {1}"},
      {"lumo.authz.metadata.misplaced", "The entry '{1}' is not what authorisation metadata has there."},
      {"lumo.authz.metadata.unreadable", "The file cannot be read."},
      {"lumo.data.bad.cast", "The field '{1}' is of the type {2}, where {3} is wanted."},
      {"lumo.data.bad.cast2", "A value of kind {1} cannot be read as {2}."},
      {"lumo.data.duplicate.key", "The key '{1}' stands twice."},
      {"lumo.data.field.missing", "The field '{1}' is missing."},
      {"lumo.data.field.unreadable", "The field '{1}' cannot be read."},
      {"lumo.data.invalid.type", "The value is of a type that does not fit here."},
      {"lumo.data.unknown.field", "The field '{1}' is not known."},
      {"lumo.data.unset.field", "A value of the type {1} is not set."},
      {"lumo.data.unset.non.optional.field", "A required value of the type {1} is not set."},
      {"lumo.invalid.content.type", "The content type '{1}' is not supported; send application/json."},
      {"lumo.invalid.request", "The request is not valid."},
      {"lumo.json.annotation.error", "Cannot read JSON at offset {1}: {2}."},
      {"lumo.json.invalid.params", "The member 'params' is not a structure."},
      {"lumo.json.invalid.request", "The request is not valid: {1}."},
      {"lumo.json.parse.error", "Cannot read JSON at offset {1}: {2}."},
      {"lumo.json.request.refused", "{1}"},
      {"lumo.json.write.error", "Cannot write JSON: {1}."},
      {"lumo.metadata.component.duplicate", "The file '{1}' brings the component '{2}' a second time."},
      {"lumo.metadata.component.missing", "The file '{1}' has no component '{2}'."},
      {"lumo.metadata.file.malformed", "The file '{1}' is damaged: {2}"},
      {"lumo.metadata.file.unreadable", "The file '{1}' cannot be read: {2}"},
      {"lumo.provider.interface.duplicate", "The service '{1}' is already registered."},
      {"lumo.provider.operation.not.found", "The service '{1}' has no operation '{2}'."},
      {"lumo.provider.service.not.found", "There is no service '{1}'."},
      {"lumo.recv.failed", "Receiving failed: {1}"},
      {"lumo.request.exceeds.max.size", "The request is larger than the server takes."},
      {"lumo.send.failed", "Sending failed: {1}"},
  };
  auto const* const found = std::lower_bound(
      std::begin(kMessages), std::end(kMessages), id,
      [](CoreMessage const& message, std::string const& wanted) { return message.id < wanted; });
  return found != std::end(kMessages) && found->id == id ? found->text : id;
}

}  // namespace Lumo
