#include "runtime/data/value.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "runtime/json/serializers.h"
#include "tests/unit/json/tree.h"

namespace Lumo::Data {
namespace {

using namespace Tree;

TEST(Value, ReportsItsKind) {
  std::pair<DataValuePtr, int> const kinds[] = {
      {VoidValue::GetInstance(), 1},          {BooleanValue::GetInstance(true), 2},
      {IntegerValue::GetInstance(1), 3},      {StringValue::GetInstance(""), 4},
      {StructValue::GetInstance("n"), 5},     {ErrorValue::GetInstance("e"), 6},
      {OptionalValue::GetInstance(), 7},      {ListValue::GetInstance(Form::List), 8},
      {ListValue::GetInstance(Form::Set), 8}, {ListValue::GetInstance(Form::Map), 8},
      {DoubleValue::GetInstance(1), 9},       {BinaryValue::GetInstance(""), 10},
      {SecretValue::GetInstance(""), 11},     {ListValue::GetInstance(Form::EnumSet), 20},
  };
  for (auto const& [value, number] : kinds) {
    EXPECT_EQ(static_cast<int>(value->GetKind()), number);
    EXPECT_EQ(value->KindTag(), value->GetKind());
  }
}

TEST(Value, ListFormsHaveTheirNumbers) {
  EXPECT_EQ(static_cast<int>(Form::List), 1);
  EXPECT_EQ(static_cast<int>(Form::Map), 3);
  for (Form const form : {Form::List, Form::Set, Form::Map, Form::EnumSet}) {
    EXPECT_EQ(ListValue::GetInstance(form)->form(), form);
  }
}

TEST(Value, CastsByKind) {
  DataValuePtr const error = ErrorValue::GetInstance("e");
  DataValuePtr const structure = StructValue::GetInstance("s");
  EXPECT_TRUE(As<CompoundValue>(error));
  EXPECT_TRUE(As<CompoundValue>(structure));
  EXPECT_TRUE(As<ErrorValue>(error));
  EXPECT_FALSE(As<ErrorValue>(structure));
  EXPECT_TRUE(As<StructValue>(structure));
  EXPECT_TRUE(As<StructValue>(error));
  EXPECT_EQ(As<StructValue>(error)->GetKind(), Kind::Error);
  EXPECT_FALSE(As<StructValue>(DataValuePtr(ListValue::GetInstance(Form::List))));
  EXPECT_TRUE(As<ListValue>(DataValuePtr(ListValue::GetInstance(Form::EnumSet))));
  EXPECT_FALSE(As<StringValue>(DataValuePtr(SecretValue::GetInstance("s"))));
  EXPECT_FALSE(As<StringValue>(DataValuePtr()));
  EXPECT_EQ(As<StringValue>(static_cast<DataValue const*>(nullptr)), nullptr);
}

TEST(Value, ACastPointerOwnsTheValue) {
  auto text = As<StringValue>(DataValuePtr(StringValue::GetInstance("kept")));
  EXPECT_EQ(text->value(), "kept");
}

TEST(Value, TextsAreCopied) {
  for (std::size_t const size : {0, 1, 15, 16, 100'000}) {
    std::string source(size, 'x');
    auto const text = StringValue::GetInstance(source);
    auto const secret = SecretValue::GetInstance(source);
    auto const structure = StructValue::GetInstance(source);
    source.assign(size, 'y');
    EXPECT_EQ(text->value(), std::string(size, 'x'));
    EXPECT_EQ(secret->value(), std::string(size, 'x'));
    EXPECT_EQ(structure->name(), std::string(size, 'x'));
  }
}

TEST(Value, FieldsKeepTheOrderOfInsertion) {
  auto structure = StructValue::GetInstance("n");
  for (int index = 0; index < 100; ++index)
    structure->SetField("field" + std::to_string(99 - index), Int(index));
  structure->SetField("field50", Str("replaced"));
  ASSERT_EQ(structure->size(), 100U);
  for (std::size_t index = 0; index < 100; ++index) {
    EXPECT_EQ(structure->FieldName(index), "field" + std::to_string(99 - index));
  }
  EXPECT_EQ(As<StringValue>(structure->Find("field50"))->value(), "replaced");
  EXPECT_TRUE(structure->HasField("field0"));
  EXPECT_FALSE(structure->HasField("field100"));
  EXPECT_EQ(structure->Find("field100"), nullptr);
}

TEST(Value, MissingFieldIsAMessage) {
  auto const structure = StructValue::GetInstance("n");
  DataValuePtr value = Int(1);
  MessageList errors;
  EXPECT_FALSE(structure->GetField("gone", value, errors));
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors.front().id(), "lumo.data.field.missing");
  EXPECT_EQ(errors.front().args(), std::list<std::string>{"gone"});
  EXPECT_EQ(errors.front().defaultMessage(), "The field 'gone' is missing.");
  EXPECT_EQ(As<IntegerValue>(value)->value(), 1) << "outputs stay untouched on failure";

  structure->SetField("gone", Str("x"));
  EXPECT_TRUE(structure->GetField("gone", value, errors));
  EXPECT_EQ(errors.size(), 1U);
  EXPECT_EQ(As<StringValue>(value)->value(), "x");
}

TEST(Value, FieldNamesOfAnyLengthAreKept) {
  auto structure = StructValue::GetInstance("n");
  for (std::size_t const size : {0, 1, 63, 64, 65, 1000}) {
    std::string name(size, 'a');
    structure->SetField(name, Int(static_cast<long long>(size)));
    name.assign(size, 'b');
    EXPECT_TRUE(structure->HasField(std::string(size, 'a')));
    EXPECT_FALSE(size > 0 && structure->HasField(name));
  }
}

TEST(Value, MoreFieldNamesThanTheTableHoldsAreKept) {
  auto structure = StructValue::GetInstance("n");
  structure->ReserveFields(10'000);
  for (int index = 0; index < 10'000; ++index)
    *structure->AddFieldSlot("name" + std::to_string(index)) = Int(index);
  for (int index = 0; index < 10'000; index += 97) {
    EXPECT_EQ(As<IntegerValue>(structure->Find("name" + std::to_string(index)))->value(), index);
  }
}

TEST(Value, StructuresAreBuiltInManyThreads) {
  std::vector<std::thread> threads;
  std::vector<std::string> texts(4);
  for (std::string& text : texts) {
    threads.emplace_back([&text] {
      auto structure = StructValue::GetInstance("n");
      for (int index = 0; index < 500; ++index)
        structure->SetField("shared" + std::to_string(index), Int(index));
      text = structure->ToString();
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (std::string const& text : texts)
    EXPECT_EQ(text, texts.front());
}

TEST(Value, FieldSlotsStayValidWithinTheReservedNumber) {
  auto structure = StructValue::GetInstance("n");
  structure->ReserveFields(3);
  DataValuePtr* const first = structure->AddFieldSlot("a");
  DataValuePtr* const second = structure->AddFieldSlot("b");
  structure->AddFieldSlot("c");
  *second = Int(2);
  *first = Int(1);
  EXPECT_EQ(structure->ToString(), R"(n{"a":1,"b":2,"c":null})");
}

TEST(Value, OptionalGivesItsSlot) {
  auto optional = OptionalValue::GetInstance();
  EXPECT_FALSE(optional->HasValue());
  EXPECT_EQ(optional->Inner(), nullptr);
  EXPECT_FALSE(optional->GetInner());
  DataValuePtr* const slot = optional->value(nullptr);
  EXPECT_TRUE(optional->HasValue());
  *slot = Int(7);
  EXPECT_EQ(As<IntegerValue>(optional->Inner())->value(), 7);
  EXPECT_EQ(As<IntegerValue>(optional->GetInner())->value(), 7);
}

TEST(Value, ListsGrow) {
  auto list = ListValue::GetInstance(Form::List);
  for (int index = 0; index < 1000; ++index)
    list->Add(Int(index));
  *list->AddSlot() = Str("last");
  ASSERT_EQ(list->size(), 1001U);
  EXPECT_EQ(As<IntegerValue>(list->Item(999))->value(), 999);
  EXPECT_EQ(As<StringValue>(list->GetItem(1000))->value(), "last");
}

TEST(Value, ErrorsCarryTheirMessages) {
  auto const error =
      ErrorValue::Create("e.id", {BaseMessage("m.1", "first", {"a", "b"}), BaseMessage("m.2", "second", {})});
  EXPECT_EQ(error->name(), "e.id");
  EXPECT_TRUE(DataValue::Equals(
      *error,
      *Error("e.id", {{"messages", List(Form::List, {Struct("com.orbane.lumo.std.localizable_message",
                                                            {{"id", Str("m.1")},
                                                             {"default_message", Str("first")},
                                                             {"args", List(Form::List, {Str("a"), Str("b")})},
                                                             {"localized", Unset()}}),
                                                     Struct("com.orbane.lumo.std.localizable_message",
                                                            {{"id", Str("m.2")},
                                                             {"default_message", Str("second")},
                                                             {"args", List(Form::List, {})},
                                                             {"localized", Unset()}})})}})));
  EXPECT_EQ(ErrorValue::GetInstance("e")->size(), 0U);
  EXPECT_TRUE(
      DataValue::Equals(*ErrorValue::Create("e", {}), *Error("e", {{"messages", List(Form::List, {})}})));
}

TEST(Value, EqualsLooksAtEverything) {
  DataValuePtr const values[] = {
      Void(),
      Bool(false),
      Bool(true),
      Int(0),
      Int(1),
      Real(0),
      Real(-0.0),
      Str(""),
      Str("a"),
      SecretValue::GetInstance("a"),
      BinaryValue::GetInstance("a"),
      Unset(),
      Optional(Int(1)),
      Optional(Int(2)),
      Optional(nullptr),
      List(Form::List, {}),
      List(Form::Set, {}),
      List(Form::Map, {}),
      List(Form::EnumSet, {}),
      List(Form::List, {Int(1)}),
      List(Form::List, {Int(1), Int(2)}),
      List(Form::List, {Int(2), Int(1)}),
      List(Form::List, {nullptr}),
      Struct("", {}),
      Struct("a", {}),
      Error("a", {}),
      Struct("a", {{"x", Int(1)}}),
      Struct("a", {{"y", Int(1)}}),
      Struct("a", {{"x", Int(1)}, {"y", Int(1)}}),
      Struct("a", {{"y", Int(1)}, {"x", Int(1)}}),
  };
  for (auto const& a : values) {
    for (auto const& b : values) {
      EXPECT_EQ(DataValue::Equals(*a, *b), a == b) << a->ToString() << " " << b->ToString();
    }
  }
}

TEST(Value, PrintsNamesAndHidesSecrets) {
  auto const value =
      Error("e.id",
            {{"s", SecretValue::GetInstance("hunter2")},
             {"o", Optional(SecretValue::GetInstance("hunter2"))},
             {"u", Unset()},
             {"l", List(Form::List, {Struct("in", {{"x", Real(1.5)}}), SecretValue::GetInstance("hunter2")})},
             {"m", List(Form::Map, {Tree::Entry(Str("k"), SecretValue::GetInstance("hunter2"))})},
             {"b", BinaryValue::GetInstance("abc")},
             {"t", Str("a\nb")}});
  EXPECT_EQ(value->ToString(),
            R"(e.id{"s":"***","o":"***","l":[in{"x":1.5},"***"],"m":{"k":"***"},"b":"YWJj","t":"a\nb"})");
  EXPECT_EQ(SecretValue::GetInstance("hunter2")->ToString(), "\"***\"");
  EXPECT_EQ(
      List(Form::Map, {Tree::Entry(SecretValue::GetInstance("hunter2"), Int(1))})->ToString().find("hunter2"),
      std::string::npos);
}

TEST(Value, PrintsAtMost16KiB) {
  EXPECT_EQ(Str(std::string(16'382, 'x'))->ToString().size(), 16'384U);
  EXPECT_EQ(Str(std::string(1'000'000, 'x'))->ToString().size(), 16'384U);
  std::string umlauts;
  while (umlauts.size() < 20'000)
    umlauts += "\xC3\xA4";
  std::string const text = Str(umlauts)->ToString();
  EXPECT_EQ(text.size(), 16'383U) << "no half of a letter is left at the end";
  auto list = ListValue::GetInstance(Form::List);
  for (int index = 0; index < 100'000; ++index)
    list->Add(Struct("name", {{"field", Int(index)}}));
  EXPECT_EQ(list->ToString().size(), 16'384U);
}

// As many levels of each container would overflow the stack of any function that recursed.
TEST(Value, NothingRecursesOverDeepValues) {
  struct Case {
    int depth;
    DataValuePtr (*wrap)(DataValuePtr const&);
  } const cases[] = {
      {1'000'000, [](DataValuePtr const& inner) -> DataValuePtr { return List(Form::List, {inner}); }},
      {200'000,
       [](DataValuePtr const& inner) -> DataValuePtr {
         return Struct("n", {{"f", inner}});
       }},
      {200'000, [](DataValuePtr const& inner) { return Optional(inner); }},
      {200'000,
       [](DataValuePtr const& inner) -> DataValuePtr {
         return List(Form::Map, {Tree::Entry(Str("k"), inner)});
       }},
  };
  for (Case const& test : cases) {
    DataValuePtr first = Int(1);
    DataValuePtr second = Int(1);
    for (int depth = 0; depth < test.depth; ++depth) {
      first = test.wrap(first);
      second = test.wrap(second);
    }
    EXPECT_TRUE(DataValue::Equals(*first, *second));
    EXPECT_LE(first->ToString().size(), 16'384U);
    std::string text;
    std::shared_ptr<ErrorValue const> error;
    Protocol::Json::JsonDataSerializer<0>::SerializeValue(first, text, error);
    EXPECT_FALSE(error);
    EXPECT_GT(text.size(), 2U * static_cast<std::size_t>(test.depth));
  }
}

TEST(Value, DestructionOfAWideAndDeepTreeReachesEveryLeaf) {
  auto leaf = std::make_shared<IntegerValue>(1);
  std::weak_ptr<IntegerValue> const watch = leaf;
  DataValuePtr tree = leaf;
  for (int depth = 0; depth < 1000; ++depth) {
    tree = List(Form::List, {leaf, tree, Struct("n", {{"a", leaf}, {"b", Optional(leaf)}})});
  }
  leaf.reset();
  EXPECT_FALSE(watch.expired());
  tree.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(Value, ASharedPartOutlivesItsTree) {
  DataValuePtr const part = List(Form::List, {List(Form::List, {Int(5)})});
  { DataValuePtr const tree = List(Form::List, {part, List(Form::List, {part})}); }
  EXPECT_EQ(part->ToString(), "[[5]]");
}

}  // namespace
}  // namespace Lumo::Data
