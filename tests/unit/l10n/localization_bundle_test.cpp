#include "runtime/l10n/localization_bundle.h"

#include <gtest/gtest.h>

#include <sstream>

#include "runtime/errors/categories.h"

namespace {

using namespace Lumo::L10n;

LocalizationBundle::Entries Load(std::string const& text, std::error_code& ec) {
  std::istringstream in(text);
  return LocalizationBundle::LoadIniFile(in, ec);
}

std::map<std::string, std::string> LoadAll(std::string const& text) {
  std::error_code ec;
  auto entries = Load(text, ec);
  EXPECT_FALSE(ec) << text;
  std::map<std::string, std::string> all;
  for (; entries && !entries->Empty(); entries->PopFront()) {
    all.insert(entries->Front());
  }
  return all;
}

TEST(LoadIniFile, ReadsEntries) {
  using Map = std::map<std::string, std::string>;
  EXPECT_EQ(LoadAll(""), Map{});
  EXPECT_EQ(LoadAll("\xEF\xBB\xBF; comment\r\n# other\r\n\r\n a.b = \"text {1}\" \r\nc=d = e; f\ng ="),
            (Map{{"a.b", "\"text {1}\""}, {"c", "d = e; f"}, {"g", ""}}));
  EXPECT_EQ(LoadAll("id = sch\xC3\xB6n"), (Map{{"id", "schön"}}));
}

TEST(LoadIniFile, RefusesWithCodeSix) {
  for (char const* text : {"no entry", "= text", "[section]\na = b", "[a = b]", "a = b\na = c", "a = \xC3",
                           "ok = 1\n\xFF = x"}) {
    std::error_code ec;
    EXPECT_EQ(Load(text, ec), nullptr) << text;
    EXPECT_EQ(ec, make_error_code(L10nErrc::BundleLoadFailed)) << text;
  }
}

TEST(LoadIniFile, RefusesAStreamThatCannotBeRead) {
  std::istringstream in("a = b");
  in.setstate(std::ios::failbit);
  std::error_code ec;
  EXPECT_EQ(LocalizationBundle::LoadIniFile(in, ec), nullptr);
  EXPECT_EQ(ec, make_error_code(L10nErrc::BundleLoadFailed));
}

TEST(LocalizationBundle, LooksUpByLocaleAndId) {
  LocalizationBundle bundle;
  std::error_code ec;
  bundle.AddLocale("en", Load("a = one\nb = two", ec));
  bundle.AddLocale("de", Load("a = eins", ec));
  ASSERT_FALSE(ec);

  EXPECT_EQ(bundle("a", "en", ec), "one");
  EXPECT_EQ(bundle("a", "de", ec), "eins");
  EXPECT_FALSE(ec);

  EXPECT_EQ(bundle("b", "de", ec), "");
  EXPECT_EQ(ec, make_error_code(L10nErrc::UnknownMessageId));
  ec.clear();
  EXPECT_EQ(bundle("a", "fr", ec), "");
  EXPECT_EQ(ec, make_error_code(L10nErrc::LocaleNotSupported));
}

TEST(LocalizationBundle, KnowsItsLocales) {
  LocalizationBundle bundle;
  std::error_code ec;
  EXPECT_FALSE(bundle.HasLocale("en"));
  bundle.AddLocale("en", Load("a = one", ec));
  bundle.AddLocale("de", nullptr);
  EXPECT_TRUE(bundle.HasLocale("en"));
  EXPECT_TRUE(bundle.HasLocale("de"));
  EXPECT_FALSE(bundle.HasLocale("e"));
}

TEST(LocalizationBundle, FirstTextOfAnIdStays) {
  LocalizationBundle bundle;
  std::error_code ec;
  bundle.AddLocale("en", Load("a = one", ec));
  bundle.AddLocale("en", Load("a = other\nb = two", ec));
  EXPECT_EQ(bundle("a", "en", ec), "one");
  EXPECT_EQ(bundle("b", "en", ec), "two");
}

}  // namespace
