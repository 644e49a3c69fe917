#include "security/pam.h"

#include <dlfcn.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "platform/features/features.h"
#include "platform/logging/logging.h"
#include "platform/text/text.h"

namespace {

constexpr char kLibrary[] = "libpam.so.0";
constexpr char kFunctionName[] = "Auth_AuthenticateUserPAM";
// Levels of Log: a failure, and a step.
constexpr int kFailure = 2;
constexpr int kStep = 5;
// Where the three steps stand in the log, whatever happens to this file.
constexpr int kLineAuthenticate = 424;
constexpr int kLineAccount = 426;
constexpr int kLineCredentials = 428;

// Static state, unlocked: one logon at a time, on the I/O thread.
void* library = nullptr;  // set once, never closed
decltype(&pam_start) pamStart = nullptr;
decltype(&pam_end) pamEnd = nullptr;
decltype(&pam_authenticate) pamAuthenticate = nullptr;
decltype(&pam_setcred) pamSetcred = nullptr;
decltype(&pam_acct_mgmt) pamAcctMgmt = nullptr;
decltype(&pam_strerror) pamStrerror = nullptr;
char const* currentUser = nullptr;      // during one logon
char const* currentPassword = nullptr;  // during one logon

struct PamFunction {
  void* slot;  // of a pointer to a function
  char const* name;
};

PamFunction const kFunctions[] = {
    {&pamStart, "pam_start"},
    {&pamEnd, "pam_end"},
    {&pamAuthenticate, "pam_authenticate"},
    {&pamSetcred, "pam_setcred"},
    {&pamAcctMgmt, "pam_acct_mgmt"},
    {&pamStrerror, "pam_strerror"},
};

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

__attribute__((format(printf, 1, 2))) void LogFailure(char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogV(kFailure, format, arguments);
  va_end(arguments);
}

/// The answer to one message in memory of its own; null for messages that want none. `known` tells whether
/// the style is one of PAM's.
char* Answer(int style, bool& known) {
  known = true;
  switch (style) {
    case PAM_PROMPT_ECHO_OFF:
      return strdup(currentPassword);
    case PAM_PROMPT_ECHO_ON:
      return strdup(currentUser);
    case PAM_ERROR_MSG:
    case PAM_TEXT_INFO:
      return nullptr;
    default:
      known = false;
      return nullptr;
  }
}

void FreeResponses(pam_response* responses, int count) {
  for (int i = 0; i < count; ++i) {
    if (char* const text = responses[i].resp) {
      explicit_bzero(text, std::strlen(text));  // it may be the password
      std::free(text);
    }
  }
  std::free(responses);
}

extern "C" int Converse(int count, pam_message const** messages, pam_response** responses, void* /*data*/) {
  count = std::max(count, 0);
  auto* const made =
      static_cast<pam_response*>(std::calloc(static_cast<std::size_t>(count), sizeof(pam_response)));
  if (made == nullptr) {
    return PAM_CONV_ERR;
  }
  for (int i = 0; i < count; ++i) {
    bool known = false;
    made[i].resp = Answer(messages[i]->msg_style, known);
    if (!known) {
      FreeResponses(made, i);
      return PAM_CONV_ERR;
    }
  }
  *responses = made;
  return PAM_SUCCESS;
}

pam_conv const conversation{&Converse, nullptr};

/// The system's library, else the one that comes with the program; null, and logged, if neither can be used.
void* OpenLibrary() {
  if (void* const system = dlopen(kLibrary, RTLD_LAZY | RTLD_GLOBAL)) {
    return system;
  }
  std::string const folder = Preference_GetPathName("/usr/lib/orbane", "libdir");
  std::unique_ptr<char, Free> const path(
      folder.empty() ? nullptr
                     : Str_SafeAsprintf(nullptr, "%s/lib/%s/%s", folder.c_str(), kLibrary, kLibrary));
  if (!path) {
    Log(kFailure, "System PAM library unusable and bundled one not found.\n");
    return nullptr;
  }
  void* const bundled = dlopen(path.get(), RTLD_LAZY | RTLD_GLOBAL);
  if (bundled == nullptr) {
    Log(kFailure, "Neither system nor bundled (%s) PAM libraries usable: %s\n", path.get(), dlerror());
  }
  return bundled;
}

/// True when the library is loaded and has all its functions.
bool LoadLibrary() {
  void* const opened = OpenLibrary();
  if (opened == nullptr) {
    return false;
  }
  for (PamFunction const& function : kFunctions) {
    void* const symbol = dlsym(opened, function.name);
    if (symbol == nullptr) {
      Log(kFailure, "PAM library does not contain required function: %s\n", dlerror());
      dlclose(opened);
      return false;
    }
    std::memcpy(function.slot, &symbol, sizeof symbol);
  }
  library = opened;
  Log(kStep, "PAM up and running.\n");
  return true;
}

/// Runs the three steps of a logon up to the first that fails. Ends `handle`.
bool RunSteps(pam_handle_t* handle) {
  struct Step {
    decltype(&pam_authenticate) function;
    int flags;
    int line;
  };
  for (Step const& step : {Step{pamAuthenticate, 0, kLineAuthenticate}, Step{pamAcctMgmt, 0, kLineAccount},
                           Step{pamSetcred, PAM_ESTABLISH_CRED, kLineCredentials}}) {
    int const code = step.function(handle, step.flags);
    if (code != PAM_SUCCESS) {
      LogFailure("%s:%d: PAM failure - %s (%d)\n", kFunctionName, step.line, pamStrerror(handle, code), code);
      pamEnd(handle, code);
      return false;
    }
  }
  pamEnd(handle, PAM_SUCCESS);
  return true;
}

/// The user's record with its texts in one block from malloc; null for an unknown user.
passwd* FindUser(char const* user) {
  constexpr std::size_t kFirstGuess = 1024;
  constexpr std::size_t kMost = 1 << 20;
  for (std::size_t texts = kFirstGuess; texts <= kMost; texts *= 2) {
    std::unique_ptr<void, Free> block(std::malloc(sizeof(passwd) + texts));
    if (!block) {
      return nullptr;
    }
    auto* const record = static_cast<passwd*>(block.get());
    passwd* found = nullptr;
    int const error = getpwnam_r(user, record, reinterpret_cast<char*>(record + 1), texts, &found);
    if (error != ERANGE) {
      return found != nullptr ? static_cast<passwd*>(block.release()) : nullptr;
    }
  }
  return nullptr;
}

/// Lends the statics to one logon.
class CurrentLogon {
 public:
  CurrentLogon(char const* user, char const* password) {
    currentUser = user;
    currentPassword = password;
  }
  CurrentLogon(CurrentLogon const&) = delete;
  CurrentLogon& operator=(CurrentLogon const&) = delete;
  ~CurrentLogon() { currentUser = currentPassword = nullptr; }
};

}  // namespace

passwd* Auth_AuthenticateUserPAM(char const* user, char const* password, char const* service) {
  if (!CodeSet_Validate(user, std::strlen(user), "UTF-8")) {
    Log(kFailure, "User not in UTF-8\n");
    return nullptr;
  }
  if (!CodeSet_Validate(password, std::strlen(password), "UTF-8")) {
    Log(kFailure, "Password not in UTF-8\n");
    return nullptr;
  }
  if (library == nullptr && !LoadLibrary()) {
    return nullptr;
  }
  CurrentLogon const logon(user, password);
  pam_handle_t* handle = nullptr;
  int const error = pamStart(service, user, &conversation, &handle);
  if (error != PAM_SUCCESS) {
    Log(kFailure, "Failed to start PAM (error = %d).\n", error);
    return nullptr;
  }
  return RunSteps(handle) ? FindUser(user) : nullptr;
}
