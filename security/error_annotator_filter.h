#pragma once

#include <memory>
#include <string>

#include "runtime/core/method.h"

namespace Host::Settings::SettingsApi::Filter {

/// Stands next to the local provider and stamps every error that comes out of it with the daemon's originator
/// id, in the field "__originator__"; an error that has the field keeps it. While no originator id can be
/// found, an error is passed on without the field, and then the exception of the search leaves the callback.
class ErrorAnnotatorFilter final : public Lumo::Core::AsyncApiProvider,
                                   public std::enable_shared_from_this<ErrorAnnotatorFilter> {
 public:
  explicit ErrorAnnotatorFilter(std::shared_ptr<Lumo::Core::AsyncApiProvider> next)
      : next_(std::move(next)) {}

  std::string ToString() const override { return "ErrorAnnotatorFilter"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
              Lumo::Data::DataValuePtr const& input,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
              Lumo::Core::AsyncApiResultCb const& callback) override;

 private:
  std::shared_ptr<Lumo::Core::AsyncApiProvider> next_;
};

}  // namespace Host::Settings::SettingsApi::Filter
