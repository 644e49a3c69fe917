#include "runtime/data/localizable_message.h"

#include <gtest/gtest.h>

#include "tests/unit/json/tree.h"

namespace Lumo::Data {
namespace {

using namespace Tree;
using Texts = std::list<std::string>;

TEST(LocalizableMessage, HasItsFourFields) {
  EXPECT_TRUE(DataValue::Equals(
      *MakeLocalizableMessage(BaseMessage("m.id", "text {1}", {"a", ""})),
      *Struct("com.orbane.lumo.std.localizable_message", {{"id", Str("m.id")},
                                                          {"default_message", Str("text {1}")},
                                                          {"args", List(Form::List, {Str("a"), Str("")})},
                                                          {"localized", Unset()}})));
}

TEST(LocalizableMessage, GivesItsArgumentsBack) {
  Texts const args{"a", "", "b"};
  EXPECT_EQ(MessageArguments(*MakeLocalizableMessage(BaseMessage("m.id", "text", args))), args);
}

TEST(LocalizableMessage, ReadsArgumentsOfAnyShape) {
  EXPECT_EQ(MessageArguments(*Struct("m", {})), Texts());
  EXPECT_EQ(MessageArguments(*Struct("m", {{"args", Str("a")}})), Texts());
  EXPECT_EQ(MessageArguments(*Struct("m", {{"args", List(Form::List, {Str("a"), Int(1), Str("c")})}})),
            (Texts{"a", "", "c"}));
  EXPECT_EQ(MessageArguments(*Error("m", {{"args", List(Form::Set, {Str("a")})}})), Texts{"a"});
}

}  // namespace
}  // namespace Lumo::Data
