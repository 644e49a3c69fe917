// A provider of the tests' own.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"

namespace Lumo::Transport::TestSupport {

/// Hands each call to a function.
class FakeProvider final : public Core::AsyncApiProvider {
 public:
  using Function =
      std::function<void(Core::MethodIdentifier const&, Data::DataValuePtr const&,
                         std::shared_ptr<Core::AsyncActivation> const&, Core::AsyncApiResultCb const&)>;

  explicit FakeProvider(Function function) : function_(std::move(function)) {}

  std::string ToString() const override { return "FakeProvider"; }
  void Invoke(std::shared_ptr<Core::MethodIdentifier const> const& method, Data::DataValuePtr const& input,
              std::shared_ptr<Core::AsyncActivation> const& activation,
              Core::AsyncApiResultCb const& callback) override {
    function_(*method, input, activation, callback);
  }

 private:
  Function function_;
};

}  // namespace Lumo::Transport::TestSupport
