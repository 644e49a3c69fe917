// What passes from a request's headers into the context of its call.
#pragma once

#include <memory>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"
#include "transport/header.h"

namespace Lumo::Provider::JsonRpc1_1 {

/// An application's own addition to what Update takes from the headers.
class ContextUpdate {
 public:
  virtual void Update(Transport::Http::HeaderRange& headers, Core::ExecutionContext& context) const = 0;
  virtual ~ContextUpdate() = default;
};

class UpdateExecutionCtxHelper {
 public:
  /// Folds the headers, walked from the range's start, into the context:
  ///   authorization "Basic <base64 of user:password>"  security context user_pass; the first colon splits
  ///   authorization "Bearer <token>"                    security context bearer_token
  ///   lumo-ctx-opid                                     application entry "opId"
  ///   accept-language, lumo-ctx-format-locale, lumo-ctx-timezone   application entries of the same names
  /// Credentials that are malformed, hold control characters, or come in more than one authorization header
  /// give no security context. `update` may be null. False when lumo-service or lumo-operation (the
  /// operation's own short name) differs from the method that the payload names; the context is of no use
  /// then.
  static bool Update(Transport::Http::HeaderRange& headers, Core::MethodIdentifier const& method,
                     Core::ExecutionContext& context, std::shared_ptr<ContextUpdate const> const& update);
};

}  // namespace Lumo::Provider::JsonRpc1_1
