#include "security/audit_report.h"

#include <filesystem>

#include "platform/audit/audit.h"
#include "platform/logging/logging.h"

namespace Api {
namespace {

constexpr char kMarkerFile[] = "/var/run/orbane/AuditApiCallEnabled";
constexpr std::int32_t kNotKnown = 0;
constexpr std::int32_t kOn = 1;
constexpr std::int32_t kOff = 2;

std::int32_t state = kNotKnown;

}  // namespace

void FindOutApiCallAudit() {
  if (state != kNotKnown) {
    return;
  }
  std::error_code error;
  auto const status = std::filesystem::status(kMarkerFile, error);
  state = !error && std::filesystem::exists(status) ? kOn : kOff;
}

std::int32_t ApiCallAuditState() {
  return state;
}

void SetTestOnlyApiCallAuditState(std::int32_t newState) {
  state = newState;
}

void OnCallEnd(std::shared_ptr<AuditMap> const& map, bool succeeded) {
  if (map && map->contains(kHeldBackKey)) {
    return;
  }
  ReportFinishedCall(map, succeeded);
}

void ReportFinishedCall(std::shared_ptr<AuditMap> const& map, bool succeeded) {
  if (!map || map->empty()) {
    return;
  }
  map->erase(kHeldBackKey);
  (*map)["result"] = succeeded ? "true" : "false";
  auto const eventId = map->find("eventID");
  VERIFY(eventId != map->end());
  if (state != kOn) {
    return;
  }
  auto const subject = map->find("subject");
  auto const object = map->find("object");
  auto const result = map->find("result");
  VERIFY(subject != map->end());
  VERIFY(object != map->end());
  VERIFY(result != map->end());
  OrbAudit_LogList(OrbAudit_Text(eventId->second).c_str(), OrbAudit_Text(subject->second).c_str(),
                   OrbAudit_Text(object->second).c_str(), result->second == "true", nullptr);
}

}  // namespace Api
