// A PAM library that does what a test says. Compiled several times, each time but one without one function.
#include "tests/unit/pam/fake/fake_pam.h"

/// Found by tests in the global scope of symbols.
extern "C" {
FakePam fakePam;
}

namespace {

pam_conv const* conversation = nullptr;
pam_handle_t* const handle = reinterpret_cast<pam_handle_t*>(&fakePam);

std::string Given(pam_handle_t* given, int number) {
  return (given == handle ? " " : " foreign handle ") + std::to_string(number);
}

}  // namespace

extern "C" {

#if !defined(FAKE_without_pam_start)
int pam_start(char const* service, char const* user, pam_conv const* given, pam_handle_t** made) {
  fakePam.calls.push_back(std::string("pam_start ") + service + " " + user +
                          (given->appdata_ptr ? " data" : ""));
  conversation = given;
  *made = fakePam.start == PAM_SUCCESS ? handle : nullptr;
  return fakePam.start;
}
#endif

#if !defined(FAKE_without_pam_end)
int pam_end(pam_handle_t* given, int status) {
  fakePam.calls.push_back("pam_end" + Given(given, status));
  return PAM_SUCCESS;
}
#endif

#if !defined(FAKE_without_pam_authenticate)
int pam_authenticate(pam_handle_t* given, int flags) {
  fakePam.calls.push_back("pam_authenticate" + Given(given, flags));
  if (fakePam.converse) {
    fakePam.converse(*conversation);
  }
  return fakePam.authenticate;
}
#endif

#if !defined(FAKE_without_pam_setcred)
int pam_setcred(pam_handle_t* given, int flags) {
  fakePam.calls.push_back("pam_setcred" + Given(given, flags));
  return fakePam.credentials;
}
#endif

#if !defined(FAKE_without_pam_acct_mgmt)
int pam_acct_mgmt(pam_handle_t* given, int flags) {
  fakePam.calls.push_back("pam_acct_mgmt" + Given(given, flags));
  return fakePam.account;
}
#endif

#if !defined(FAKE_without_pam_strerror)
char const* pam_strerror(pam_handle_t* given, int code) {
  static std::string text;
  text = "error" + Given(given, code);
  return text.c_str();
}
#endif

}  // extern "C"
