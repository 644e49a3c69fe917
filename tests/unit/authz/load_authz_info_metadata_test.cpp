#include "security/load_authz_info_metadata.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/support/http/recording_logger.h"

namespace {

using Lumo::Authz::AuthzInfo;
using Lumo::Authz::Package;
using Lumo::Authz::Metadata::LoadAuthzInfoMetadata;
using Lumo::Transport::TestSupport::RecordingLogger;
using Names = std::list<std::string>;
using Table = std::map<std::string, Names>;

constexpr char kAuthentication[] = R"({"settings_lumo_authentication":{"packages":{
  "a.b":{"services":{"a.b.one":{"operations":{"get":["s1","s2"],"list":["s1"]}},
                     "a.b.two":{"operations":{"get":["s3"]}}}},
  "a.c":{"services":{}}}}})";
constexpr char kAuthorization[] =
    R"({"operations":{"a.b.one.get":["View"],"a.b.two.get":["View","Change"]}})";

class LoadAuthzInfoMetadataTest : public testing::Test {
 protected:
  bool Load(std::string const& text) {
    std::istringstream stream(text);
    return LoadAuthzInfoMetadata::Load(stream, info, logger, messages);
  }
  /// The id of the one message about a file that is refused.
  std::string Refused(std::string const& text) {
    AuthzInfo const before = info;
    messages.clear();
    logger->TakeLines();
    EXPECT_FALSE(Load(text)) << text;
    EXPECT_EQ(info, before) << text;
    EXPECT_EQ(messages.size(), 1U) << text;
    EXPECT_EQ(logger->TakeLines(), std::vector<std::string>{"4 " + messages.front().defaultMessage()})
        << text;
    return messages.front().id();
  }

  AuthzInfo info;
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  Lumo::MessageList messages;
};

TEST_F(LoadAuthzInfoMetadataTest, SchemeIsPreset) {
  EXPECT_EQ(info.noAuthenticationScheme, "com.orbane.lumo.std.security.no_authentication");
}

TEST_F(LoadAuthzInfoMetadataTest, BothFilesAreMerged) {
  info.noAuthenticationOperations = {"x.y"};
  ASSERT_TRUE(Load(kAuthentication));
  ASSERT_TRUE(Load(kAuthorization));
  EXPECT_EQ(info.packages, (std::list<Package>{{"a.b", {"a.b.one", "a.b.two"}}, {"a.c", {}}}));
  EXPECT_EQ(info.serviceOperations,
            (Table{{"a.b.one", {"a.b.one.get", "a.b.one.list"}}, {"a.b.two", {"a.b.two.get"}}}));
  EXPECT_EQ(info.operationSchemes,
            (Table{{"a.b.one.get", {"s1", "s2"}}, {"a.b.one.list", {"s1"}}, {"a.b.two.get", {"s3"}}}));
  EXPECT_EQ(info.operationPrivileges,
            (Table{{"a.b.one.get", {"View"}}, {"a.b.two.get", {"View", "Change"}}}));
  EXPECT_EQ(info.noAuthenticationOperations, std::set<std::string>{"x.y"});
  EXPECT_TRUE(messages.empty());
  EXPECT_TRUE(logger->TakeLines().empty());
}

TEST_F(LoadAuthzInfoMetadataTest, OneFileMayHoldBothKinds) {
  EXPECT_TRUE(Load(R"({"operations":{"a.get":["V"]},"c":{"packages":{}},"d":{"packages":{}}})"));
  EXPECT_EQ(info.operationPrivileges, (Table{{"a.get", {"V"}}}));
}

TEST_F(LoadAuthzInfoMetadataTest, NoOperationsAreNoFault) {
  EXPECT_TRUE(Load(R"({"operations":{}})"));
  EXPECT_EQ(info, AuthzInfo());
}

TEST_F(LoadAuthzInfoMetadataTest, WhatIsNoJsonIsRefused) {
  for (char const* const text :
       {"", "{", "nothing", R"({"operations":{}} x)", R"({"operations":{},"operations":{}})",
        R"({"operations":{"a.get":["V"],"a.get":["W"]}})", "{\"operations\":{\"\xff\":[\"V\"]}}"}) {
    EXPECT_EQ(Refused(text), "lumo.authz.metadata.malformed");
  }
  EXPECT_EQ(Refused(std::string(1'000'000, '[')), "lumo.authz.metadata.malformed");
}

TEST_F(LoadAuthzInfoMetadataTest, WhatHoldsNothingIsRefused) {
  for (char const* const text : {"{}", "[]", "null", "7", R"("operations")"}) {
    EXPECT_EQ(Refused(text), "lumo.authz.metadata.empty");
  }
}

TEST_F(LoadAuthzInfoMetadataTest, AnyOtherShapeIsRefused) {
  for (char const* const text : {
           R"({"operations":null})",
           R"({"operations":[]})",
           R"({"operations":{"a.get":"V"}})",
           R"({"operations":{"a.get":[]}})",
           R"({"operations":{"a.get":[1]}})",
           R"({"operations":{"a.get":[""]}})",
           R"({"operations":{"a.get":["V",null]}})",
           R"({"operations":{"a.get":{"V":true}}})",
           R"({"operations":{"":["V"]}})",
           R"({"other":{}})",
           R"({"other":1})",
           R"({"c":{"packages":[]}})",
           R"({"c":{"packages":{},"more":1}})",
           R"({"c":{"packages":{"p":{}}}})",
           R"({"c":{"packages":{"p":{"services":[]}}}})",
           R"({"c":{"packages":{"p":{"services":{"s":{}}}}}})",
           R"({"c":{"packages":{"p":{"services":{"s":{"operations":{"get":[]}}}}}}})",
           R"({"c":{"packages":{"p":{"services":{"s":{"operations":{"get":["x",{}]}}}}}}})",
           R"({"c":{"packages":{"p":{"services":{"s":{"operations":{"":["x"]}}}}}}})",
       }) {
    EXPECT_EQ(Refused(text), "lumo.authz.metadata.misplaced") << text;
  }
}

TEST_F(LoadAuthzInfoMetadataTest, WhatIsKnownAlreadyIsRefused) {
  ASSERT_TRUE(Load(kAuthentication));
  ASSERT_TRUE(Load(kAuthorization));
  for (char const* const text : {
           kAuthentication,
           kAuthorization,
           R"({"operations":{"new.get":["V"],"a.b.one.get":["None"]}})",
           R"({"other":{"packages":{"a.b":{"services":{}}}}})",
           R"({"other":{"packages":{"new":{"services":{"a.b.one":{"operations":{}}}}}}})",
           R"({"other":{"packages":{"new":{"services":{"a.b":{"operations":{"one.get":["s"]}}}}}}})",
       }) {
    EXPECT_EQ(Refused(text), "lumo.authz.metadata.duplicate") << text;
  }
}

TEST_F(LoadAuthzInfoMetadataTest, StreamsThatCannotBeReadAreRefused) {
  for (char const* const path : {"/nonexistent/file", "/"}) {
    std::ifstream stream(path);
    messages.clear();
    EXPECT_FALSE(LoadAuthzInfoMetadata::Load(stream, info, logger, messages)) << path;
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(info, AuthzInfo());
  }
}

}  // namespace
