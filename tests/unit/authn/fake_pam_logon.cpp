#include "tests/unit/authn/fake_pam_logon.h"

#include <pwd.h>

#include <cstdlib>
#include <utility>

#include "security/pam.h"

namespace {

std::vector<FakePamLogon::Asked> asked;
bool accepting = true;

}  // namespace

// Takes the place of the library's for the whole test program.
passwd* Auth_AuthenticateUserPAM(char const* user, char const* password, char const* service) {
  asked.push_back({user, password, service});
  return accepting ? static_cast<passwd*>(std::calloc(1, sizeof(passwd))) : nullptr;
}

namespace FakePamLogon {

std::vector<Asked> Take() {
  return std::exchange(asked, {});
}
void Accept(bool accept) {
  accepting = accept;
}

}  // namespace FakePamLogon
