#include "runtime/provider/interface.h"

#include <mutex>

namespace Lumo::Provider {

template <typename Mutex>
std::shared_ptr<AsyncApiInterfaceConcurrentContainer<Mutex>>
AsyncApiInterfaceConcurrentContainer<Mutex>::GetInstance(
    std::list<std::shared_ptr<AsyncApiInterface const>> const& interfaces) {
  auto container = std::make_shared<AsyncApiInterfaceConcurrentContainer>();
  for (auto const& api : interfaces) {
    container->interfaces_.emplace(*api->identifier(), api);
  }
  return container;
}

template <typename Mutex>
void AsyncApiInterfaceConcurrentContainer<Mutex>::Add(std::shared_ptr<AsyncApiInterface const> const& api,
                                                      MessageList& errors) {
  std::lock_guard const lock(mutex_);
  if (!interfaces_.emplace(*api->identifier(), api).second) {
    errors.push_back(Message<CoreTag>::Make("lumo.provider.interface.duplicate", *api->identifier()));
  }
}

template <typename Mutex>
bool AsyncApiInterfaceConcurrentContainer<Mutex>::Find(std::shared_ptr<std::string const> const& service,
                                                       std::shared_ptr<AsyncApiInterface const>& api,
                                                       MessageList& errors) const {
  std::lock_guard const lock(mutex_);
  auto const found = interfaces_.find(*service);
  if (found == interfaces_.end()) {
    errors.push_back(Message<CoreTag>::Make("lumo.provider.service.not.found", *service));
    return false;
  }
  api = found->second;
  return true;
}

template <typename Mutex>
std::vector<std::string> AsyncApiInterfaceConcurrentContainer<Mutex>::ServiceNames() const {
  std::lock_guard const lock(mutex_);
  std::vector<std::string> names;
  names.reserve(interfaces_.size());
  for (auto const& [name, api] : interfaces_) {
    names.push_back(name);
  }
  return names;
}

template class AsyncApiInterfaceConcurrentContainer<DummyMutex>;

}  // namespace Lumo::Provider
