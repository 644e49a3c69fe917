// Bytes that came with a head and can't be un-read: this program's allocations that may fail do so on demand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>

#include "tests/unit/http_transaction/fake_connection.h"

namespace {

bool noMemory = false;

}  // namespace

void* operator new[](std::size_t size, std::nothrow_t const& /*tag*/) noexcept {
  if (noMemory) {
    return nullptr;
  }
  try {
    return ::operator new[](size);
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}

namespace Lumo::Transport::TestSupport {
namespace {

class UnreadFailureTest : public ConnectionTest, public testing::WithParamInterface<std::string> {
 protected:
  ~UnreadFailureTest() override { noMemory = false; }
};

TEST_P(UnreadFailureTest, ClosesTheConnectionWithoutAnAnswer) {
  ASSERT_NE(Exchange(Call(GetParam())), "");
  logger_->TakeLines();
  calls_.clear();
  noMemory = true;
  EXPECT_EQ(Exchange(Call(GetParam())), "");
  EXPECT_FALSE(wire_->open);
  EXPECT_TRUE(calls_.empty());
  EXPECT_THAT(logger_->TakeLines(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Stacks, UnreadFailureTest, testing::Values("", "Expect: 100-continue\r\n"));

}  // namespace
}  // namespace Lumo::Transport::TestSupport
