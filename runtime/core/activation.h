// What belongs to one call besides its input: where it came from, who calls, in which locale.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "runtime/core/method.h"
#include "runtime/data/value.h"

namespace Api {
class CallObserver;
}

namespace Lumo::L10n {
class Localizer;
class RequestLocalizer;
struct LocaleSpec;
}  // namespace Lumo::L10n

namespace Lumo::Core {

/// Credentials of a call. `schemeId` is "com.orbane.lumo.std.security.user_pass" (entries "userName" and
/// "password") or "com.orbane.lumo.std.security.bearer_token" (entry "token"). Empty scheme: none. Never
/// logged.
struct SecurityContext {
  std::string schemeId;
  std::map<std::string, std::string> entries;
};

/// The caller's context, filled from the request. Application entries are keyed by header name: "opId" for
/// lumo-ctx-opid, "accept-language", "lumo-ctx-format-locale", "lumo-ctx-timezone".
class ExecutionContext {
 public:
  std::map<std::string, std::string>& applicationData() { return application_; }
  std::map<std::string, std::string> const& applicationData() const { return application_; }
  SecurityContext& securityContext() { return security_; }
  SecurityContext const& securityContext() const { return security_; }

 private:
  std::map<std::string, std::string> application_;
  SecurityContext security_;
};

/// One call's own object. I/O thread, but for reads by a service that finishes elsewhere.
class AsyncActivation {
 public:
  static std::shared_ptr<AsyncActivation> GetInstance(std::shared_ptr<ExecutionContext> context);

  std::shared_ptr<ExecutionContext> const& executionContext() const { return context_; }

  /// Entries: see RequestIdHelper; "opId" is copied from the execution context at creation.
  std::map<std::string, std::string>& requestContext() { return request_; }
  std::map<std::string, std::string> const& requestContext() const { return request_; }

  void authData(Data::DataValuePtr const& value) { authData_ = value; }
  Data::DataValuePtr const& authData() const { return authData_; }

  void localeSpec(std::shared_ptr<L10n::LocaleSpec const> spec) { localeSpec_ = std::move(spec); }
  /// Null where none was set.
  std::shared_ptr<L10n::LocaleSpec const> const& localeSpec() const { return localeSpec_; }
  void localizer(std::shared_ptr<L10n::Localizer const> localizer) { localizer_ = std::move(localizer); }
  /// Null where none was set.
  std::shared_ptr<L10n::Localizer const> const& localizer() const { return localizer_; }
  /// Localizer and locale of this call; the defaults of the program where none was set.
  L10n::RequestLocalizer requestLocalizer() const;

  void callObserver(std::shared_ptr<Api::CallObserver> observer) { observer_ = std::move(observer); }
  /// Null where nobody watches the call.
  std::shared_ptr<Api::CallObserver> const& callObserver() const { return observer_; }

 private:
  explicit AsyncActivation(std::shared_ptr<ExecutionContext> context) : context_(std::move(context)) {}

  std::shared_ptr<ExecutionContext> context_;
  std::map<std::string, std::string> request_;
  std::shared_ptr<L10n::LocaleSpec const> localeSpec_;
  std::shared_ptr<L10n::Localizer const> localizer_;
  Data::DataValuePtr authData_;
  std::shared_ptr<Api::CallObserver> observer_;
};

namespace ActivationHelpers {
/// The "username" of the authentication data; empty for an anonymous call.
std::string ExtractUsername(std::shared_ptr<AsyncActivation> const& activation);
/// The caller's lumo-ctx-opid; empty when none was sent.
std::string GetActivationOpId(std::shared_ptr<AsyncActivation> const& activation);
/// Stores the peer as the application entries "userBindingInfoKey", the address, and "peerPort".
void SetPeerTcpBindingInfo(std::shared_ptr<ExecutionContext> const& context,
                           std::pair<std::string, unsigned> const& peer);
/// What SetPeerTcpBindingInfo stored; nothing when the peer is not known.
std::optional<std::pair<std::string, std::uint32_t>> GetPeerTcpBindingInfo(
    std::shared_ptr<ExecutionContext> const& context);
}  // namespace ActivationHelpers

}  // namespace Lumo::Core

namespace Lumo::RequestIdHelper {
/// Stores the encoded request id (see runtime/json/request_id.h) under "requestId".
void Set(std::map<std::string, std::string>& requestContext, std::string const& requestId);
}  // namespace Lumo::RequestIdHelper
