#include "runtime/provider/localizing_provider.h"

#include "runtime/core/activation.h"
#include "runtime/l10n/message_localization.h"

namespace Lumo::Provider {
namespace {

using ResultPtr = std::shared_ptr<Core::MethodResult const>;

ResultPtr Localized(ResultPtr const& result, L10n::RequestLocalizer const& localizer) {
  if (!result) {
    return result;
  }
  Data::DataValuePtr const output = L10n::LocalizeMessages(result->output(), localizer);
  Data::DataValuePtr const error = L10n::LocalizeMessages(result->error(), localizer);
  if (output == result->output() && error == result->error()) {
    return result;
  }
  return std::make_shared<Core::MethodResult const>(output, Data::As<Data::ErrorValue>(error),
                                                    result->final());
}

}  // namespace

void LocalizingProvider::Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method,
                                Data::DataValuePtr const& input,
                                std::shared_ptr<Core::AsyncActivation> const& activation,
                                Core::AsyncApiResultCb const& callback) {
  auto const& locale = activation->localeSpec();
  if (!locale || !L10n::WantsLocalization(*locale)) {
    next_->Invoke(method, input, activation, callback);
    return;
  }
  next_->Invoke(method, input, activation,
                Core::AsyncApiResultCb([callback, localizer = L10n::RequestLocalizer(localizer_, locale)](
                                           ResultPtr const& result, Progress const& progress,
                                           Core::AsyncApiResultCb::Continuation&& more) {
                  callback(Localized(result, localizer), progress, std::move(more));
                }));
}

}  // namespace Lumo::Provider
