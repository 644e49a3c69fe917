#include "runtime/core/method.h"

#include <gtest/gtest.h>

namespace {

using namespace Lumo::Core;

TEST(MethodIdentifier, PrintsServiceAndOperation) {
  MethodIdentifier const method("com.orbane.halo.tasks", "get");
  EXPECT_EQ(method.service(), "com.orbane.halo.tasks");
  EXPECT_EQ(method.operation(), "get");
  EXPECT_EQ(method.ToString(), "com.orbane.halo.tasks.get");
}

TEST(MethodResult, ErrorIsFinalWithoutOutput) {
  auto const error = Lumo::Data::ErrorValue::GetInstance("some.error");
  auto const result = MethodResult::GetErrorInstance(error);
  EXPECT_EQ(result->output(), nullptr);
  EXPECT_EQ(result->error(), error);
  EXPECT_TRUE(result->final());
}

TEST(MethodResult, OutputIsNotFinal) {
  auto const output = Lumo::Data::VoidValue::GetInstance();
  auto const result = MethodResult::GetInstance(output);
  EXPECT_EQ(result->output(), output);
  EXPECT_EQ(result->error(), nullptr);
  EXPECT_FALSE(result->final());
}

TEST(Progress, FreshIsThatOfAFinishedCall) {
  Lumo::Progress const progress;
  EXPECT_EQ(progress.min, 0);
  EXPECT_EQ(progress.max, 1);
  EXPECT_EQ(progress.current, 1);
}

TEST(AsyncApiResultCb, DeliversAllThreeArguments) {
  std::shared_ptr<MethodResult const> seen;
  long long current = 0;
  bool continued = false;
  AsyncApiResultCb const callback([&](std::shared_ptr<MethodResult const> const& result,
                                      Lumo::Progress const& progress, AsyncApiResultCb::Continuation&& next) {
    seen = result;
    current = progress.current;
    next(nullptr);
  });
  auto const result = MethodResult::GetInstance(Lumo::Data::VoidValue::GetInstance());
  callback(result, Lumo::Progress{0, 10, 7},
           [&](std::shared_ptr<AsyncApiResultCb> const&) { continued = true; });
  EXPECT_EQ(seen, result);
  EXPECT_EQ(current, 7);
  EXPECT_TRUE(continued);
}

TEST(AsyncApiResultCb, CopiesShareTheFunction) {
  struct CountCopies {
    explicit CountCopies(int& to) : copies(&to) {}
    CountCopies(CountCopies const& other) : copies(other.copies) { ++*copies; }
    CountCopies(CountCopies&& other) = default;
    ~CountCopies() = default;
    CountCopies& operator=(CountCopies const&) = delete;
    CountCopies& operator=(CountCopies&&) = delete;
    void operator()(std::shared_ptr<MethodResult const> const& /*result*/, Lumo::Progress const& /*progress*/,
                    AsyncApiResultCb::Continuation&& /*next*/) const {}
    int* copies;
  };
  int copies = 0;
  AsyncApiResultCb const callback{CountCopies(copies)};
  AsyncApiResultCb const copy =
      callback;  // NOLINT(performance-unnecessary-copy-initialization): what is tested
  copy(nullptr, {}, {});
  EXPECT_EQ(copies, 0);
}

TEST(AsyncApiResultCb, EmptyOnes) {
  EXPECT_FALSE(AsyncApiResultCb());
  EXPECT_FALSE(AsyncApiResultCb(AsyncApiResultCb::Function()));
  EXPECT_THROW(AsyncApiResultCb()(nullptr, {}, {}), std::bad_function_call);
}

}  // namespace
