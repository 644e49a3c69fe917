#include "runtime/l10n/format.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "runtime/errors/categories.h"
#include "runtime/message.h"

namespace {

struct Outcome {
  std::string text;
  std::error_code ec;
};

Outcome Format(std::string const& format, std::vector<std::string> const& values) {
  std::vector<Lumo::Detail::format_arg> args;
  for (std::string const& value : values) {
    args.emplace_back(value);
  }
  std::ostringstream out;
  Outcome outcome;
  Lumo::Detail::FormatTo(out, format, args.data(), args.size(), outcome.ec);
  outcome.text = out.str();
  return outcome;
}

TEST(FormatTo, Table) {
  struct Case {
    char const* format;
    std::vector<std::string> args;
    char const* text;
  };
  std::vector<Case> const cases = {
      {"", {}, ""},
      {"plain", {"a"}, "plain"},
      {"{1} and {2}", {"a", "b"}, "a and b"},
      {"{} {}", {"a", "b"}, "a b"},
      {"{0} {0}", {"a", "b"}, "a b"},
      {"{2}{1}", {"a", "b"}, "ba"},
      // The running position moves with every specifier, numbered or not.
      {"{2} {}", {"a", "b"}, "b b"},
      {"{1}{1}{}", {"a", "b", "c"}, "aac"},
      {"{{", {}, "{"},
      {"}}", {}, "}"},
      {"{{1}}", {"a"}, "{1}"},
      {"{{{1}}}", {"a"}, "{a}"},
      {"100%s {1}", {"%d"}, "100%s %d"},
      // Without a closing brace the rest is the specifier.
      {"x{1", {"a"}, "xa"},
      {"x{", {"a"}, "xa"},
      // A single closing brace begins a specifier too.
      {"x} tail", {"a"}, "xa"},
      {"x} 9} tail", {"a"}, "xa tail"},
      {"{name}", {"a"}, "a"},
      {"{1x}", {"a"}, "a"},
      {"{00000000000000000001}", {"a", "b"}, "a"},
      // Characters of the index beyond the twentieth do not count.
      {"{000000000000000000012}", {"a", "b"}, "a"},
      {"{1:}", {"a"}, "a"},
      {"[{1:5}]", {"ab"}, "[   ab]"},
      {"[{1:-5}]", {"ab"}, "[ab   ]"},
      {"[{1:.1}]", {"ab"}, "[a]"},
      {"[{:4.1}]", {"ab"}, "[   a]"},
      {"[{1:s}]", {"ab"}, "[abs]"},
      {"[{1:3s!}]", {"ab"}, "[ ab!s]"},
      // What would name another conversion leaves the text as it is.
      {"[{1:n}]", {"ab"}, "[ab]"},
      {"[{1:*}]", {"ab"}, "[ab]"},
      {"[{1:d}]", {"ab"}, "[ab]"},
      {"[{1:99999}]", {"ab"}, "[ab]"},
      {"[{1:.99999}]", {"ab"}, "[ab]"},
      {"[{1:------------------------5}]", {"ab"}, "[ab]"},
      {"{1:{}|", {"a"}, "a|"},
  };
  for (Case const& c : cases) {
    Outcome const outcome = Format(c.format, c.args);
    EXPECT_EQ(outcome.text, c.text) << c.format;
    EXPECT_FALSE(outcome.ec) << c.format;
  }
}

TEST(FormatTo, SpecifierBehindTheLastArgumentStops) {
  struct Case {
    char const* format;
    std::vector<std::string> args;
    char const* text;
  };
  std::vector<Case> const cases = {
      {"{3}", {"a", "b"}, ""}, {"x{3}y{1}", {"a", "b"}, "x"},         {"{}{}{}", {"a", "b"}, "ab"},
      {"{}", {}, ""},          {"{99999999999999999999}", {"a"}, ""}, {"{18446744073709551615}", {"a"}, ""},
  };
  for (Case const& c : cases) {
    Outcome const outcome = Format(c.format, c.args);
    EXPECT_EQ(outcome.text, c.text) << c.format;
    EXPECT_EQ(outcome.ec, make_error_code(Lumo::FormatErrc::TooManySpecifiers)) << c.format;
  }
}

TEST(FormatTo, CallsTheArgumentsOwnFormatter) {
  int const number = 7;
  Lumo::Detail::format_arg const arg(&number,
                                     [](std::ostream& out, void const* value, boost::string_view spec) {
                                       out << '<' << *static_cast<int const*>(value) << '|' << spec << '>';
                                     });
  std::ostringstream out;
  std::error_code ec;
  Lumo::Detail::FormatTo(out, "a{1:x:y}b", &arg, 1, ec);
  EXPECT_EQ(out.str(), "a<7|x:y>b");
}

TEST(MakeMessage, FormatsAndKeepsTheArguments) {
  auto const message = Lumo::MakeMessage("some.id", "{1} of {2}", 3, std::string("ten"));
  EXPECT_EQ(message.id(), "some.id");
  EXPECT_EQ(message.defaultMessage(), "3 of ten");
  EXPECT_EQ(message.args(), (std::list<std::string>{"3", "ten"}));
}

TEST(MakeMessage, KeepsTheTextBeforeAMissingArgument) {
  EXPECT_EQ(Lumo::MakeMessage("some.id", "have {1}, want {2}!", "one").defaultMessage(), "have one, want ");
}

TEST(BaseMessage, ConstructorDoesNotFormat) {
  Lumo::BaseMessage const message("some.id", "{1}", {"a"});
  EXPECT_EQ(message.defaultMessage(), "{1}");
}

TEST(CoreMessages, EveryIdHasItsText) {
  for (char const* id : {"lumo.data.bad.cast",
                         "lumo.data.bad.cast2",
                         "lumo.data.duplicate.key",
                         "lumo.data.field.missing",
                         "lumo.data.field.unreadable",
                         "lumo.data.invalid.type",
                         "lumo.data.unknown.field",
                         "lumo.data.unset.field",
                         "lumo.data.unset.non.optional.field",
                         "lumo.invalid.content.type",
                         "lumo.invalid.request",
                         "lumo.json.annotation.error",
                         "lumo.json.invalid.params",
                         "lumo.json.invalid.request",
                         "lumo.json.parse.error",
                         "lumo.json.request.refused",
                         "lumo.json.write.error",
                         "lumo.metadata.component.duplicate",
                         "lumo.metadata.component.missing",
                         "lumo.metadata.file.malformed",
                         "lumo.metadata.file.unreadable",
                         "lumo.provider.interface.duplicate",
                         "lumo.provider.operation.not.found",
                         "lumo.provider.service.not.found",
                         "lumo.recv.failed",
                         "lumo.request.exceeds.max.size",
                         "lumo.send.failed"}) {
    EXPECT_NE(Lumo::Message<Lumo::CoreTag>::DefaultMessageForId(id), id);
  }
  EXPECT_EQ(Lumo::Message<Lumo::CoreTag>::DefaultMessageForId("lumo.none.such"), "lumo.none.such");
}

TEST(CoreMessages, MakeFillsTheTemplate) {
  auto const message = Lumo::Message<Lumo::CoreTag>::Make("lumo.data.bad.cast2", 20, "SharedPtr<x>");
  EXPECT_EQ(message.defaultMessage(), "A value of kind 20 cannot be read as SharedPtr<x>.");
  EXPECT_EQ(message.args(), (std::list<std::string>{"20", "SharedPtr<x>"}));
}

}  // namespace
