// Runs in the sandbox: its accounts, its service files, the real PAM library and modules.
#include <gtest/gtest.h>
#include <pwd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "platform/logging/test_only_log_capture.h"
#include "security/pam.h"

namespace {

constexpr char kPassword[] = "correct horse";  // of operator and renew
constexpr char kSecret[] = "secret";           // of locked and expired

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

class PamStack : public testing::Test {
 protected:
  /// The user's name in the record; "" when refused. Lines of the modules themselves go elsewhere.
  std::string Logon(char const* user, char const* password, char const* service = "keeld") {
    log.Clear();
    std::unique_ptr<passwd, Free> const record(Auth_AuthenticateUserPAM(user, password, service));
    return record ? record->pw_name : "";
  }

  /// The failure's line, without the library's first greeting.
  std::string Failure() const {
    auto const texts = log.texts(0);
    return texts.size() == 1 ? texts.front() : std::to_string(texts.size()) + " lines";
  }

  /// Makes the service file that a test alone uses.
  static char const* Service(std::string const& text) {
    std::ofstream("/etc/pam.d/keeld-test") << text;
    return "keeld-test";
  }

  static std::string Read(char const* path) {
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
  }

  Orbane::TestOnlyLogCapture log;
};

TEST_F(PamStack, TheRightPasswordLogsOn) {
  EXPECT_EQ(Logon("operator", kPassword), "operator");
  EXPECT_EQ(Logon("operator", kPassword), "operator") << "again";
}

TEST_F(PamStack, TheLibraryIsLoadedOnce) {
  Logon("operator", kPassword);
  EXPECT_EQ(Logon("operator", kPassword), "operator");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PamStack, RefusesWhatIsNotTheUsersPassword) {
  std::string const long_(4000, 'x');
  for (std::string const& wrong :
       {std::string("wrong"), std::string(), std::string("correct hors"), std::string("correct horse "),
        std::string("Correct horse"), kPassword + long_, long_, std::string("\xc3\xa4")}) {
    EXPECT_EQ(Logon("operator", wrong.c_str()), "") << wrong.substr(0, 40);
    EXPECT_EQ(Failure(), "Auth_AuthenticateUserPAM:424: PAM failure - Authentication failure (7)");
  }
  EXPECT_EQ(Logon("operator", kPassword), "operator") << "no lock-out";
}

TEST_F(PamStack, RefusesUsersThatThereAreNot) {
  std::string const long_(4000, 'u');
  for (std::string const& user :
       {std::string("ghost"), std::string("Operator"), std::string("operator "), std::string("operator:x"),
        long_, std::string("../operator"), std::string("2004"), std::string("-1")}) {
    EXPECT_EQ(Logon(user.c_str(), kPassword), "") << user.substr(0, 40);
    EXPECT_EQ(Failure(),
              "Auth_AuthenticateUserPAM:424: PAM failure - User not known to the underlying authentication "
              "module (10)")
        << user.substr(0, 40);
  }
  EXPECT_EQ(Logon("", kPassword), "");
  EXPECT_EQ(log.texts(0).size(), 1U);
}

TEST_F(PamStack, RefusesAccountsWithoutAPassword) {
  for (char const* user : {"daemon", "nobody"}) {
    EXPECT_EQ(Logon(user, ""), "");
    EXPECT_EQ(Logon(user, "*"), "");
  }
}

TEST_F(PamStack, RefusesALockedAccount) {
  EXPECT_EQ(Logon("locked", kSecret), "");
  EXPECT_EQ(Failure(), "Auth_AuthenticateUserPAM:424: PAM failure - Authentication failure (7)");
}

TEST_F(PamStack, RefusesAnExpiredAccountThoughThePasswordIsRight) {
  EXPECT_EQ(Logon("expired", kSecret), "");
  EXPECT_EQ(Failure(), "Auth_AuthenticateUserPAM:426: PAM failure - User account has expired (13)");
}

TEST_F(PamStack, RefusesAPasswordThatMustBeChangedFirst) {
  EXPECT_EQ(Logon("renew", kPassword), "");
  EXPECT_EQ(Failure(),
            "Auth_AuthenticateUserPAM:426: PAM failure - Authentication token is no longer valid; new one "
            "required (12)");
}

TEST_F(PamStack, AModuleGetsItsAnswersInTheOrderOfItsPrompts) {
  char const* const service = Service(std::string("auth required ") + PAM_ASK +
                                      " on=operator off=correct_horse info= off=correct_horse "
                                      "error= on=operator\naccount required pam_permit.so\n");
  EXPECT_EQ(Logon("operator", "correct_horse", service), "operator");
  EXPECT_EQ(Logon("operator", "wrong_horse", service), "");
  EXPECT_EQ(Logon("alice", "correct_horse", service), "");
}

TEST_F(PamStack, TwoModulesThatAskGetTheSameAnswer) {
  char const* const service =
      Service(std::string("auth required ") + PAM_ASK + " off=correct_horse\nauth required " + PAM_ASK +
              " off=correct_horse on=operator\naccount required pam_permit.so\n");
  EXPECT_EQ(Logon("operator", "correct_horse", service), "operator");
}

TEST_F(PamStack, AModuleOfAnUnknownStyleGetsNothing) {
  char const* const service =
      Service(std::string("auth required ") + PAM_ASK + " odd=\naccount required pam_permit.so\n");
  EXPECT_EQ(Logon("operator", kPassword, service), "");
  EXPECT_EQ(Failure(), "Auth_AuthenticateUserPAM:424: PAM failure - Authentication failure (7)");
}

TEST_F(PamStack, AUserThatPamAcceptsNeedsARecordAllTheSame) {
  char const* const service = Service("auth required pam_permit.so\naccount required pam_permit.so\n");
  EXPECT_EQ(Logon("alice", "anything", service), "alice");
  EXPECT_EQ(Logon("ghost", "anything", service), "");
  EXPECT_TRUE(log.texts(0).empty());
}

TEST_F(PamStack, WithoutAServiceFileTheHostsPolicyForOthersHolds) {
  std::ofstream("/etc/pam.d/other") << "auth required pam_deny.so\naccount required pam_deny.so\n";
  EXPECT_EQ(Logon("operator", kPassword, "keeld-none"), "");
  EXPECT_EQ(Failure(), "Auth_AuthenticateUserPAM:424: PAM failure - Authentication failure (7)");
}

TEST_F(PamStack, CredentialsThatCannotBeSetAreAFailure) {
  char const* const service =
      Service("auth required pam_debug.so auth=success cred=cred_err\naccount required pam_permit.so\n");
  EXPECT_EQ(Logon("alice", "x", service), "");
  EXPECT_EQ(Failure(), "Auth_AuthenticateUserPAM:428: PAM failure - Failure setting user credentials (17)");
}

TEST_F(PamStack, TheShippedServiceFileLetsRootAndAdministratorsIn) {
  char const* const service = Service(Read(SHIPPED_SERVICE));
  EXPECT_EQ(Logon("root", kSecret, service), "root");
  EXPECT_EQ(Logon("operator", kPassword, service), "operator");
  EXPECT_EQ(Logon("alice", kSecret, service), "") << "right, but no administrator";
  EXPECT_EQ(Failure(), "Auth_AuthenticateUserPAM:426: PAM failure - Authentication failure (7)");
  EXPECT_EQ(Logon("root", "wrong", service), "");
  EXPECT_EQ(Logon("operator", "wrong", service), "");
  EXPECT_EQ(Logon("ghost", "wrong", service), "");
  EXPECT_EQ(Logon("expired", kSecret, service), "");
  EXPECT_EQ(Logon("locked", kSecret, service), "");
  EXPECT_EQ(Logon("renew", kPassword, service), "");
}

TEST_F(PamStack, AnExpiredAdministratorStaysOutsideAllTheSame) {
  char const* const service = Service(Read(SHIPPED_SERVICE));
  std::string groups = Read("/etc/group");
  groups.replace(groups.find("sudo:x:27:operator"), 18, "sudo:x:27:operator,expired,renew");
  std::ofstream("/etc/group") << groups;
  EXPECT_EQ(Logon("expired", kSecret, service), "");
  EXPECT_EQ(Failure(), "Auth_AuthenticateUserPAM:426: PAM failure - User account has expired (13)");
  EXPECT_EQ(Logon("renew", kPassword, service), "");
}

}  // namespace
