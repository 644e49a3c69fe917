// A PAM module that asks in several rounds. Each of its arguments is a round "<style>=<wanted answer>", the
// styles being "on", "off", "info" and "error"; any other one is a style that PAM does not know. It succeeds
// when all answers are the wanted ones.
#include <security/pam_appl.h>
#include <security/pam_modules.h>

#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

namespace {

int StyleOf(std::string_view word) {
  static std::map<std::string_view, int> const kStyles = {{"on", PAM_PROMPT_ECHO_ON},
                                                          {"off", PAM_PROMPT_ECHO_OFF},
                                                          {"info", PAM_TEXT_INFO},
                                                          {"error", PAM_ERROR_MSG}};
  auto const found = kStyles.find(word);
  return found != kStyles.end() ? found->second : 77;
}

/// True when the conversation answers this round as wanted.
bool Round(pam_conv const& conversation, std::string_view round) {
  std::size_t const equals = round.find('=');
  if (equals == std::string_view::npos) {
    return false;
  }
  pam_message const message{StyleOf(round.substr(0, equals)), "?"};
  pam_message const* messages = &message;
  pam_response* response = nullptr;
  if (conversation.conv(1, &messages, &response, conversation.appdata_ptr) != PAM_SUCCESS || !response) {
    return false;
  }
  std::string const answer = response->resp ? response->resp : "";
  std::free(response->resp);
  std::free(response);
  return answer == round.substr(equals + 1);
}

}  // namespace

extern "C" int pam_sm_authenticate(pam_handle_t* handle, int /*flags*/, int argc, char const** argv) {
  void const* conversation = nullptr;
  if (pam_get_item(handle, PAM_CONV, &conversation) != PAM_SUCCESS || !conversation) {
    return PAM_SERVICE_ERR;
  }
  for (int i = 0; i < argc; ++i) {
    if (!Round(*static_cast<pam_conv const*>(conversation), argv[i])) {
      return PAM_AUTH_ERR;
    }
  }
  return PAM_SUCCESS;
}

extern "C" int pam_sm_setcred(pam_handle_t* /*handle*/, int /*flags*/, int /*argc*/, char const** /*argv*/) {
  return PAM_SUCCESS;
}
