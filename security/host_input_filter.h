#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "runtime/core/method.h"

namespace Host::Settings::SettingsApi::Filter {

/// The refusal of a call for another host: a NotFound with the message "com.orbane.ryn.host.invalid",
/// delivered when run.
class GenerateNotFound {
 public:
  GenerateNotFound(Lumo::Core::AsyncApiResultCb callback, std::string host)
      : callback_(std::move(callback)), host_(std::move(host)) {}
  void operator()() const;

 private:
  Lumo::Core::AsyncApiResultCb callback_;
  std::string host_;
};

/// Refuses calls of the checked services whose input field "host" is there and is not "localhost". The
/// refusal is posted, never delivered inside Invoke.
class HostInputFilter final : public Lumo::Core::AsyncApiProvider,
                              public std::enable_shared_from_this<HostInputFilter> {
 public:
  /// `post` hands a closure to the I/O thread and never runs it inline.
  HostInputFilter(std::function<void(std::function<void()>)> post, std::set<std::string> checkedServices,
                  std::shared_ptr<Lumo::Core::AsyncApiProvider> next)
      : post_(std::move(post)), checkedServices_(std::move(checkedServices)), next_(std::move(next)) {}

  std::string ToString() const override { return "HostInputFilter"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& method,
              Lumo::Data::DataValuePtr const& input,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
              Lumo::Core::AsyncApiResultCb const& callback) override;

 private:
  std::function<void(std::function<void()>)> post_;
  std::set<std::string> checkedServices_;
  std::shared_ptr<Lumo::Core::AsyncApiProvider> next_;
};

}  // namespace Host::Settings::SettingsApi::Filter
