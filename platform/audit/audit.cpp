#include "platform/audit/audit.h"

#include <atomic>
#include <mutex>

#include "platform/audit/audit_line.h"
#include "platform/audit/test_only_audit_capture.h"
#include "platform/logging/audit_road.h"

namespace {

std::mutex captureMutex;
std::atomic<Orbane::TestOnlyAuditCapture*> capture{nullptr};

std::vector<std::pair<std::string, std::string>> Copied(OrbAuditItem const* items) {
  std::vector<std::pair<std::string, std::string>> copy;
  for (; items != nullptr && (items->name != nullptr || items->value != nullptr); ++items) {
    copy.emplace_back(items->name, items->value);
  }
  return copy;
}

}  // namespace

void OrbAudit_LogList(char const* eventId, char const* subject, char const* object, bool result,
                      OrbAuditItem const* items) {
  if (capture.load(std::memory_order_acquire) != nullptr) {
    std::lock_guard const lock(captureMutex);
    if (auto* const taker = capture.load(std::memory_order_relaxed)) {
      taker->events_.push_back({eventId, subject, object, result, Copied(items)});
      return;
    }
  }
  Orbane::LogAudit(result, Orbane::AuditLine(eventId, subject, object, result, items));
}

std::string OrbAudit_Text(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  for (char const byte : text) {
    if (byte == '\0') {
      shown += "#000";
    } else {
      shown += byte;
    }
  }
  return shown;
}

namespace Orbane {

TestOnlyAuditCapture::TestOnlyAuditCapture() {
  std::lock_guard const lock(captureMutex);
  outer_ = capture.exchange(this, std::memory_order_acq_rel);
}

TestOnlyAuditCapture::~TestOnlyAuditCapture() {
  std::lock_guard const lock(captureMutex);
  capture.store(outer_, std::memory_order_release);
}

std::vector<AuditEvent> TestOnlyAuditCapture::events() const {
  std::lock_guard const lock(captureMutex);
  return events_;
}

}  // namespace Orbane
