#include "security/host_input_filter.h"

#include <optional>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "platform/logging/logging.h"
#include "runtime/data/error_factory.h"
#include "support/translator.h"

namespace Host::Settings::SettingsApi::Filter {
namespace {

constexpr char kHostField[] = "host";
constexpr char kLocalHost[] = "localhost";
constexpr char kInvalidHostId[] = "com.orbane.ryn.host.invalid";

/// The host that a call names: a text as it is, a value of another type in its printed form. Nothing when the
/// field is missing, null or an unset optional.
std::optional<std::string> NamedHost(Lumo::Data::DataValue const* input) {
  auto const* const fields = Lumo::Data::As<Lumo::Data::CompoundValue>(input);
  Lumo::Data::DataValue const* host = fields ? fields->Find(kHostField) : nullptr;
  while (auto const* const optional = Lumo::Data::As<Lumo::Data::OptionalValue>(host)) {
    host = optional->Inner();
  }
  if (!host || host->GetKind() == Lumo::Data::Kind::Void) {
    return std::nullopt;
  }
  auto const* const text = Lumo::Data::As<Lumo::Data::StringValue>(host);
  return text ? std::string(text->value()) : host->ToString();
}

}  // namespace

void GenerateNotFound::operator()() const {
  Lumo::BaseMessage const message = Lumo::MakeMessage(
      kInvalidHostId, LifeCycle::GetDefaultMessage(kInvalidHostId), host_, std::string(kLocalHost));
  auto const error = Lumo::Data::ErrorFactory::GetError<Com::Orbane::Lumo::Std::Errors::NotFound>({message});
  callback_(Lumo::Core::MethodResult::GetErrorInstance(error), Lumo::Progress(), {});
}

void HostInputFilter::Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
                             Lumo::Data::DataValuePtr const& input,
                             std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
                             Lumo::Core::AsyncApiResultCb const& callback) {
  if (!checkedServices_.contains(method->service())) {
    next_->Invoke(method, input, activation, callback);
    return;
  }
  CSLogger::Log(2, "Checking the host parameter value for method:%s and service:%s",
                method->ToString().c_str(), method->service().c_str());
  std::optional<std::string> host = NamedHost(input.get());
  if (!host || *host == kLocalHost) {
    next_->Invoke(method, input, activation, callback);
    return;
  }
  CSLogger::Log(0, "Host parameter value is:%s. It should be:%s", host->c_str(), kLocalHost);
  post_(GenerateNotFound(callback, std::move(*host)));
}

}  // namespace Host::Settings::SettingsApi::Filter
