// The services by which a client can ask what the server offers. They need no user.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "bindings/com/orbane/lumo/std/introspection/operation_svc.h"
#include "bindings/com/orbane/lumo/std/introspection/provider_svc.h"
#include "bindings/com/orbane/lumo/std/introspection/service_svc.h"
#include "runtime/provider/interface.h"

namespace Lumo::Provider::Introspection {

using Container = AsyncApiInterfaceConcurrentContainer<DummyMutex>;

namespace Impl {

namespace OperationSvc {
class AsyncServiceImpl final : public Bindings::OperationSvc::AsyncServiceInterface {
 public:
  explicit AsyncServiceImpl(Container const& interfaces) : interfaces_(interfaces) {}
  /// Short names of a service's operations.
  void List(std::shared_ptr<Bindings::OperationSvc::ListInput const> const& input,
            AsyncResult<std::set<std::string>> const& result) override;
  void Get(std::shared_ptr<Bindings::OperationSvc::GetInput const> const& input,
           AsyncResult<std::shared_ptr<Bindings::OperationSvc::Info const>> const& result) override;

 private:
  Container const& interfaces_;
};
}  // namespace OperationSvc

namespace ProviderSvc {
class AsyncServiceImpl final : public Bindings::ProviderSvc::AsyncServiceInterface {
 public:
  AsyncServiceImpl(Container const& interfaces, std::string name)
      : interfaces_(interfaces), name_(std::move(name)) {}
  /// The provider's name, and a checksum of all that can be called. The checksum is made at the first call
  /// and kept: the interfaces don't change once the daemon serves. I/O thread only.
  void Get(std::shared_ptr<Bindings::ProviderSvc::GetInput const> const& input,
           AsyncResult<std::shared_ptr<Bindings::ProviderSvc::Info const>> const& result) override;

 private:
  Container const& interfaces_;
  std::string name_;
  std::string checksum_;
};
}  // namespace ProviderSvc

namespace ServiceSvc {
class AsyncServiceImpl final : public Bindings::ServiceSvc::AsyncServiceInterface {
 public:
  explicit AsyncServiceImpl(Container const& interfaces) : interfaces_(interfaces) {}
  void List(std::shared_ptr<Bindings::ServiceSvc::ListInput const> const& input,
            AsyncResult<std::set<std::string>> const& result) override;
  void Get(std::shared_ptr<Bindings::ServiceSvc::GetInput const> const& input,
           AsyncResult<std::shared_ptr<Bindings::ServiceSvc::Info const>> const& result) override;

 private:
  Container const& interfaces_;
};
}  // namespace ServiceSvc

}  // namespace Impl

/// The three services over `interfaces`, bound: operation, provider, service. `providerName` is the name that
/// the provider service tells. They are meant to be added to `interfaces`, which has to outlive them, so they
/// only refer to it.
std::list<std::shared_ptr<AsyncApiInterface const>> BindServices(
    Container const& interfaces, std::string const& providerName,
    std::shared_ptr<L10n::Localizer const> const& localizer);

}  // namespace Lumo::Provider::Introspection
