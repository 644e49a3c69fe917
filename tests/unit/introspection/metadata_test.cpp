#include "runtime/introspection/metadata.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
namespace Helper = Lumo::Provider::Metadata::ProviderHelper;
using Lumo::Provider::Metadata::Cli::MetadataContainer;

class MetadataTest : public testing::Test {
 protected:
  MetadataTest() {
    std::string pattern = (fs::temp_directory_path() / "keeld_metadata.XXXXXX").string();
    directory = mkdtemp(pattern.data());
  }
  ~MetadataTest() override { fs::remove_all(directory); }

  std::string File(std::string const& content) {
    std::string path = (directory / "file.json").string();
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  /// Id of the one message of a failed load; empty when it went well.
  std::string Load(std::string const& path) {
    auto const error = Helper::LoadCliMetadataFile("settings", path, container);
    if (!error) {
      return {};
    }
    EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.internal_server_error");
    auto const* const messages = Lumo::Data::As<Lumo::Data::ListValue>(error->Find("messages"));
    auto const* const message = Lumo::Data::As<Lumo::Data::StructValue>(messages->Item(0));
    return std::string(Lumo::Data::As<Lumo::Data::StringValue>(message->Find("id"))->value());
  }

  fs::path directory;
  std::shared_ptr<MetadataContainer> container = MetadataContainer::GetInstance();
};

TEST_F(MetadataTest, LoadsTheComponentsDocument) {
  EXPECT_EQ(Load(File(R"({"settings":{"commands":[1]},"other":3})")), "");
  EXPECT_EQ(container->Components(), std::vector<std::string>{"settings"});
  auto const document = container->Find("settings");
  ASSERT_NE(document, nullptr);
  EXPECT_TRUE(document->HasField("commands"));
  EXPECT_EQ(container->Find("other"), nullptr);
}

TEST_F(MetadataTest, RefusesWhatIsNoMetadata) {
  EXPECT_EQ(Load((directory / "missing.json").string()), "lumo.metadata.file.unreadable");
  EXPECT_EQ(Load(directory.string()), "lumo.metadata.file.unreadable");
  for (char const* text :
       {"", " ", "{", "{\"settings\":{}", "{\"settings\":{}} x", "{\"settings\":{\"a\":\"\xFF\"}}"}) {
    EXPECT_EQ(Load(File(text)), "lumo.metadata.file.malformed") << text;
  }
  for (char const* text : {"null", "[]", "3", "{}", R"({"other":{}})", R"({"settings":null})",
                           R"({"settings":[]})", R"({"settings":"x"})"}) {
    EXPECT_EQ(Load(File(text)), "lumo.metadata.component.missing") << text;
  }
  EXPECT_TRUE(container->Components().empty());
}

TEST_F(MetadataTest, RefusesAComponentTwice) {
  std::string const path = File(R"({"settings":{}})");
  EXPECT_EQ(Load(path), "");
  EXPECT_EQ(Load(path), "lumo.metadata.component.duplicate");
}

TEST_F(MetadataTest, TheOtherKindsLoadAlike) {
  std::string const path = File(R"({"settings":{"a":1}})");
  auto const metamodel = Lumo::Provider::Metadata::Metamodel::MetadataContainer::GetInstance();
  auto const authentication = Lumo::Provider::Metadata::Authentication::MetadataContainer::GetInstance();
  EXPECT_EQ(Helper::LoadMetamodelMetadataFile("settings", path, metamodel), nullptr);
  EXPECT_EQ(Helper::LoadAuthnMetadataFile("settings", path, authentication), nullptr);
  EXPECT_NE(metamodel->Find("settings"), nullptr);
  EXPECT_NE(authentication->Find("settings"), nullptr);
  EXPECT_NE(Helper::LoadMetamodelMetadataFile("x", path, metamodel), nullptr);
  EXPECT_NE(Helper::LoadAuthnMetadataFile("x", path, authentication), nullptr);
}

TEST(MetadataServices, NoneAreDefined) {
  EXPECT_TRUE(Helper::CliInterfaces(MetadataContainer::GetInstance()).empty());
  EXPECT_TRUE(
      Helper::MetamodelInterfaces(Lumo::Provider::Metadata::Metamodel::MetadataContainer::GetInstance())
          .empty());
  EXPECT_TRUE(
      Helper::AuthnInterfaces(Lumo::Provider::Metadata::Authentication::MetadataContainer::GetInstance())
          .empty());
  EXPECT_TRUE(Helper::MetadataAnonSvcNames().empty());
}

}  // namespace
