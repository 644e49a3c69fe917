// The audit of a call as a whole, the event "api.call": made at the end of the call, or by the task that took
// it over. Sent only where the marker file "/var/run/orbane/AuditApiCallEnabled" was there at start-up.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace Api {

using AuditMap = std::map<std::string, std::string>;

/// Whoever puts this key into a call's map, with the value "true", before the call is answered, makes the
/// report itself.
inline constexpr char kHeldBackKey[] = "keeld_mute";

/// Looks for the marker file, the first time only. Entry thread, before there is another one.
void FindOutApiCallAudit();
/// 0 not yet known, 1 the marker file was there, 2 it was not.
std::int32_t ApiCallAuditState();
/// Test-only. Stands for what a start of the process found out; 0 for nothing yet.
void SetTestOnlyApiCallAuditState(std::int32_t state);

/// The hook of a call's end: makes the report unless it is held back.
void OnCallEnd(std::shared_ptr<AuditMap> const& map, bool succeeded);

/// The report of a finished call. Nothing for a null pointer or an empty map; a map without "eventID" ends
/// the process. The thread that owns the map.
void ReportFinishedCall(std::shared_ptr<AuditMap> const& map, bool succeeded);

}  // namespace Api
