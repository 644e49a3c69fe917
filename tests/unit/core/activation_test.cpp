#include "runtime/core/activation.h"

#include <gtest/gtest.h>

#include "runtime/l10n/localizer.h"

namespace {

using namespace Lumo::Core;

std::shared_ptr<AsyncActivation> Activation(std::map<std::string, std::string> const& headers = {}) {
  auto const context = std::make_shared<ExecutionContext>();
  context->applicationData() = headers;
  return AsyncActivation::GetInstance(context);
}

TEST(AsyncActivation, TakesTheOperationIdFromTheContext) {
  EXPECT_EQ(ActivationHelpers::GetActivationOpId(Activation({{"opId", "nightly-42"}})), "nightly-42");
  EXPECT_EQ(ActivationHelpers::GetActivationOpId(Activation()), "");
  EXPECT_EQ(ActivationHelpers::GetActivationOpId(AsyncActivation::GetInstance(nullptr)), "");
}

TEST(AsyncActivation, HoldsTheRequestId) {
  auto const activation = Activation();
  Lumo::RequestIdHelper::Set(activation->requestContext(), "217");
  EXPECT_EQ(activation->requestContext().at("requestId"), "217");
  Lumo::RequestIdHelper::Set(activation->requestContext(), "218");
  EXPECT_EQ(activation->requestContext().at("requestId"), "218");
}

TEST(AsyncActivation, KnowsTheUserOfItsAuthenticationData) {
  auto const activation = Activation();
  EXPECT_EQ(ActivationHelpers::ExtractUsername(activation), "");
  auto const data = Lumo::Data::StructValue::GetInstance("auth");
  activation->authData(data);
  EXPECT_EQ(ActivationHelpers::ExtractUsername(activation), "");
  auto const named = Lumo::Data::StructValue::GetInstance("auth");
  named->SetField("username", Lumo::Data::StringValue::GetInstance("croot"));
  activation->authData(named);
  EXPECT_EQ(ActivationHelpers::ExtractUsername(activation), "croot");
  EXPECT_EQ(activation->authData(), named);
}

TEST(AsyncActivation, LocaleIsTheProgramsUntilSet) {
  auto const activation = Activation();
  EXPECT_EQ(activation->requestLocalizer().locale().language.ToString(), "en_US");
  EXPECT_EQ(activation->requestLocalizer().localizer().locales(), std::vector<std::string>{"en_US"});

  auto const spec = std::make_shared<Lumo::L10n::LocaleSpec>();
  auto const localizer = Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer();
  activation->localeSpec(spec);
  activation->localizer(localizer);
  EXPECT_EQ(&activation->requestLocalizer().locale(), spec.get());
  EXPECT_EQ(&activation->requestLocalizer().localizer(), localizer.get());
}

TEST(SetPeerTcpBindingInfo, StoresAddressAndPort) {
  auto const context = std::make_shared<ExecutionContext>();
  ActivationHelpers::SetPeerTcpBindingInfo(context, {"::1", 4711});
  EXPECT_EQ(context->applicationData().at("userBindingInfoKey"), "::1");
  EXPECT_EQ(context->applicationData().at("peerPort"), "4711");
}

TEST(GetPeerTcpBindingInfo, GivesWhatWasStored) {
  using Peer = std::pair<std::string, std::uint32_t>;
  auto const context = std::make_shared<ExecutionContext>();
  EXPECT_EQ(ActivationHelpers::GetPeerTcpBindingInfo(nullptr), std::nullopt);
  EXPECT_EQ(ActivationHelpers::GetPeerTcpBindingInfo(context), std::nullopt);
  ActivationHelpers::SetPeerTcpBindingInfo(context, {"127.0.0.1", 65535});
  EXPECT_EQ(ActivationHelpers::GetPeerTcpBindingInfo(context), (Peer{"127.0.0.1", 65535}));
}

}  // namespace
