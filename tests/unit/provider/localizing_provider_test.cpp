#include "runtime/provider/localizing_provider.h"

#include <gtest/gtest.h>

#include "runtime/core/activation.h"
#include "runtime/errors/categories.h"

namespace {

using namespace Lumo;

/// Answers each call at once with `result`, and keeps the callback that it was given.
class AnsweringProvider final : public Core::AsyncApiProvider {
 public:
  std::string ToString() const override { return "AnsweringProvider"; }
  void Invoke(std::shared_ptr<Core::MethodIdentifier const> const& /*method*/,
              Data::DataValuePtr const& /*input*/,
              std::shared_ptr<Core::AsyncActivation> const& /*activation*/,
              Core::AsyncApiResultCb const& callback) override {
    callback(result, Progress{0, 9, 4}, [](std::shared_ptr<Core::AsyncApiResultCb> const& /*next*/) {});
  }
  std::shared_ptr<Core::MethodResult const> result;
};

class LocalizingProviderTest : public testing::Test {
 protected:
  LocalizingProviderTest() {
    auto const templates = [](std::string const& id, boost::string_view locale,
                              std::error_code& ec) -> std::string {
      if (locale == "de") {
        return "Text zu " + id;
      }
      ec = L10n::L10nErrc::LocaleNotSupported;
      return {};
    };
    auto const localizer = std::make_shared<L10n::Localizer const>(
        std::vector<std::string>{"de"}, templates, L10n::LocalizerHelpers::GetDefaultFormatter(),
        L10n::LocalizerSpec());
    provider = std::make_shared<Provider::LocalizingProvider>(localizer, next);
  }

  /// Calls with that accept-language header and gives the result.
  std::shared_ptr<Core::MethodResult const> Call(std::string const& acceptLanguage) {
    auto const context = std::make_shared<Core::ExecutionContext>();
    context->applicationData()["accept-language"] = acceptLanguage;
    auto const activation = Core::AsyncActivation::GetInstance(context);
    std::error_code ec;
    activation->localeSpec(L10n::LocaleSpecHelpers::ExtractLocaleSpec(context, ec));
    std::shared_ptr<Core::MethodResult const> got;
    provider->Invoke(
        std::make_shared<Core::MethodIdentifier const>("a.b", "c"), nullptr, activation,
        Core::AsyncApiResultCb([&got](std::shared_ptr<Core::MethodResult const> const& result,
                                      Progress const& progress, Core::AsyncApiResultCb::Continuation&& more) {
          got = result;
          EXPECT_EQ(progress.current, 4);
          EXPECT_TRUE(more);
        }));
    return got;
  }

  static std::string FirstText(Core::MethodResult const& result) {
    auto const* const messages = Data::As<Data::ListValue>(result.error()->Find("messages"));
    auto const* const localized =
        Data::As<Data::OptionalValue>(Data::As<Data::StructValue>(messages->Item(0))->Find("localized"));
    auto const* const text = localized ? Data::As<Data::StringValue>(localized->Inner()) : nullptr;
    return text ? std::string(text->value()) : std::string();
  }

  std::shared_ptr<AnsweringProvider> next = std::make_shared<AnsweringProvider>();
  std::shared_ptr<Provider::LocalizingProvider> provider;
};

TEST_F(LocalizingProviderTest, GivesErrorsTheirTextInTheCallersLanguage) {
  next->result = Core::MethodResult::GetErrorInstance(
      Data::ErrorValue::Create("some.error", {BaseMessage("some.id", "some text", {})}));
  auto const result = Call("fr, de;q=0.5");
  EXPECT_EQ(FirstText(*result), "Text zu some.id");
  EXPECT_EQ(result->output(), nullptr);
  EXPECT_TRUE(result->final());
  EXPECT_EQ(result->error()->name(), "some.error");
}

TEST_F(LocalizingProviderTest, LeavesResultsForReadersOfDefaultTexts) {
  next->result = Core::MethodResult::GetErrorInstance(
      Data::ErrorValue::Create("some.error", {BaseMessage("some.id", "some text", {})}));
  for (char const* header : {"", "en", "en-GB, de", "fr", "bad header"}) {
    EXPECT_EQ(Call(header), next->result) << header;
  }
}

TEST_F(LocalizingProviderTest, PassesOtherResultsAsTheyAre) {
  next->result = Core::MethodResult::GetInstance(Data::StringValue::GetInstance("x"));
  EXPECT_EQ(Call("de"), next->result);
  next->result = nullptr;
  EXPECT_EQ(Call("de"), nullptr);
}

TEST_F(LocalizingProviderTest, NeedsNoLocale) {
  next->result = Core::MethodResult::GetInstance(Data::StringValue::GetInstance("x"));
  bool answered = false;
  provider->Invoke(
      nullptr, nullptr, Core::AsyncActivation::GetInstance(nullptr),
      Core::AsyncApiResultCb([&answered](auto const&, auto const&, auto&&) { answered = true; }));
  EXPECT_TRUE(answered);
}

}  // namespace
