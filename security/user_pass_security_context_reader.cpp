#include "security/user_pass_security_context_reader.h"

namespace Lumo::Core {
namespace {

constexpr char kScheme[] = "com.orbane.lumo.std.security.user_pass";
constexpr char kUserName[] = "userName";
constexpr char kPassword[] = "password";

}  // namespace

UserPassSecurityContextReader::UserPassSecurityContextReader(SecurityContext const& context) {
  auto const userName = context.entries.find(kUserName);
  auto const password = context.entries.find(kPassword);
  if (context.schemeId == kScheme && userName != context.entries.end() && password != context.entries.end()) {
    userName_ = &userName->second;
    password_ = &password->second;
  }
}

}  // namespace Lumo::Core
