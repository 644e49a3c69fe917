#include "runtime/introspection/services.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

using namespace Lumo;
using namespace Lumo::Data;
using Provider::Introspection::BindServices;
using Provider::Introspection::Container;

class FakeMethod final : public Provider::AsyncApiMethod {
 public:
  FakeMethod(std::string const& service, std::string const& name, Provider::MethodDefinition definition)
      : identifier_(std::make_shared<Core::MethodIdentifier const>(service, name)),
        definition_(std::move(definition)) {}
  std::shared_ptr<Core::MethodIdentifier const> const& identifier() const override { return identifier_; }
  Provider::MethodDefinition const& definition() const override { return definition_; }
  void Invoke(DataValuePtr const& /*input*/, std::shared_ptr<Core::AsyncActivation> const& /*activation*/,
              Core::AsyncApiResultCb const& /*callback*/) const override {}

 private:
  std::shared_ptr<Core::MethodIdentifier const> identifier_;
  Provider::MethodDefinition definition_;
};

/// A service of described operations that do nothing.
class FakeService final : public Provider::AsyncApiInterface {
 public:
  FakeService(std::string const& name, std::map<std::string, Provider::MethodDefinition> operations)
      : name_(std::make_shared<std::string const>(name)), operations_(std::move(operations)) {}
  std::shared_ptr<std::string const> const& identifier() const override { return name_; }
  std::vector<std::string> OperationNames() const override {
    std::vector<std::string> names;
    for (auto const& [name, definition] : operations_) {
      names.push_back(name);
    }
    return names;
  }
  bool Find(std::string const& operation, std::shared_ptr<Provider::AsyncApiMethod const>& method,
            MessageList& errors) const override {
    auto const found = operations_.find(operation);
    if (found == operations_.end()) {
      errors.push_back(Message<CoreTag>::Make("lumo.provider.operation.not.found", *name_, operation));
      return false;
    }
    method = std::make_shared<FakeMethod>(*name_, operation, found->second);
    return true;
  }

 private:
  std::shared_ptr<std::string const> name_;
  std::map<std::string, Provider::MethodDefinition> operations_;
};

std::shared_ptr<Container> TwoServices(std::string const& outputOfScan = "a.result") {
  Provider::MethodDefinition scan{{{"spec", "a.spec"}, {"quick", "optional<boolean>"}},
                                  outputOfScan,
                                  {"com.orbane.lumo.std.errors.invalid_argument"},
                                  true};
  return Container::GetInstance(
      {std::make_shared<FakeService const>(
           "a.software", std::map<std::string, Provider::MethodDefinition>{{"scan", scan}, {"apply", {}}}),
       std::make_shared<FakeService const>("a.tasks",
                                           std::map<std::string, Provider::MethodDefinition>{{"get", {}}})});
}

class IntrospectionTest : public testing::Test {
 protected:
  void Bind() {
    for (auto const& api :
         BindServices(*container, "TheProvider", L10n::LocalizerHelpers::GetDefaultLocalizer())) {
      MessageList errors;
      container->Add(api, errors);
      ASSERT_TRUE(errors.empty());
    }
  }

  std::shared_ptr<Core::MethodResult const> Call(std::string const& service, std::string const& operation,
                                                 std::map<std::string, std::string> const& input = {}) {
    std::shared_ptr<Provider::AsyncApiInterface const> api;
    std::shared_ptr<Provider::AsyncApiMethod const> method;
    MessageList errors;
    EXPECT_TRUE(container->Find(
        std::make_shared<std::string const>("com.orbane.lumo.std.introspection." + service), api, errors));
    EXPECT_TRUE(api->Find(operation, method, errors));
    auto const value = StructValue::GetInstance("");
    for (auto const& [name, text] : input) {
      value->SetField(name, StringValue::GetInstance(text));
    }
    std::shared_ptr<Core::MethodResult const> got;
    method->Invoke(value, Core::AsyncActivation::GetInstance(nullptr),
                   Core::AsyncApiResultCb([&got](auto const& result, auto const&, auto&&) { got = result; }));
    return got;
  }

  static std::vector<std::string> Texts(DataValue const* list) {
    std::vector<std::string> texts;
    auto const* const values = As<ListValue>(list);
    for (std::size_t i = 0; values && i < values->size(); ++i) {
      texts.emplace_back(As<StringValue>(values->Item(i))->value());
    }
    return texts;
  }

  static std::string Text(std::shared_ptr<Core::MethodResult const> const& result, char const* field) {
    return std::string(As<StringValue>(As<CompoundValue>(result->output().get())->Find(field))->value());
  }

  std::shared_ptr<Container> container = TwoServices();
};

using Names = std::vector<std::string>;

TEST_F(IntrospectionTest, ServiceList) {
  Bind();
  EXPECT_EQ(
      Texts(Call("service", "list")->output().get()),
      (Names{"a.software", "a.tasks", "com.orbane.lumo.std.introspection.operation",
             "com.orbane.lumo.std.introspection.provider", "com.orbane.lumo.std.introspection.service"}));
}

TEST_F(IntrospectionTest, ServiceGet) {
  Bind();
  auto const result = Call("service", "get", {{"service", "a.software"}});
  EXPECT_EQ(Texts(As<CompoundValue>(result->output().get())->Find("operations")), (Names{"apply", "scan"}));
}

TEST_F(IntrospectionTest, OperationList) {
  Bind();
  EXPECT_EQ(Texts(Call("operation", "list", {{"service", "a.software"}})->output().get()),
            (Names{"apply", "scan"}));
}

TEST_F(IntrospectionTest, OperationGet) {
  Bind();
  auto const result = Call("operation", "get", {{"service", "a.software"}, {"operation", "scan"}});
  auto const* const info = As<CompoundValue>(result->output().get());
  ASSERT_NE(info, nullptr);
  auto const* const parameters = As<ListValue>(info->Find("parameters"));
  ASSERT_EQ(parameters->size(), 2U);
  auto const* const quick = As<CompoundValue>(parameters->Item(1));
  EXPECT_EQ(As<StringValue>(quick->Find("name"))->value(), "quick");
  EXPECT_EQ(As<StringValue>(quick->Find("type"))->value(), "optional<boolean>");
  EXPECT_EQ(Text(result, "output"), "a.result");
  EXPECT_EQ(Texts(info->Find("errors")), Names{"com.orbane.lumo.std.errors.invalid_argument"});
  EXPECT_TRUE(As<BooleanValue>(info->Find("task"))->value());
}

TEST_F(IntrospectionTest, UnknownNamesAreNotFound) {
  Bind();
  struct Case {
    char const* service;
    char const* operation;
    std::map<std::string, std::string> input;
  };
  for (Case const& c :
       {Case{"service", "get", {{"service", "x"}}}, Case{"operation", "list", {{"service", "x"}}},
        Case{"operation", "get", {{"service", "x"}, {"operation", "scan"}}},
        Case{"operation", "get", {{"service", "a.software"}, {"operation", "x"}}}}) {
    auto const result = Call(c.service, c.operation, c.input);
    ASSERT_NE(result->error(), nullptr);
    EXPECT_EQ(result->error()->name(), "com.orbane.lumo.std.errors.not_found");
    EXPECT_EQ(As<ListValue>(result->error()->Find("messages"))->size(), 1U);
  }
}

TEST_F(IntrospectionTest, ProviderTellsItsNameAndAChecksum) {
  Bind();
  auto const result = Call("provider", "get");
  EXPECT_EQ(Text(result, "id"), "TheProvider");
  std::string const checksum = Text(result, "checksum");
  EXPECT_TRUE(std::regex_match(checksum, std::regex("[0-9a-f]{64}"))) << checksum;
  EXPECT_EQ(Text(Call("provider", "get"), "checksum"), checksum);

  container = TwoServices("a.other");
  Bind();
  EXPECT_NE(Text(Call("provider", "get"), "checksum"), checksum) << "another output is another interface";
}

}  // namespace
