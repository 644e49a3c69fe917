#pragma once

#include <memory>

#include "runtime/core/activation.h"

namespace Lumo::Provider::Detail {

/// Called once per dispatched operation, just before it runs, on the thread that runs it: tells the call's
/// observer that the operation was reached.
void NotifyOnInvoke(std::shared_ptr<Core::AsyncActivation> const& activation);

}  // namespace Lumo::Provider::Detail
