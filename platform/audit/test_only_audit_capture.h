// Test-only: catches audit events.
#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "platform/audit/audit.h"

namespace Orbane {

struct AuditEvent {
  std::string event;
  std::string subject;
  std::string object;
  bool result;
  std::vector<std::pair<std::string, std::string>> items;
  bool operator==(AuditEvent const&) const = default;
  friend std::ostream& operator<<(std::ostream& out, AuditEvent const& shown) {
    out << shown.event << " \"" << shown.subject << "\" \"" << shown.object << "\" " << shown.result;
    for (auto const& [name, value] : shown.items) {
      out << ' ' << name << "=\"" << value << '"';
    }
    return out;
  }
};

/// While it lives, audit events of all threads are kept here and don't reach the system log. The innermost
/// one catches.
class TestOnlyAuditCapture final {
 public:
  TestOnlyAuditCapture();
  ~TestOnlyAuditCapture();
  TestOnlyAuditCapture(TestOnlyAuditCapture const&) = delete;
  TestOnlyAuditCapture& operator=(TestOnlyAuditCapture const&) = delete;

  std::vector<AuditEvent> events() const;

 private:
  friend void ::OrbAudit_LogList(char const* eventId, char const* subject, char const* object, bool result,
                                 OrbAuditItem const* items);
  std::vector<AuditEvent> events_;
  TestOnlyAuditCapture* outer_;
};

}  // namespace Orbane
