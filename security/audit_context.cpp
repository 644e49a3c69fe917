#include "security/audit_context.h"

#include <utility>
#include <vector>

#include "platform/audit/audit.h"

namespace Api {
namespace {

constexpr std::uint32_t kOutsideCall = 1;
constexpr std::uint32_t kSuccess = 0;
constexpr std::uint32_t kAuthenticationFailed = 2;
constexpr std::uint32_t kAccessDenied = 3;

std::string const kNothing;
std::string const kAccessDeniedEvent = "service.access.denied";

void ReportProblem(std::string const& eventId, std::string const& subject, std::string const& object) {
  std::string const reason =
      OrbAudit_Text("One or more mandatory string arguments to function are empty. eventId:" + eventId +
                    ";subject:" + subject + ";object:" + object);
  OrbAuditItem const items[] = {
      {"reason", reason.c_str()}, {"location", "Service audit"}, {nullptr, nullptr}};
  OrbAudit_LogList("product.issue", "", "ryn", false, items);
}

}  // namespace

template <typename Map>
AuditContext<Map>::AuditContext(CallEndHook hook)
    : CallInfo([this](CallInfo const* /*self*/) { Complete(); }), hook_(std::move(hook)) {}

template <typename Map>
bool AuditContext<Map>::PrepareAudit() {
  if (prepared_) {
    return true;
  }
  auditMap_->emplace("eventID", "api.call");
  auditMap_->emplace("subject", callUser().value_or(kNothing));
  std::string const& scope = callScope().value();
  std::string const& target = callTarget().value();
  std::string object;
  object.reserve(scope.size() + 1 + target.size());
  object.append(scope).append(1, ':').append(target);
  auditMap_->emplace("object", std::move(object));
  prepared_ = true;
  return true;
}

template <typename Map>
void AuditContext<Map>::Complete() {
  if (!hook_) {
    return;
  }
  PrepareAudit();
  SendAuthenticationAndAccess();
  hook_(auditMap_, callStatus() == kSuccess);
}

template <typename Map>
void AuditContext<Map>::SendAuthenticationAndAccess() const {
  if (callKind() != kOutsideCall) {
    return;
  }
  std::string const& subject = callUser() ? *callUser() : kNothing;
  std::string const& object = callTarget().value();
  if (auto const event = auditMap_->find(AUTHN_EVENTID); event != auditMap_->end()) {
    Send(event->second, Entry(AUTHN_SUBJECT, subject), Entry(AUTHN_OBJECT, object), AUTHN_PREFIX,
         callStatus() != kAuthenticationFailed);
  }
  if (callStatus() == kAccessDenied) {
    Send(Entry(AUTHZ_EVENTID, kAccessDeniedEvent), Entry(AUTHZ_SUBJECT, subject), Entry(AUTHZ_OBJECT, object),
         AUTHZ_PREFIX, false);
  }
}

template <typename Map>
std::string const& AuditContext<Map>::Entry(char const* key, std::string const& otherwise) const {
  auto const entry = auditMap_->find(key);
  return entry == auditMap_->end() ? otherwise : entry->second;
}

template <typename Map>
void AuditContext<Map>::Send(std::string const& eventId, std::string const& subject,
                             std::string const& object, std::string_view prefix, bool result) const {
  if (eventId.empty() || object.empty()) {
    ReportProblem(eventId, subject, object);
    return;
  }
  std::vector<std::pair<std::string, std::string>> texts;
  if (!prefix.empty()) {
    for (auto const& [key, value] : *auditMap_) {
      if (key.starts_with(prefix)) {
        texts.emplace_back(OrbAudit_Text(std::string_view(key).substr(prefix.size())), OrbAudit_Text(value));
      }
    }
  }
  std::vector<OrbAuditItem> items;
  items.reserve(texts.size() + 1);
  for (auto const& [name, value] : texts) {
    items.push_back({name.c_str(), value.c_str()});
  }
  items.push_back({nullptr, nullptr});
  OrbAudit_LogList(OrbAudit_Text(eventId).c_str(), OrbAudit_Text(subject).c_str(),
                   OrbAudit_Text(object).c_str(), result, items.data());
}

template class AuditContext<std::map<std::string, std::string>>;

}  // namespace Api
