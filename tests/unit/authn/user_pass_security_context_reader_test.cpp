#include "security/user_pass_security_context_reader.h"

#include <gtest/gtest.h>

namespace {

using Lumo::Core::SecurityContext;
using Lumo::Core::UserPassSecurityContextReader;

constexpr char kUserPass[] = "com.orbane.lumo.std.security.user_pass";

TEST(UserPassSecurityContextReader, ReadsBothTexts) {
  std::string const odd("p\0:\xff", 4);
  SecurityContext const context{kUserPass, {{"userName", "alice"}, {"password", odd}, {"more", "x"}}};
  UserPassSecurityContextReader const reader(context);
  EXPECT_TRUE(reader.isUserPass());
  EXPECT_EQ(reader.userName(), "alice");
  EXPECT_EQ(reader.password(), odd);

  SecurityContext const empty{kUserPass, {{"userName", ""}, {"password", ""}}};
  EXPECT_TRUE(UserPassSecurityContextReader(empty).isUserPass());
}

TEST(UserPassSecurityContextReader, KnowsNoOtherScheme) {
  for (SecurityContext const& context : {
           SecurityContext{},
           SecurityContext{"", {{"userName", "a"}, {"password", "b"}}},
           SecurityContext{"com.orbane.lumo.std.security.bearer_token", {{"token", "t"}}},
           SecurityContext{"com.orbane.lumo.std.security.bearer_token",
                           {{"userName", "a"}, {"password", "b"}}},
           SecurityContext{"com.orbane.lumo.std.security.user_pass2", {{"userName", "a"}, {"password", "b"}}},
           SecurityContext{kUserPass, {}},
           SecurityContext{kUserPass, {{"userName", "a"}}},
           SecurityContext{kUserPass, {{"password", "b"}}},
           SecurityContext{kUserPass, {{"username", "a"}, {"password", "b"}}},
       }) {
    UserPassSecurityContextReader const reader(context);
    EXPECT_FALSE(reader.isUserPass()) << context.schemeId;
    EXPECT_EQ(reader.userName(), "");
    EXPECT_EQ(reader.password(), "");
  }
}

}  // namespace
