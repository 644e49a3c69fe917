#pragma once

#include <string>

#include "runtime/core/activation.h"

namespace Lumo::Core {

/// Reads a security context as user name and password. Valid as long as the context that it was made of.
class UserPassSecurityContextReader {
 public:
  explicit UserPassSecurityContextReader(SecurityContext const& context);

  /// True when the context is of the user-name-and-password scheme and has both entries.
  bool isUserPass() const { return userName_ != nullptr; }
  /// Copies; empty when the context is of another scheme.
  std::string userName() const { return userName_ ? *userName_ : std::string(); }
  std::string password() const { return password_ ? *password_ : std::string(); }

 private:
  std::string const* userName_ = nullptr;
  std::string const* password_ = nullptr;
};

}  // namespace Lumo::Core
