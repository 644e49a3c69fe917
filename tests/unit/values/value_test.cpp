#include "runtime/data/value.h"

#include <gtest/gtest.h>

#include <string>

namespace Lumo::Data {
namespace {

TEST(Value, DestructionOfADeepListDoesNotRecurse) {
  DataValuePtr value = IntegerValue::GetInstance(1);
  for (int depth = 0; depth < 1'000'000; ++depth) {
    auto list = ListValue::GetInstance(ListValue::Form::List);
    list->Add(value);
    value = list;
  }
  EXPECT_TRUE(DataValue::Equals(*value, *value));
  EXPECT_EQ(value->ToString().size(), 16384U);
  value.reset();
}

}  // namespace
}  // namespace Lumo::Data
