#pragma once

#include <list>
#include <string>

#include "runtime/data/value.h"

namespace Lumo::Authz {

/// Tells whether a caller has what an operation asks for.
class EntitlementChecker {
 public:
  /// `authentication` is the call's authentication data, not null; `privileges` those of the operation. I/O
  /// thread only.
  virtual bool IsEntitled(Data::DataValue const& authentication,
                          std::list<std::string> const& privileges) = 0;
  virtual ~EntitlementChecker() = default;
};

}  // namespace Lumo::Authz
