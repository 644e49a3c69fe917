#include "runtime/provider/notify.h"

#include "runtime/core/call_observer.h"

namespace Lumo::Provider::Detail {

void NotifyOnInvoke(std::shared_ptr<Core::AsyncActivation> const& activation) {
  if (auto const& observer = activation->callObserver()) {
    observer->OnInvoke();
  }
}

}  // namespace Lumo::Provider::Detail
