#include "runtime/core/activation.h"

#include <charconv>

#include "runtime/core/recycled.h"
#include "runtime/l10n/localizer.h"

namespace Lumo::Core {
namespace {

constexpr char kPeerAddressKey[] = "userBindingInfoKey";
constexpr char kPeerPortKey[] = "peerPort";

}  // namespace

std::shared_ptr<AsyncActivation> AsyncActivation::GetInstance(std::shared_ptr<ExecutionContext> context) {
  struct Made final : AsyncActivation {
    explicit Made(std::shared_ptr<ExecutionContext> from) : AsyncActivation(std::move(from)) {}
  };
  auto activation = MakeRecycled<Made>(std::move(context));
  if (activation->context_) {
    auto const& application = activation->context_->applicationData();
    if (auto const opId = application.find("opId"); opId != application.end()) {
      activation->request_.insert(*opId);
    }
  }
  return activation;
}

L10n::RequestLocalizer AsyncActivation::requestLocalizer() const {
  static std::shared_ptr<L10n::Localizer const> const kDefault =
      L10n::LocalizerHelpers::GetDefaultLocalizer();
  return {localizer_ ? localizer_ : kDefault,
          localeSpec_ ? localeSpec_ : L10n::LocaleSpecHelpers::GetFixedLocaleSpec()};
}

namespace ActivationHelpers {

std::string ExtractUsername(std::shared_ptr<AsyncActivation> const& activation) {
  auto const* const data = Data::As<Data::CompoundValue>(activation->authData().get());
  auto const* const name = data ? Data::As<Data::StringValue>(data->Find("username")) : nullptr;
  return name ? std::string(name->value()) : std::string();
}

std::string GetActivationOpId(std::shared_ptr<AsyncActivation> const& activation) {
  auto const& entries = activation->requestContext();
  auto const opId = entries.find("opId");
  return opId == entries.end() ? std::string() : opId->second;
}

void SetPeerTcpBindingInfo(std::shared_ptr<ExecutionContext> const& context,
                           std::pair<std::string, unsigned> const& peer) {
  auto& entries = context->applicationData();
  entries[kPeerAddressKey] = peer.first;
  entries[kPeerPortKey] = std::to_string(peer.second);
}

std::optional<std::pair<std::string, std::uint32_t>> GetPeerTcpBindingInfo(
    std::shared_ptr<ExecutionContext> const& context) {
  if (!context) {
    return std::nullopt;
  }
  auto const& entries = context->applicationData();
  auto const address = entries.find(kPeerAddressKey);
  auto const port = entries.find(kPeerPortKey);
  if (address == entries.end() || port == entries.end()) {
    return std::nullopt;
  }
  std::uint32_t number = 0;
  std::from_chars(port->second.data(), port->second.data() + port->second.size(), number);
  return std::pair(address->second, number);
}

}  // namespace ActivationHelpers
}  // namespace Lumo::Core

namespace Lumo::RequestIdHelper {

void Set(std::map<std::string, std::string>& requestContext, std::string const& requestId) {
  requestContext["requestId"] = requestId;
}

}  // namespace Lumo::RequestIdHelper
