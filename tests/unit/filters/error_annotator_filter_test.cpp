#include "security/error_annotator_filter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/logging/test_only_log_capture.h"
#include "tests/unit/filters/test_provider.h"

namespace {

namespace fs = std::filesystem;
using Host::Settings::SettingsApi::Filter::ErrorAnnotatorFilter;
using Lumo::Core::MethodResult;
using Lumo::Data::ErrorValue;
using Lumo::Data::StringValue;

constexpr char kSchemas[] = "/usr/lib/orbane/configmanager/schemas";

class ErrorAnnotatorFilterTest : public testing::Test {
 protected:
  void CallInto(Seen& seen) {
    filter->Invoke(std::make_shared<Lumo::Core::MethodIdentifier const>("a.b", "c"), nullptr,
                   TestActivation(), seen.Callback());
  }

  Seen Call() {
    Seen seen;
    CallInto(seen);
    return seen;
  }

  static std::string Originator(MethodResult const& result) {
    auto const* const text = Lumo::Data::As<StringValue>(result.error()->Find("__originator__"));
    return text ? std::string(text->value()) : std::string();
  }

  static void RemoveSchemas() {
    fs::create_directories(kSchemas);
    for (auto const& entry : fs::directory_iterator(kSchemas)) {
      fs::remove_all(entry);
    }
  }

  static void InstallSchema() {
    RemoveSchemas();
    std::ofstream(fs::path(kSchemas) / "ryn-base-1.0.0-schema.json") << "{}";
  }

  Orbane::TestOnlyLogCapture log;
  std::shared_ptr<TestProvider> next = std::make_shared<TestProvider>();
  std::shared_ptr<ErrorAnnotatorFilter> filter = std::make_shared<ErrorAnnotatorFilter>(next);
};

// One case and the first, because the id is kept for the life of the process.
TEST_F(ErrorAnnotatorFilterTest, StampsErrorsOnceTheOriginatorIsFound) {
  RemoveSchemas();
  next->result = MethodResult::GetErrorInstance(ErrorValue::GetInstance("e"));
  for (char const* const attempt : {"first", "tried again"}) {
    Seen unstamped;
    EXPECT_THROW(CallInto(unstamped), std::runtime_error) << attempt;
    EXPECT_EQ(unstamped.answers, 1) << attempt;
    EXPECT_EQ(unstamped.result, next->result);
    EXPECT_FALSE(unstamped.result->error()->HasField("__originator__"));
    EXPECT_EQ(unstamped.progress.current, 4);
    EXPECT_TRUE(unstamped.continues);
  }

  InstallSchema();
  Seen const seen = Call();
  EXPECT_EQ(Originator(*seen.result), "pak[ryn-base-1.0.0]");
  EXPECT_EQ(seen.result, next->result) << "modified in place";
  EXPECT_EQ(seen.result->error(), next->result->error());

  RemoveSchemas();
  next->result = MethodResult::GetErrorInstance(ErrorValue::GetInstance("e"));
  EXPECT_EQ(Originator(*Call().result), "pak[ryn-base-1.0.0]") << "kept";
}

TEST_F(ErrorAnnotatorFilterTest, HasAName) {
  EXPECT_EQ(filter->ToString(), "ErrorAnnotatorFilter");
}

TEST_F(ErrorAnnotatorFilterTest, KeepsAnOriginatorThatIsThere) {
  InstallSchema();
  auto const error = ErrorValue::GetInstance("e");
  error->SetField("__originator__", StringValue::GetInstance("pak[other]"));
  next->result = MethodResult::GetErrorInstance(error);
  EXPECT_EQ(Originator(*Call().result), "pak[other]");
}

TEST_F(ErrorAnnotatorFilterTest, LooksAtErrorsOnly) {
  auto const output = Lumo::Data::StructValue::GetInstance("s");
  next->result = MethodResult::GetInstance(output);
  EXPECT_EQ(Call().result, next->result);
  EXPECT_FALSE(output->HasField("__originator__"));
  next->result = nullptr;
  EXPECT_EQ(Call().answers, 1);
}

TEST_F(ErrorAnnotatorFilterTest, StampsAnErrorBesideAnOutput) {
  InstallSchema();
  next->result = std::make_shared<MethodResult>(Lumo::Data::VoidValue::GetInstance(),
                                                ErrorValue::GetInstance("e"), true);
  EXPECT_EQ(Originator(*Call().result), "pak[ryn-base-1.0.0]");
}

TEST_F(ErrorAnnotatorFilterTest, PassesAResultWithoutOutputAndError) {
  InstallSchema();
  next->result = std::make_shared<MethodResult>(nullptr, nullptr, true);
  EXPECT_EQ(Call().result, next->result);
}

TEST_F(ErrorAnnotatorFilterTest, PassesProgressAndContinuationOn) {
  Seen const seen = Call();
  EXPECT_EQ(seen.progress.current, 4);
  EXPECT_TRUE(seen.continues);
  EXPECT_TRUE(next->continued);
}

}  // namespace
