#include "security/call_registrar.h"

#include <cstring>
#include <exception>
#include <optional>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/logging/logging.h"
#include "runtime/core/activation.h"
#include "runtime/core/recycled.h"
#include "security/audit_context.h"
#include "security/user_pass_security_context_reader.h"

namespace Lumo::Observer {
namespace {

constexpr std::uint32_t kOutsideCall = 1;
constexpr std::uint32_t kSuccess = 0;
constexpr std::uint32_t kFailure = 1;
constexpr std::uint32_t kAuthenticationFailed = 2;
constexpr std::uint32_t kAccessDenied = 3;

/// Stands for a caller that shows a ticket, which is the user name and the password at once.
constexpr char kUnknownUser[] = "@unknown";

std::uint32_t StatusOf(Data::ErrorValue const* error) {
  namespace Errors = Com::Orbane::Lumo::Std::Errors;
  static std::string const unauthenticated = Data::TypeInfo<Errors::Unauthenticated>::name();
  static std::string const unauthorized = Data::TypeInfo<Errors::Unauthorized>::name();
  if (!error) {
    return kSuccess;
  }
  if (error->name() == unauthenticated) {
    return kAuthenticationFailed;
  }
  return error->name() == unauthorized ? kAccessDenied : kFailure;
}

/// Empty without a user-name-and-password context.
std::string ClaimedUser(Core::AsyncActivation const& activation) {
  if (!activation.executionContext()) {
    return {};
  }
  Core::UserPassSecurityContextReader const reader(activation.executionContext()->securityContext());
  std::string user = reader.userName();
  std::string password = reader.password();
  bool const isTicket = reader.isUserPass() && user == password;
  explicit_bzero(password.data(), password.size());
  return isTicket ? kUnknownUser : user;
}

void Feed(Api::CallObserver& observer, Core::MethodIdentifier const& method,
          Core::AsyncActivation const& activation) {
  observer.SetCallKind(kOutsideCall);
  std::string text = method.ToString();
  observer.SetCallTarget(text);
  text = "keeld";
  observer.SetCallScope(text);
  text = ClaimedUser(activation);
  observer.SetCallUser(text);
  if (auto peer = Core::ActivationHelpers::GetPeerTcpBindingInfo(activation.executionContext())) {
    observer.SetPeer(*peer);
  }
}

/// Tells the observer once how the call ended, at the latest when nobody holds the call any more.
class CallEnd {
 public:
  explicit CallEnd(std::shared_ptr<Api::CallObserver> observer) : observer_(std::move(observer)) {}
  /// What is moved from has nothing to tell.
  CallEnd(CallEnd&&) = default;
  CallEnd& operator=(CallEnd&&) = delete;
  ~CallEnd() { Tell(answered_ ? kSuccess : kFailure); }

  /// One result of the call. A null one says nothing of how it ended.
  void See(Core::MethodResult const* result, bool continues) {
    if (!result) {
      return;
    }
    answered_ = true;
    if (result->error() || result->final() || !continues) {
      Tell(StatusOf(result->error().get()));
    }
  }

 private:
  /// An observer that fails keeps nobody from the answer.
  void Tell(std::uint32_t status) {
    auto const observer = std::exchange(observer_, nullptr);
    if (!observer) {
      return;
    }
    try {
      observer->SetCallStatus(status);
    } catch (std::exception const& error) {
      CSLogger::Log(0, "Cannot audit the end of a call: %s", error.what());
    }
  }

  std::shared_ptr<Api::CallObserver> observer_;  // null once it was told
  bool answered_ = false;
};

/// `callback` with the end of the call seen on the way to it.
Core::AsyncApiResultCb Watched(CallEnd callEnd, Core::AsyncApiResultCb callback) {
  return Core::AsyncApiResultCb([end = std::move(callEnd), callback = std::move(callback)](
                                    std::shared_ptr<Core::MethodResult const> const& result,
                                    Lumo::Progress const& progress,
                                    Core::AsyncApiResultCb::Continuation&& next) mutable {
    end.See(result.get(), static_cast<bool>(next));
    if (!next) {
      callback(result, progress, {});
      return;
    }
    // From here on the end is the business of whoever takes the next result.
    auto const rest = std::make_shared<CallEnd>(std::move(end));
    callback(
        result, progress,
        [rest, next = std::move(next)](std::shared_ptr<Core::AsyncApiResultCb> const& more) {
          next(more ? std::make_shared<Core::AsyncApiResultCb>(Watched(std::move(*rest), *more)) : nullptr);
        });
  });
}

}  // namespace

namespace Detail {

void CallRegistrarBase::Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method,
                               Data::DataValuePtr const& input,
                               std::shared_ptr<Core::AsyncActivation> const& activation,
                               Core::AsyncApiResultCb const& callback) {
  std::shared_ptr<Api::CallObserver> const observer = MakeObserver();
  activation->callObserver(observer);
  Feed(*observer, *method, *activation);
  observer->PrepareAudit();
  next_->Invoke(method, input, activation, Watched(CallEnd(observer), callback));
}

}  // namespace Detail

template <typename Map>
std::shared_ptr<Api::CallObserver> CallRegistrar<Map>::MakeObserver() const {
  return Core::MakeRecycled<Api::AuditContext<Map>>(hook_);
}

template class CallRegistrar<std::map<std::string, std::string>>;

}  // namespace Lumo::Observer
