#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "security/call_info.h"

namespace Api {

/// Collects in a map what is to be audited of one call, and sends the audit events of its end: the attempt to
/// authenticate and the denied access at once, the call as a whole through a hook.
///
/// Handlers, filters, services and tasks put their entries into `auditMap`, which may outlive the call. It
/// has no lock: the I/O thread's until the call has ended, then that of the task that took it over. A service
/// therefore answers its call before it hands such a task to another thread.
template <typename Map>
class AuditContext final : public CallInfo {
 public:
  /// Given the map and whether the call succeeded.
  using CallEndHook = std::function<void(std::shared_ptr<Map> const&, bool)>;

  // Keys of the authentication attempt. Without an event id there is no such event; subject and object
  // default to those of the call; an entry whose key is the prefix and a name becomes the event's item of
  // that name.
  static constexpr char AUTHN_EVENTID[] = "AUTHN_EVENT_KEY";
  static constexpr char AUTHN_SUBJECT[] = "AUTHN_SUBJECT_KEY";
  static constexpr char AUTHN_OBJECT[] = "AUTHN_OBJECT_KEY";
  static constexpr char AUTHN_PREFIX[] = "AUTHN_PARAM_PREFIX";
  // Keys of the denied access, whose event id defaults to "service.access.denied".
  static constexpr char AUTHZ_EVENTID[] = "AUTHZ_EVENT_KEY";
  static constexpr char AUTHZ_SUBJECT[] = "AUTHZ_SUBJECT_KEY";
  static constexpr char AUTHZ_OBJECT[] = "AUTHZ_OBJECT_KEY";
  static constexpr char AUTHZ_PREFIX[] = "AUTHZ_PARAM_PREFIX";

  /// Without a hook nothing is audited.
  explicit AuditContext(CallEndHook hook);

  /// Makes the entries "eventID", "subject" and "object", once; entries that are there stay. Throws
  /// std::bad_optional_access when scope or target is not known, the first two entries then made.
  bool PrepareAudit() override;

  std::shared_ptr<Map> const& auditMap() const { return auditMap_; }

 private:
  void Complete();
  void SendAuthenticationAndAccess() const;
  /// The value under `key`, else `otherwise`.
  std::string const& Entry(char const* key, std::string const& otherwise) const;
  /// One event with the entries whose keys begin with `prefix` as items.
  void Send(std::string const& eventId, std::string const& subject, std::string const& object,
            std::string_view prefix, bool result) const;

  CallEndHook hook_;
  std::shared_ptr<Map> auditMap_ = std::make_shared<Map>();
  bool prepared_ = false;
};

extern template class AuditContext<std::map<std::string, std::string>>;

}  // namespace Api
