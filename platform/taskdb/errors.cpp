#include "platform/taskdb/errors.h"

#include <cstring>

namespace LifeCycle {

AccessLockError::AccessLockError(int error) : error_(error) {}

char const* AccessLockError::what() const noexcept {
  char const* const text = strerrordesc_np(error_);
  return text != nullptr ? text : std::strerror(error_);
}

}  // namespace LifeCycle
