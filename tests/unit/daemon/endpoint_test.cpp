#include "apps/lifecycle/lumo/lumocpp/endpoint.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>

namespace {

using Host::Settings::SettingsApi::LookUpFailure;

TEST(LookUpFailure, NamesTheSystemsErrorOnlyWhereItIsOne) {
  EXPECT_EQ(LookUpFailure(EAI_SERVICE, ENOENT),
            "getaddrinfo failed. Error: Servname not supported for ai_socktype");
  EXPECT_EQ(LookUpFailure(EAI_SYSTEM, EMFILE),
            "getaddrinfo failed. Error: System error system error: Too many open files");
}

}  // namespace
