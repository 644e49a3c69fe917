#include "runtime/data/value_to_native.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bindings/com/orbane/lumo/std/errors.h"
#include "bindings/com/orbane/test.h"
#include "runtime/data/adapt.h"
#include "test_values.h"

namespace {

namespace T = Com::Orbane::Test;
namespace Errors = Com::Orbane::Lumo::Std::Errors;
using namespace TestValues;
using Lumo::MessageList;
using Lumo::Data::DynamicStructure;
using Lumo::Data::FromValue;
using Lumo::Data::ListValue;
using Lumo::Data::ValueToNativeAdapter;
using testing::ElementsAre;
using testing::IsEmpty;

using Leaves = std::list<std::shared_ptr<T::Leaf const>>;

template <typename N>
N Adapted(DataValuePtr const& value) {
  N native{};
  MessageList errors;
  EXPECT_TRUE(FromValue(value, native, errors));
  EXPECT_TRUE(errors.empty()) << errors.front().defaultMessage();
  return native;
}

/// The faults as "id(arg,arg)".
template <typename N>
std::list<std::string> Faults(DataValuePtr const& value, ValueToNativeAdapter::UnknownFields unknown =
                                                             ValueToNativeAdapter::UnknownFields::Ignore) {
  N native{};
  MessageList errors;
  EXPECT_FALSE(FromValue(value, native, errors, unknown));
  std::list<std::string> texts;
  for (Lumo::BaseMessage const& message : errors) {
    std::string text = message.id() + "(";
    for (std::string const& arg : message.args()) {
      text += (text.back() == '(' ? "" : ",") + arg;
    }
    texts.push_back(text + ")");
  }
  return texts;
}

DataValuePtr Leaf(std::string const& name) {
  return Object({{"name", Text(name)}});
}

DataValuePtr Scalars(std::initializer_list<Field> changes) {
  auto const structure = Lumo::Data::StructValue::GetInstance("");
  structure->SetField("flag", Flag(true));
  structure->SetField("count", Int(3));
  structure->SetField("ratio", Real(0.5));
  structure->SetField("text", Text("t"));
  structure->SetField("password", Text("p"));
  structure->SetField("when", Text("2024-02-29T12:00:00.125Z"));
  structure->SetField("anything", Object({}));
  structure->SetField("colour", Text("GREEN"));
  for (Field const& change : changes) {
    structure->SetField(change.first, change.second);
  }
  return structure;
}

TEST(ValueToNative, ScalarsAreRead) {
  auto const record = Adapted<T::Scalars>(Scalars({}));
  EXPECT_TRUE(record.flag);
  EXPECT_EQ(record.count, 3);
  EXPECT_EQ(record.ratio, 0.5);
  EXPECT_EQ(record.text, "t");
  EXPECT_EQ(record.password.text(), "p");
  EXPECT_EQ(record.when.ToString(), "2024-02-29T12:00:00.125Z");
  EXPECT_TRUE(record.anything);
  EXPECT_EQ(record.colour, T::Colour::GREEN);
}

TEST(ValueToNative, AnIntegerServesAsDouble) {
  EXPECT_EQ(Adapted<double>(Int(4)), 4.0);
}

TEST(ValueToNative, AnIntegerServesAsTime) {
  EXPECT_EQ(Adapted<Lumo::DateTime>(Int(1500)).ToString(), "1970-01-01T00:00:01.500Z");
}

TEST(ValueToNative, SecretsAreReadFromSecretsAndTexts) {
  EXPECT_EQ(Adapted<Lumo::Secret>(Lumo::Data::SecretValue::GetInstance("a")).text(), "a");
  EXPECT_EQ(Adapted<Lumo::Secret>(Text("b")).text(), "b");
}

TEST(ValueToNative, WrongTypesNameTheField) {
  struct Case {
    char const* field;
    DataValuePtr value;
    char const* fault;
  };
  Case const cases[] = {
      {"flag", Int(1), "lumo.data.bad.cast(flag,integer,boolean)"},
      {"flag", Text("true"), "lumo.data.bad.cast(flag,string,boolean)"},
      {"count", Real(1.0), "lumo.data.bad.cast(count,double,integer)"},
      {"count", Text("1"), "lumo.data.bad.cast(count,string,integer)"},
      {"ratio", Text("1"), "lumo.data.bad.cast(ratio,string,double)"},
      {"text", Int(1), "lumo.data.bad.cast(text,integer,string)"},
      {"text", Null(), "lumo.data.bad.cast(text,null,string)"},
      {"text", Unset(), "lumo.data.bad.cast(text,null,string)"},
      {"text", Lumo::Data::SecretValue::GetInstance("s"), "lumo.data.bad.cast(text,secret,string)"},
      {"password", Int(1), "lumo.data.bad.cast(password,integer,secret)"},
      {"when", Text("yesterday"), "lumo.data.bad.cast(when,string,date_time)"},
      {"when", Flag(true), "lumo.data.bad.cast(when,boolean,date_time)"},
      {"colour", Flag(true), "lumo.data.bad.cast(colour,boolean,com.orbane.test.colour)"},
      {"colour", Null(), "lumo.data.bad.cast(colour,null,com.orbane.test.colour)"},
  };
  for (Case const& one : cases) {
    EXPECT_THAT(Faults<T::Scalars>(Scalars({{one.field, one.value}})), ElementsAre(one.fault)) << one.field;
  }
}

TEST(ValueToNative, UnknownEnumeratorsPassAsTheUnknownValue) {
  EXPECT_EQ(Adapted<T::Colour>(Text("PUCE")), T::Colour(T::Colour::UNKNOWN, "PUCE"));
  EXPECT_EQ(Adapted<T::Colour>(Int(4)), T::Colour::GREEN);
  EXPECT_EQ(Adapted<T::Colour>(Int(77)), T::Colour(T::Colour::UNKNOWN, "77"));
  EXPECT_EQ(Adapted<T::Colour>(Int(77)).number(), 9);
  EXPECT_EQ(T::Colour().value(), T::Colour::UNKNOWN);
}

TEST(ValueToNative, ASetOptionalServesAsThePlainType) {
  EXPECT_EQ(Adapted<std::string>(Set(Text("a"))), "a");
  EXPECT_EQ(Adapted<std::string>(Set(Set(Text("a")))), "a");
  EXPECT_EQ(Adapted<std::shared_ptr<T::Leaf const>>(Set(Leaf("a")))->name, "a");
  EXPECT_THAT(Adapted<std::list<std::string>>(Set(ListOf({Text("a")}))), ElementsAre("a"));
  EXPECT_THAT(Adapted<std::set<std::string>>(Set(ListOf({Text("a")}))), ElementsAre("a"));
  EXPECT_EQ(Adapted<T::Colour>(Set(Text("RED"))), T::Colour::RED);
  EXPECT_EQ((Adapted<std::map<std::string, long long>>(Set(Object({{"a", Int(1)}}))).at("a")), 1);
}

TEST(ValueToNative, OptionalsTakeAnySort) {
  auto const bare =
      Adapted<T::Optionals>(Object({{"leaf", Leaf("x")}, {"text", Text("t")}, {"flag", Set(Flag(true))}}));
  ASSERT_TRUE(static_cast<bool>(bare.leaf));
  EXPECT_EQ(bare.leaf->name, "x");
  EXPECT_TRUE(bare.text == std::string("t"));
  EXPECT_TRUE(bare.flag == true);
  EXPECT_FALSE(bare.colour);
  auto const unset = Adapted<T::Optionals>(Object(
      {{"leaf", Null()}, {"text", Unset()}, {"flag", Null()}, {"anything", Null()}, {"names", Unset()}}));
  EXPECT_FALSE(unset.leaf);
  EXPECT_FALSE(unset.text);
  EXPECT_FALSE(unset.flag);
  EXPECT_FALSE(unset.anything);
  EXPECT_FALSE(unset.names);
  EXPECT_THAT(Faults<T::Optionals>(Object({{"leaf", Int(1)}})),
              ElementsAre("lumo.data.bad.cast(leaf,integer,com.orbane.test.leaf)"));
  EXPECT_THAT(Faults<T::Optionals>(Object({{"leaf", Object({})}})),
              ElementsAre("lumo.data.field.missing(leaf.name)"));
}

TEST(ValueToNative, ADynamicFieldTakesAnyValueAsItCame) {
  for (DataValuePtr const& value :
       {Int(1), Null(), Unset(), Set(Text("x")), Object({{"b", Int(1)}, {"a", Int(2)}})}) {
    auto const record = Adapted<T::Scalars>(Scalars({{"anything", value}}));
    EXPECT_EQ(record.anything.value().get(), value.get()) << value->ToString();
  }
  DataValuePtr const inner = Set(Null());
  auto const record = Adapted<T::Optionals>(Object({{"anything", Set(inner)}}));
  ASSERT_TRUE(record.anything);
  EXPECT_EQ(record.anything->value().get(), inner.get());
}

TEST(ValueToNative, ADynamicFieldOutlivesTheValueItCameFrom) {
  DataValuePtr value = Object({{"anything", Object({{"a", Text("kept")}})}});
  auto const record = Adapted<T::Optionals>(value);
  value.reset();
  EXPECT_EQ(record.anything->value()->ToString(), "{\"a\":\"kept\"}");
}

TEST(ValueToNative, MissingFieldsAreNamedWithTheirPath) {
  EXPECT_THAT(Faults<T::Leaf>(Object({})), ElementsAre("lumo.data.field.missing(name)"));
  EXPECT_THAT(Faults<Leaves>(ListOf({Leaf("a"), Object({})})),
              ElementsAre("lumo.data.field.missing($[1].name)"));
  EXPECT_THAT(
      (Faults<std::map<std::string, std::shared_ptr<T::Leaf const>>>(Object({{"tools", Object({})}}))),
      ElementsAre("lumo.data.field.missing(tools.name)"));
  EXPECT_THAT((Faults<std::map<std::string, Leaves>>(
                  Object({{"a", ListOf({})}, {"b", ListOf({Leaf("x"), Int(1)})}}))),
              ElementsAre("lumo.data.bad.cast(b[1],integer,com.orbane.test.leaf)"));
}

TEST(ValueToNative, TheFirstFaultInOrderOfTheFieldsIsTheOnlyOne) {
  EXPECT_THAT(Faults<T::Scalars>(Scalars({{"text", Int(1)}, {"flag", Int(1)}, {"colour", Flag(true)}})),
              ElementsAre("lumo.data.bad.cast(flag,integer,boolean)"));
}

TEST(ValueToNative, AnythingButAStructureIsNoRecord) {
  for (DataValuePtr const& value : {Int(1), Text("a"), ListOf({}), MapOf({}), Null(), Unset()}) {
    EXPECT_THAT(Faults<T::Leaf>(value), testing::SizeIs(1)) << value->ToString();
    EXPECT_THAT(Faults<std::shared_ptr<T::Leaf const>>(value), testing::SizeIs(1)) << value->ToString();
  }
  EXPECT_THAT(Faults<T::Leaf>(DataValuePtr()),
              ElementsAre("lumo.data.bad.cast($,null,com.orbane.test.leaf)"));
}

TEST(ValueToNative, ListsByTheKindOfTheSource) {
  EXPECT_THAT(Adapted<std::list<std::string>>(ListOf({Text("b"), Text("a")})), ElementsAre("b", "a"));
  EXPECT_THAT(Adapted<std::list<std::string>>(ListOf({Text("b")}, ListValue::Form::Set)), ElementsAre("b"));
  // A structure stands for a list of one, one without a name for an empty list.
  Leaves const one = Adapted<Leaves>(Struct("com.orbane.test.leaf", {{"name", Text("only")}}));
  ASSERT_EQ(one.size(), 1U);
  EXPECT_EQ(one.front()->name, "only");
  EXPECT_THAT(Adapted<Leaves>(Leaf("lost")), IsEmpty());
  auto const error = Lumo::Data::ErrorValue::GetInstance("an.error");
  error->SetField("name", Text("e"));
  EXPECT_EQ(Adapted<Leaves>(error).size(), 1U);
  for (DataValuePtr const& value :
       {Int(1), Text("a"), Null(), Unset(), Flag(false), Real(1.5), DataValuePtr()}) {
    EXPECT_THAT(Faults<std::list<std::string>>(value), ElementsAre("lumo.data.invalid.type()"));
  }
}

TEST(ValueToNative, AListIsEmptiedBeforeItIsFilled) {
  std::list<std::string> names = {"old"};
  MessageList errors;
  EXPECT_TRUE(FromValue(ListOf({}), names, errors));
  EXPECT_THAT(names, IsEmpty());
  names = {"old"};
  EXPECT_TRUE(FromValue(Object({}), names, errors));
  EXPECT_THAT(names, IsEmpty());
}

TEST(ValueToNative, ASetOfTextsIsNoListOfOtherThings) {
  DataValuePtr const texts = ListOf({Text("RED")}, ListValue::Form::EnumSet);
  EXPECT_THAT(Faults<Leaves>(texts), ElementsAre("lumo.data.bad.cast2(20,SharedPtr<com.orbane.test.leaf>)"));
  EXPECT_THAT(Faults<std::list<std::string>>(texts),
              ElementsAre("lumo.data.bad.cast2(20,SharedPtr<string>)"));
  EXPECT_THAT(Adapted<std::list<T::Colour>>(texts), ElementsAre(T::Colour::RED));
}

TEST(ValueToNative, FaultsWithoutAPlaceFollowAMessageThatNamesIt) {
  EXPECT_THAT((Faults<std::map<std::string, std::list<std::string>>>(Object({{"row", Int(1)}}))),
              ElementsAre("lumo.data.field.unreadable(row)", "lumo.data.invalid.type()"));
  DataValuePtr const texts = ListOf({Text("RED")}, ListValue::Form::EnumSet);
  EXPECT_THAT((Faults<std::map<std::string, Leaves>>(Object({{"row", texts}}))),
              ElementsAre("lumo.data.field.unreadable(row)",
                          "lumo.data.bad.cast2(20,SharedPtr<com.orbane.test.leaf>)"));
}

TEST(ValueToNative, SetsTakeAnyList) {
  for (auto const form : {ListValue::Form::List, ListValue::Form::Set, ListValue::Form::EnumSet}) {
    EXPECT_THAT(Adapted<std::set<std::string>>(ListOf({Text("b"), Text("a"), Text("b")}, form)),
                ElementsAre("a", "b"));
    EXPECT_THAT(Adapted<std::set<T::Colour>>(ListOf({Text("GREEN"), Text("RED")}, form)),
                ElementsAre(T::Colour::RED, T::Colour::GREEN));
  }
  EXPECT_THAT(Adapted<std::set<long long>>(ListOf({Int(2), Int(1)})), ElementsAre(1, 2));
  EXPECT_THAT(Adapted<std::set<std::string>>(Object({})), IsEmpty());
  EXPECT_THAT(Faults<std::set<std::string>>(Int(1)), ElementsAre("lumo.data.invalid.type()"));
  EXPECT_THAT(Faults<std::set<std::string>>(ListOf({Text("a"), Int(1)})),
              ElementsAre("lumo.data.bad.cast($[1],integer,string)"));
}

TEST(ValueToNative, MapsTakeStructuresAndTheListForm) {
  using Map = std::map<std::string, long long>;
  Map const expected = {{"a", 1}, {"b", 2}};
  EXPECT_EQ(Adapted<Map>(Object({{"b", Int(2)}, {"a", Int(1)}})), expected);
  EXPECT_EQ(Adapted<Map>(Struct("any.name", {{"b", Int(2)}, {"a", Int(1)}})), expected);
  EXPECT_EQ(Adapted<Map>(MapOf({{"b", Int(2)}, {"a", Int(1)}})), expected);
  EXPECT_EQ(Adapted<Map>(MapOf({})), Map());
  EXPECT_THAT(Faults<Map>(ListOf({})), ElementsAre("lumo.data.bad.cast($,list,map)"));
  EXPECT_THAT(Faults<Map>(Text("a")), ElementsAre("lumo.data.bad.cast($,string,map)"));
  EXPECT_THAT(Faults<Map>(MapOf({{"a", Int(1)}, {"a", Int(2)}})), ElementsAre("lumo.data.duplicate.key(a)"));
  EXPECT_THAT(Faults<Map>(ListOf({Int(1)}, ListValue::Form::Map)),
              ElementsAre("lumo.data.bad.cast($[0],integer,map-entry)"));
  EXPECT_THAT(Faults<Map>(ListOf({Object({{"key", Int(1)}, {"value", Int(1)}})}, ListValue::Form::Map)),
              ElementsAre("lumo.data.bad.cast($[0],structure,map-entry)"));
}

TEST(ValueToNative, TheFirstFaultOfAMapIsTold) {
  using Map = std::map<std::string, long long>;
  for (DataValuePtr const& two : {DataValuePtr(MapOf({{"a", Text("x")}, {"b", Null()}})),
                                  DataValuePtr(Object({{"a", Text("x")}, {"b", Null()}}))}) {
    EXPECT_THAT(Faults<Map>(two), ElementsAre("lumo.data.bad.cast(a,string,integer)"));
  }
  EXPECT_THAT(Faults<Map>(ListOf({Int(1), Text("x")}, ListValue::Form::Map)),
              ElementsAre("lumo.data.bad.cast($[0],integer,map-entry)"));
  EXPECT_THAT(Faults<Map>(MapOf({{"a", Int(1)}, {"a", Int(2)}, {"b", Int(1)}, {"b", Int(2)}})),
              ElementsAre("lumo.data.duplicate.key(a)"));
  EXPECT_THAT(Faults<Map>(MapOf({{"a", Text("x")}, {"b", Int(1)}, {"b", Int(2)}})),
              ElementsAre("lumo.data.duplicate.key(b)"))
      << "entries come before values";
}

TEST(ValueToNative, UnknownFieldsAreIgnoredOrRefused) {
  using Unknown = ValueToNativeAdapter::UnknownFields;
  DataValuePtr const value = Object({{"name", Text("a")}, {"surplus", Int(1)}});
  EXPECT_EQ(Adapted<T::Leaf>(value).name, "a");
  EXPECT_THAT(Faults<T::Leaf>(value, Unknown::Refuse), ElementsAre("lumo.data.unknown.field(surplus)"));
  EXPECT_THAT(Faults<T::Optionals>(Object({{"leaf", value}}), Unknown::Refuse),
              ElementsAre("lumo.data.unknown.field(leaf.surplus)"));
  T::Leaf leaf;
  MessageList errors;
  EXPECT_TRUE(
      FromValue(Object({{"name", Text("a")}, {"host", Text("localhost")}}), leaf, errors, Unknown::Refuse));
  EXPECT_THAT(Faults<T::Optionals>(Object({{"leaf", Object({{"name", Text("a")}, {"host", Text("x")}})}}),
                                   Unknown::Refuse),
              ElementsAre("lumo.data.unknown.field(leaf.host)"));
}

TEST(ValueToNative, VoidTakesNothing) {
  Adapted<Lumo::Void>(Null());
  Adapted<Lumo::Void>(Unset());
  EXPECT_THAT(Faults<Lumo::Void>(Int(1)), ElementsAre("lumo.data.bad.cast($,integer,void)"));
}

TEST(ValueToNative, ErrorsBecomeTheRecordOfTheirName) {
  auto const error =
      Lumo::Data::ErrorFactory::GetError<Errors::NotFound>({Lumo::BaseMessage("id", "text", {"arg"})});
  auto const record = Adapted<std::shared_ptr<Errors::Error const>>(error);
  ASSERT_TRUE(std::dynamic_pointer_cast<Errors::NotFound const>(record));
  EXPECT_THAT(record->messages, ElementsAre(Lumo::BaseMessage("id", "text", {"arg"})));
  ASSERT_TRUE(record->errorType);
  EXPECT_EQ(*record->errorType, Errors::ErrorType::NOT_FOUND);
  auto const other = Adapted<std::shared_ptr<Errors::Error const>>(Object({{"messages", ListOf({})}}));
  EXPECT_EQ(typeid(*other), typeid(Errors::Error));
}

TEST(ValueToNative, MessagesAreReadFromStructures) {
  EXPECT_EQ(Adapted<Lumo::BaseMessage>(Object({{"id", Text("i")}})), Lumo::BaseMessage("i", "", {}));
  EXPECT_THAT(Faults<std::list<Lumo::BaseMessage>>(ListOf({Object({})})),
              ElementsAre("lumo.data.bad.cast($[0],structure,com.orbane.lumo.std.localizable_message)"));
}

TEST(ValueToNative, DeepValuesCostHeapAndNoStack) {
  constexpr int kDepth = 100000;
  DataValuePtr value = Object({});
  for (int level = 1; level < kDepth; ++level) {
    value = Object({{"next", Set(value)}});
  }
  std::shared_ptr<T::Chain const> link = Adapted<std::shared_ptr<T::Chain const>>(value);
  int depth = 0;
  while (link) {
    ++depth;
    link = std::shared_ptr<T::Chain const>(link->next.ptr());
  }
  EXPECT_EQ(depth, kDepth);
}

TEST(ValueToNative, WhatWasConvertedComesBack) {
  auto record = std::make_shared<T::Optionals>();
  auto leaf = std::make_shared<T::Leaf>();
  leaf->name = "x";
  leaf->size = 3;
  record->leaf = std::shared_ptr<T::Leaf const>(leaf);
  record->byName = std::map<std::string, std::shared_ptr<T::Leaf const>>{{"k", leaf}};
  record->colour = T::Colour(T::Colour::UNKNOWN, "PUCE");
  MessageList errors;
  DataValuePtr const value = Lumo::Data::ToValue(*record, errors);
  ASSERT_TRUE(value);
  auto const back = Adapted<T::Optionals>(value);
  EXPECT_TRUE(back.leaf->size == 3LL);
  EXPECT_EQ(back.byName->at("k")->name, "x");
  EXPECT_EQ(*back.colour, *record->colour);
  EXPECT_FALSE(back.text);
}

}  // namespace
