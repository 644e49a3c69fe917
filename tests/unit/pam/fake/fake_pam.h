// What tests tell the fake PAM library, and what it tells them.
#pragma once

#include <security/pam_appl.h>

#include <functional>
#include <string>
#include <vector>

struct FakePam {
  int start = PAM_SUCCESS;
  int authenticate = PAM_SUCCESS;
  int account = PAM_SUCCESS;
  int credentials = PAM_SUCCESS;
  /// Run by pam_authenticate.
  std::function<void(pam_conv const&)> converse;
  /// One text a call: the function's name and what it was given.
  std::vector<std::string> calls;
};
