#include "security/log_filter.h"

#include "platform/logging/logging.h"
#include "runtime/core/activation.h"

namespace Host::Settings::SettingsApi::Filter {
namespace {

constexpr char kOpIdKey[] = "opId";

void LogOutcome(Lumo::Core::MethodResult const* result) {
  if (!result) {
    CSLogger::LogText(2, "Method finished");
  } else if (!result->output() || result->error()) {
    CSLogger::LogText(0, "Method failed");
  } else {
    CSLogger::LogText(2, "Method succeeded");
  }
}

}  // namespace

void LogFilter::Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
                       Lumo::Data::DataValuePtr const& input,
                       std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                       Lumo::Core::AsyncApiResultCb const& callback) {
  std::string opId = Lumo::Core::ActivationHelpers::GetActivationOpId(activation);
  if (!opId.empty()) {
    CSLogger::CurrentContext.insert_or_assign(kOpIdKey, std::move(opId));
  }
  next_->Invoke(
      method, input, activation,
      Lumo::Core::AsyncApiResultCb([callback](std::shared_ptr<Lumo::Core::MethodResult const> const& result,
                                              Lumo::Progress const& progress,
                                              Lumo::Core::AsyncApiResultCb::Continuation&& more) {
        callback(result, progress, std::move(more));
        LogOutcome(result.get());
        CSLogger::CurrentContext.erase(kOpIdKey);
      }));
}

}  // namespace Host::Settings::SettingsApi::Filter
