#pragma once

#include <memory>
#include <string>

#include "runtime/core/method.h"
#include "runtime/l10n/localizer.h"

namespace Lumo::Provider {

/// The edge of a provider chain: gives the messages of results their text in the caller's language. Calls of
/// those who read the default texts pass untouched.
class LocalizingProvider final : public Core::AsyncApiProvider {
 public:
  LocalizingProvider(std::shared_ptr<L10n::Localizer const> localizer,
                     std::shared_ptr<Core::AsyncApiProvider> next)
      : localizer_(std::move(localizer)), next_(std::move(next)) {}

  std::string ToString() const override { return "LocalizingProvider"; }
  void Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method, Data::DataValuePtr const& input,
              std::shared_ptr<Core::AsyncActivation> const& activation,
              Core::AsyncApiResultCb const& callback) override;

 private:
  std::shared_ptr<L10n::Localizer const> localizer_;
  std::shared_ptr<Core::AsyncApiProvider> next_;
};

}  // namespace Lumo::Provider
