#include "runtime/core/method.h"

#include "runtime/core/recycled.h"

namespace Lumo::Core {

std::string MethodIdentifier::ToString() const {
  std::string text;
  text.reserve(service_->size() + 1 + operation_.size());
  text.append(*service_).append(1, '.').append(operation_);
  return text;
}

std::shared_ptr<MethodResult const> MethodResult::GetErrorInstance(
    std::shared_ptr<Data::ErrorValue const> const& error) {
  return MakeRecycled<MethodResult const>(nullptr, error, true);
}

std::shared_ptr<MethodResult const> MethodResult::GetInstance(Data::DataValuePtr const& output) {
  return MakeRecycled<MethodResult const>(output, nullptr, false);
}

}  // namespace Lumo::Core
