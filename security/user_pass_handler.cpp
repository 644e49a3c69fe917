#include "security/user_pass_handler.h"

#include <pwd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/logging/logging.h"
#include "platform/tickets/tickets.h"
#include "runtime/data/error_factory.h"
#include "security/audit_context.h"
#include "security/pam.h"
#include "security/user_pass_security_context_reader.h"

namespace Host::Settings::SettingsApi::Authn {
namespace {

using AuditMap = std::map<std::string, std::string>;
using AuditContext = Api::AuditContext<AuditMap>;
using Lumo::Core::AsyncActivation;

constexpr char kPasswordEvent[] = "service.password.use";
constexpr char kTicketEvent[] = "service.lcticket.use";
constexpr char kTicketSubject[] = "@unknown";
constexpr char kPasswordReason[] = "Invalid username or password";
constexpr char kTicketReason[] = "Invalid lifecycle ticket";
constexpr std::string_view kTicketService = "Lifecycle";
constexpr char kPamService[] = "keeld";
constexpr std::size_t kTicketServiceBytes = 128;
constexpr std::size_t kShownEnd = 5;  // characters of a unique id that the audit may show

/// What is written of one attempt into the audit map.
struct Attempt {
  char const* event;
  std::string_view subject;
  std::string_view uniqueId;
};

/// A copy of the password whose memory is wiped before it is freed.
class Password {
 public:
  explicit Password(Lumo::Core::UserPassSecurityContextReader const& reader) : text_(reader.password()) {}
  Password(Password const&) = delete;
  Password& operator=(Password const&) = delete;
  ~Password() { explicit_bzero(text_.data(), text_.size()); }
  std::string const& get() const { return text_; }

 private:
  std::string text_;
};

/// The call's audit map; null where calls aren't observed.
std::shared_ptr<AuditMap> AuditMapOf(AsyncActivation const& activation) {
  auto const context = std::dynamic_pointer_cast<AuditContext>(activation.callObserver());
  return context ? context->auditMap() : nullptr;
}

std::string PeerOf(AsyncActivation const& activation) {
  auto const& entries = activation.executionContext()->applicationData();
  auto const peer = entries.find("userBindingInfoKey");
  return peer == entries.end() ? std::string() : peer->second;
}

/// What is shown of a unique id: its end, and nothing of a short one.
std::string Masked(std::string_view uniqueId) {
  if (uniqueId.size() <= kShownEnd) {
    return {};
  }
  return "***" + std::string(uniqueId.substr(uniqueId.size() - kShownEnd));
}

void NoteAttempt(AuditMap* map, std::shared_ptr<AsyncActivation> const& activation, Attempt const& attempt) {
  if (!map) {
    return;
  }
  std::string const prefix = AuditContext::AUTHN_PREFIX;
  std::pair<std::string, std::string> const entries[] = {
      {AuditContext::AUTHN_EVENTID, attempt.event},
      {AuditContext::AUTHN_SUBJECT, std::string(attempt.subject)},
      {prefix + "ip", PeerOf(*activation)},
      {prefix + "opID", Lumo::Core::ActivationHelpers::GetActivationOpId(activation)},
      {prefix + "uniqueID", Masked(attempt.uniqueId)},
  };
  for (auto const& entry : entries) {
    if (!entry.second.empty()) {
      map->insert(entry);
    }
  }
}

/// The operations behind take C strings, which would end at a NUL: such a text is no credential at all.
bool HoldsNul(std::string const& text) {
  return text.find('\0') != std::string::npos;
}

bool CheckPassword(std::string const& user, std::string const& password) {
  bool const usable = !HoldsNul(user) && !HoldsNul(password);
  passwd* const record =
      usable ? Auth_AuthenticateUserPAM(user.c_str(), password.c_str(), kPamService) : nullptr;
  if (record == nullptr) {
    CSLogger::Log(0, "UserPass authentication failed for user: %s", user.c_str());
    return false;
  }
  std::free(record);
  return true;
}

bool UseTicket(std::string const& ticket) {
  char service[kTicketServiceBytes] = {};
  if (HoldsNul(ticket) || !Ticket_LookupServiceSpecific(ticket.c_str(), service, sizeof service, 0, 0)) {
    CSLogger::Log(0, "Ticket authentication failed for ticket: %s", ticket.c_str());
    return false;
  }
  if (service != kTicketService) {
    CSLogger::Log(0, "Ticket's service name invalid, ticket: %s, service: %s", ticket.c_str(), service);
    return false;
  }
  if (!Ticket_Delete(ticket.c_str())) {  // somebody else has used it since
    CSLogger::Log(0, "Ticket authentication failed for ticket: %s", ticket.c_str());
    return false;
  }
  return true;
}

Lumo::Data::DataValuePtr Success(std::string const& user) {
  auto data = Lumo::Data::StructValue::GetInstance("UserPassAuthentication");
  data->SetField("username", Lumo::Data::StringValue::GetInstance(user));
  return data;
}

}  // namespace

void UserPassHandler::Authenticate(std::shared_ptr<AsyncActivation> const& activation,
                                   Lumo::Authn::AuthnCallback const& callback) {
  auto const& context = activation->executionContext();
  if (!context) {
    callback(nullptr);
    return;
  }
  Lumo::Core::UserPassSecurityContextReader const reader(context->securityContext());
  if (!reader.isUserPass()) {
    callback(nullptr);
    return;
  }
  std::shared_ptr<AuditMap> const map = AuditMapOf(*activation);
  std::string const user = reader.userName();
  Password const password(reader);
  bool const isTicket = user == password.get();
  NoteAttempt(map.get(), activation,
              isTicket ? Attempt{kTicketEvent, kTicketSubject, user} : Attempt{kPasswordEvent, user, {}});
  bool const accepted = isTicket ? UseTicket(user) : CheckPassword(user, password.get());
  if (accepted) {
    callback(Success(user));
    return;
  }
  if (map) {
    (*map)[std::string(AuditContext::AUTHN_PREFIX) + "reason"] = isTicket ? kTicketReason : kPasswordReason;
  }
  callback(Lumo::Data::ErrorFactory::GetError<Com::Orbane::Lumo::Std::Errors::Unauthenticated>({}));
}

}  // namespace Host::Settings::SettingsApi::Authn
