// Runs in the sandbox, where the system's PAM library can be taken away. What the function keeps of a library
// that it has loaded stays for the process, so each load is tried in a process of its own.
#include "security/pam.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/resource.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "tests/unit/pam/fake/fake_pam.h"

namespace {

/// What Preference_GetPathName gives, and what it was asked.
std::string libdir = "/run/bundle";
std::string libdirAsked;

}  // namespace

// Takes the place of the platform's for this test program.
std::string Preference_GetPathName(char const* fallback, char const* name) {
  libdirAsked = std::string(name) + " " + fallback;
  return libdir;
}

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<Orbane::CapturedLine>;
using Texts = std::vector<std::string>;

constexpr char kBundled[] = "/run/bundle/lib/libpam.so.0/libpam.so.0";

void RemoveSystemLibrary() {
  for (char const* folder : {"/usr/lib", "/usr/lib64", "/lib64"}) {
    std::error_code none;
    for (auto const& entry : fs::directory_iterator(folder, none)) {
      fs::remove(entry.path() / "libpam.so.0", none);
    }
    fs::remove(fs::path(folder) / "libpam.so.0", none);
  }
  fs::remove("/etc/ld.so.cache");
}

void Bundle(std::string const& variant) {
  fs::create_directories(fs::path(kBundled).parent_path());
  fs::copy_file(std::string(FAKE_LIBRARIES) + "/libfake_" + variant + ".so", kBundled,
                fs::copy_options::overwrite_existing);
}

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
using Record = std::unique_ptr<passwd, Free>;

Record Logon(char const* user = "alice", char const* password = "correct horse",
             char const* service = "keeld") {
  return Record(Auth_AuthenticateUserPAM(user, password, service));
}

/// Ends the process with what was logged on the standard error stream.
[[noreturn]] void Tell(Orbane::TestOnlyLogCapture const& log) {
  for (Orbane::CapturedLine const& line : log.lines()) {
    std::cerr << line << '|';
  }
  std::_Exit(0);
}

class PamLoadDeathTest : public testing::Test {
 protected:
  PamLoadDeathTest() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    RemoveSystemLibrary();
    fs::remove_all("/run/bundle");
  }
};

TEST_F(PamLoadDeathTest, NoLibraryAndNoFolderForIt) {
  auto const attempt = [] {
    Orbane::TestOnlyLogCapture const log;
    libdir.clear();
    bool const accepted = Logon() || Logon();
    std::cerr << accepted << libdirAsked << '|';
    Tell(log);
  };
  EXPECT_EXIT(attempt(), testing::ExitedWithCode(0),
              "^0libdir /usr/lib/orbane\\|"
              "0 \"System PAM library unusable and bundled one not found\\.\"\\|"
              "0 \"System PAM library unusable and bundled one not found\\.\"\\|$");
}

TEST_F(PamLoadDeathTest, NoLibraryAnywhere) {
  auto const attempt = [] {
    Orbane::TestOnlyLogCapture const log;
    std::cerr << (Logon() != nullptr) << '|';
    Tell(log);
  };
  EXPECT_EXIT(attempt(), testing::ExitedWithCode(0),
              "^0\\|0 \"Neither system nor bundled \\(/run/bundle/lib/libpam\\.so\\.0/libpam\\.so\\.0\\) PAM "
              "libraries "
              "usable: /run/bundle/lib/libpam\\.so\\.0/libpam\\.so\\.0: cannot open shared object file: "
              "No such file or directory\"\\|$");
}

TEST_F(PamLoadDeathTest, ALibraryThatIsNone) {
  fs::create_directories(fs::path(kBundled).parent_path());
  std::ofstream(kBundled) << "no library";
  auto const attempt = [] {
    Orbane::TestOnlyLogCapture const log;
    std::cerr << (Logon() != nullptr) << '|';
    Tell(log);
  };
  EXPECT_EXIT(attempt(), testing::ExitedWithCode(0),
              "PAM libraries usable: .*(file too short|invalid ELF header)\"\\|$");
}

TEST_F(PamLoadDeathTest, ALibraryThatLacksAFunctionIsClosedAndTheNextCallStartsOver) {
  for (char const* function :
       {"pam_start", "pam_end", "pam_authenticate", "pam_setcred", "pam_acct_mgmt", "pam_strerror"}) {
    auto const attempt = [function] {
      Orbane::TestOnlyLogCapture const log;
      Bundle(std::string("without_") + function);
      std::cerr << (Logon() != nullptr);
      std::cerr << (dlopen(kBundled, RTLD_LAZY | RTLD_NOLOAD) != nullptr);
      fs::remove(kBundled);
      Bundle("whole");
      std::cerr << (Logon() != nullptr);
      std::cerr << (dlopen(kBundled, RTLD_LAZY | RTLD_NOLOAD) != nullptr) << '|';
      Tell(log);
    };
    EXPECT_EXIT(
        attempt(), testing::ExitedWithCode(0),
        std::string("^0011\\|0 \"PAM library does not contain required function: .*undefined symbol: ") +
            function + "\"\\|2 \"PAM up and running\\.\"\\|$");
  }
}

TEST_F(PamLoadDeathTest, TheSystemsLibraryComesFirstAndIsLoadedOnce) {
  Bundle("without_pam_end");
  fs::copy_file(std::string(FAKE_LIBRARIES) + "/libfake_whole.so", "/usr/lib/libpam.so.0",
                fs::copy_options::overwrite_existing);
  auto const attempt = [] {
    Orbane::TestOnlyLogCapture const log;
    std::cerr << (Logon() != nullptr);
    fs::remove("/usr/lib/libpam.so.0");
    std::cerr << (Logon() != nullptr) << libdirAsked << '|';
    Tell(log);
  };
  EXPECT_EXIT(attempt(), testing::ExitedWithCode(0), "^11\\|2 \"PAM up and running\\.\"\\|$");
}

/// With the whole fake library loaded.
class Pam : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    RemoveSystemLibrary();
    Bundle("whole");
    Orbane::TestOnlyLogCapture const log;
    ASSERT_NE(Logon(), nullptr);
  }

  Pam() : fake(*static_cast<FakePam*>(dlsym(RTLD_DEFAULT, "fakePam"))) { fake = FakePam(); }

  /// What the conversation answers to messages of these styles: texts, "-" for none, or its error.
  Texts Converse(std::vector<int> const& styles) {
    Texts answers;
    fake.converse = [&](pam_conv const& conversation) {
      std::vector<pam_message> messages;
      for (int const style : styles) {
        messages.push_back({style, "?"});
      }
      std::vector<pam_message const*> pointers;
      for (pam_message const& message : messages) {
        pointers.push_back(&message);
      }
      pam_response* responses = nullptr;
      int const code =
          conversation.conv(static_cast<int>(styles.size()), pointers.data(), &responses, nullptr);
      if (code != PAM_SUCCESS) {
        EXPECT_EQ(responses, nullptr);
        answers = {"error " + std::to_string(code)};
        return;
      }
      for (std::size_t i = 0; i < styles.size(); ++i) {
        EXPECT_EQ(responses[i].resp_retcode, 0);
        answers.push_back(responses[i].resp ? responses[i].resp : "-");
        std::free(responses[i].resp);
      }
      std::free(responses);
    };
    EXPECT_NE(Logon(), nullptr);
    return answers;
  }

  FakePam& fake;  // found only because the library was loaded into the global scope
  Orbane::TestOnlyLogCapture log;
};

TEST_F(Pam, AsksInOrderAndGivesTheUsersRecord) {
  Record const record = Logon();
  ASSERT_NE(record, nullptr);
  EXPECT_STREQ(record->pw_name, "alice");
  EXPECT_EQ(record->pw_uid, 2001U);
  EXPECT_STREQ(record->pw_shell, "/bin/sh");
  EXPECT_EQ(fake.calls, (Texts{"pam_start keeld alice", "pam_authenticate 0", "pam_acct_mgmt 0",
                               "pam_setcred " + std::to_string(PAM_ESTABLISH_CRED), "pam_end 0"}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pam, TextsOutsideUtf8DoNotReachPam) {
  for (char const* text : {"\xff", "ali\xc3", "\xed\xa0\x80", "\xc0\x80"}) {
    log.Clear();
    EXPECT_EQ(Logon(text, "correct horse"), nullptr);
    EXPECT_EQ(Logon("alice", text), nullptr);
    EXPECT_EQ(Logon(text, text), nullptr);
    EXPECT_EQ(log.lines(),
              (Lines{{0, "User not in UTF-8"}, {0, "Password not in UTF-8"}, {0, "User not in UTF-8"}}));
  }
  EXPECT_TRUE(fake.calls.empty());
  EXPECT_NE(Logon("alice", "p\xc3\xa4ssw\xc3\xb6rd"), nullptr);
}

TEST_F(Pam, AFailedStartEndsNothing) {
  fake.start = PAM_SYSTEM_ERR;
  EXPECT_EQ(Logon(), nullptr);
  EXPECT_EQ(fake.calls, (Texts{"pam_start keeld alice"}));
  EXPECT_EQ(log.lines(), (Lines{{0, "Failed to start PAM (error = 4)."}}));
}

TEST_F(Pam, TheFirstFailureStopsTheSteps) {
  struct Case {
    int FakePam::*step;
    int code;
    char const* line;
    Texts calls;
  };
  Case const cases[] = {
      {&FakePam::authenticate,
       PAM_AUTH_ERR,
       "Auth_AuthenticateUserPAM:424: PAM failure - error 7 (7)",
       {"pam_start keeld alice", "pam_authenticate 0", "pam_end 7"}},
      {&FakePam::account,
       PAM_ACCT_EXPIRED,
       "Auth_AuthenticateUserPAM:426: PAM failure - error 13 (13)",
       {"pam_start keeld alice", "pam_authenticate 0", "pam_acct_mgmt 0", "pam_end 13"}},
      {&FakePam::account,
       PAM_NEW_AUTHTOK_REQD,
       "Auth_AuthenticateUserPAM:426: PAM failure - error 12 (12)",
       {"pam_start keeld alice", "pam_authenticate 0", "pam_acct_mgmt 0", "pam_end 12"}},
      {&FakePam::credentials,
       PAM_CRED_ERR,
       "Auth_AuthenticateUserPAM:428: PAM failure - error 17 (17)",
       {"pam_start keeld alice", "pam_authenticate 0", "pam_acct_mgmt 0", "pam_setcred 2", "pam_end 17"}},
  };
  for (Case const& each : cases) {
    fake = FakePam();
    fake.*each.step = each.code;
    log.Clear();
    EXPECT_EQ(Logon(), nullptr);
    EXPECT_EQ(fake.calls, each.calls);
    EXPECT_EQ(log.lines(), (Lines{{0, each.line}}));
  }
}

TEST_F(Pam, AUserWithoutARecordIsRefused) {
  EXPECT_EQ(Logon("ghost"), nullptr);
  EXPECT_EQ(fake.calls.back(), "pam_end 0") << "PAM itself was content";
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pam, RecordsOfAnyLengthComeWhole) {
  std::string const comment(50'000, 'c');
  std::ofstream("/etc/passwd", std::ios::app) << "longwinded:x:2100:2100:" << comment << ":/tmp:/bin/sh\n";
  Record const record = Logon("longwinded");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->pw_gecos, comment);
}

TEST_F(Pam, AnswersByTheStyleOfTheMessages) {
  EXPECT_EQ(Converse({PAM_PROMPT_ECHO_OFF}), (Texts{"correct horse"}));
  EXPECT_EQ(Converse({PAM_PROMPT_ECHO_ON}), (Texts{"alice"}));
  EXPECT_EQ(Converse({PAM_ERROR_MSG}), (Texts{"-"}));
  EXPECT_EQ(Converse({PAM_TEXT_INFO}), (Texts{"-"}));
  EXPECT_EQ(Converse({PAM_PROMPT_ECHO_ON, PAM_TEXT_INFO, PAM_PROMPT_ECHO_OFF, PAM_ERROR_MSG,
                      PAM_PROMPT_ECHO_OFF, PAM_PROMPT_ECHO_ON}),
            (Texts{"alice", "-", "correct horse", "-", "correct horse", "alice"}));
}

TEST_F(Pam, AnUnknownStyleIsAConversationError) {
  for (int const style : {0, -1, 5, 7, INT_MAX}) {
    EXPECT_EQ(Converse({style}), (Texts{"error 19"}));
    EXPECT_EQ(Converse({PAM_PROMPT_ECHO_OFF, PAM_PROMPT_ECHO_ON, PAM_TEXT_INFO, style, PAM_PROMPT_ECHO_OFF}),
              (Texts{"error 19"}));
  }
}

TEST_F(Pam, ACountBelowOneGivesTheEmptyArray) {
  int answered = 0;
  fake.converse = [&answered](pam_conv const& conversation) {
    for (int const count : {0, -1, INT_MIN}) {
      pam_response* responses = nullptr;
      EXPECT_EQ(conversation.conv(count, nullptr, &responses, nullptr), PAM_SUCCESS) << count;
      std::free(responses);
      ++answered;
    }
  };
  EXPECT_NE(Logon(), nullptr);
  EXPECT_EQ(answered, 3);
}

TEST_F(Pam, WithoutMemoryTheConversationFails) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer ends a process whose memory is short";
#endif
  int code = PAM_SUCCESS;
  fake.converse = [&code](pam_conv const& conversation) {
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    rlimit const tight{rlim_t{1} << 30, before.rlim_max};
    setrlimit(RLIMIT_AS, &tight);
    pam_response* responses = nullptr;
    code = conversation.conv(INT_MAX, nullptr, &responses, nullptr);  // 32 GiB of responses
    setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(responses, nullptr);
  };
  EXPECT_NE(Logon(), nullptr);
  EXPECT_EQ(code, PAM_CONV_ERR);
  EXPECT_EQ(code, 19);
}

TEST_F(Pam, EachLogonHasItsOwnTexts) {
  Texts seen;
  fake.converse = [&seen](pam_conv const& conversation) {
    pam_message const message{PAM_PROMPT_ECHO_OFF, "?"};
    pam_message const* const pointer = &message;
    pam_response* responses = nullptr;
    ASSERT_EQ(conversation.conv(1, const_cast<pam_message const**>(&pointer), &responses, nullptr),
              PAM_SUCCESS);
    seen.emplace_back(responses->resp);
    std::free(responses->resp);
    std::free(responses);
  };
  for (char const* password : {"one", "", "three"}) {
    Logon("alice", password);
  }
  EXPECT_EQ(seen, (Texts{"one", "", "three"}));
}

}  // namespace
