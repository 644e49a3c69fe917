#pragma once

#include <istream>
#include <memory>

#include "runtime/log/logger.h"
#include "runtime/message.h"
#include "security/authz_info.h"

namespace Lumo::Authz::Metadata {

class LoadAuthzInfoMetadata {
 public:
  /// Merges one metadata file into `info`. The file is a JSON object of members of two kinds:
  ///
  ///   "operations": {"<operation>": ["<privilege>", …], …}
  ///   "<component>": {"packages": {"<package>": {"services": {"<service>": {"operations":
  ///                    {"<operation's short name>": ["<security scheme>", …], …}}, …}}, …}}
  ///
  /// False when it cannot be read, is anything else, has an empty list, or tells of a package, a service or
  /// an operation that `info` knows already: then `info` is as before, and the reason is logged and appended
  /// to `messages`.
  static bool Load(std::istream& stream, AuthzInfo& info, std::shared_ptr<Log::Logger> const& logger,
                   MessageList& messages);
};

}  // namespace Lumo::Authz::Metadata
