#pragma once

#include <memory>
#include <string>

#include "runtime/core/method.h"

namespace Host::Settings::SettingsApi::Filter {

/// Outermost filter: logs how each call ended, after the answer was handed on, and keeps the caller's
/// operation id in the log context of the I/O thread until then.
class LogFilter final : public Lumo::Core::AsyncApiProvider, public std::enable_shared_from_this<LogFilter> {
 public:
  explicit LogFilter(std::shared_ptr<Lumo::Core::AsyncApiProvider> next) : next_(std::move(next)) {}

  std::string ToString() const override { return "LogFilter"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
              Lumo::Data::DataValuePtr const& input,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
              Lumo::Core::AsyncApiResultCb const& callback) override;

 private:
  std::shared_ptr<Lumo::Core::AsyncApiProvider> next_;
};

}  // namespace Host::Settings::SettingsApi::Filter
