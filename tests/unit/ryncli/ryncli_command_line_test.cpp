#include "software/ryncli_command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc;

TEST(PrefixText, EachValue) {
  struct Case {
    int number;
    char const* text;
  };
  for (Case const& c :
       {Case{0, "/bin/ryncli --formatter=xml software"}, Case{1, "/bin/nearcli --formatter=xml software"},
        Case{2,
             "/bin/nearcli --formatter=xml "
             "--plugin=/usr/lib/orbane/ryncli/int/ext/ryncli-softwareinternal.xml "
             "softwareinternal"},
        Case{3, ""}, Case{4, ""}, Case{-1, ""}, Case{2147483647, ""}}) {
    EXPECT_EQ(PrefixText(static_cast<Prefix::Value>(c.number)), c.text) << c.number;
  }
  EXPECT_EQ(PrefixText(Prefix()), "");
  EXPECT_EQ(PrefixText(Prefix(Prefix::UNKNOWN, "RYNCLI ")), "");
}

TEST(CommandText, EachValue) {
  std::vector<std::string> const texts = {"acceptance get",
                                          "acceptance set",
                                          "addon get",
                                          "apply",
                                          "baseimage get",
                                          "component apply",
                                          "component get",
                                          "component list",
                                          "component remove",
                                          "component signature verify",
                                          "component pak list",
                                          "profile get",
                                          "profile install",
                                          "profile update",
                                          "profile validate",
                                          "pak install",
                                          "pak get",
                                          "pak list",
                                          "pak remove",
                                          "pak signature verify",
                                          "pak update"};
  for (std::size_t number = 0; number < texts.size(); ++number) {
    EXPECT_EQ(CommandText(static_cast<Command::Value>(number)), texts[number]) << number;
  }
  for (int const number : {21, 22, -1, 2147483647}) {
    EXPECT_EQ(CommandText(static_cast<Command::Value>(number)), "") << number;
  }
  EXPECT_EQ(CommandText(Command()), "");
}

TEST(Enumerations, TextsAreTheWordsOfTheTables) {
  for (Lumo::EnumText const& entry : Command::descriptor().texts) {
    std::string words = CommandText(static_cast<Command::Value>(entry.number));
    for (char& c : words) {
      c = c == ' ' ? '_' : static_cast<char>(std::toupper(c));
    }
    EXPECT_EQ(entry.text, words);
  }
  EXPECT_EQ(Command::descriptor().texts.size(), 21U);
  EXPECT_EQ(Command::descriptor().unknown, 21);
  EXPECT_EQ(Prefix::descriptor().texts.size(), 3U);
  EXPECT_EQ(Prefix::descriptor().unknown, 3);
}

struct Verdict {
  std::string text;
  bool valid;
};

TEST(IsValidDepots, OneDepot) {
  for (Verdict const& c : {Verdict{"http://depot/index.xml", true},
                           Verdict{"http:axml", true},
                           Verdict{"http:/xml", true},
                           Verdict{"http://a.b-c/D9/indexxml", true},
                           Verdict{"http:xmlxml", true},
                           Verdict{"http:-xml", true},
                           Verdict{"http:xml", false},
                           Verdict{"", false},
                           Verdict{" ", false},
                           Verdict{"http:", false},
                           Verdict{"https://depot/index.xml", false},
                           Verdict{"HTTP://depot/index.xml", false},
                           Verdict{"ftp://depot/index.xml", false},
                           Verdict{"file:///depot/index.xml", false},
                           Verdict{" http://depot/index.xml", false},
                           Verdict{"http://depot/index.xml ", false},
                           Verdict{"http://depot/index.xml\n", false},
                           Verdict{"\nhttp://depot/index.xml", false},
                           Verdict{"http://depot:80/index.xml", false},
                           Verdict{"http://a?b/index.xml", false},
                           Verdict{"http://a_b/index.xml", false},
                           Verdict{"http://a@b/index.xml", false},
                           Verdict{"http://a b/index.xml", false},
                           Verdict{"http://a%20b/index.xml", false},
                           Verdict{"http://a\\b/index.xml", false},
                           Verdict{"http://a\"b/index.xml", false},
                           Verdict{"http://depot/index.XML", false},
                           Verdict{"http://depot/index.json", false},
                           Verdict{"http://depot/index.xmlx", false},
                           Verdict{"http://d\u00e9pot/index.xml", false},
                           Verdict{"http://a[b]/index.xml", false},
                           Verdict{std::string("http://a\0b/index.xml", 20), false},
                           Verdict{std::string("http://a/index.xml\0", 19), false},
                           Verdict{"xhttp://depot/index.xml", false},
                           Verdict{"http://a/index.xml\nhttp://b/index.xml", false}}) {
    std::string command = "line";
    EXPECT_EQ(IsValidDepots({c.text}, command), c.valid) << c.text;
    EXPECT_EQ(command, c.valid ? "line --depot " + c.text : "line") << c.text;
  }
}

TEST(IsValidDepots, EveryCharacterStandsForItself) {
  std::string const allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-./";
  for (int code = 0; code < 256; ++code) {
    char const c = static_cast<char>(code);
    std::string command;
    EXPECT_EQ(IsValidDepots({std::string("http:a") + c + "bxml"}, command),
              allowed.find(c) != std::string::npos)
        << code;
  }
}

TEST(IsValidDepots, ListEndsAtItsFirstBadOne) {
  std::string command = "x";
  EXPECT_FALSE(IsValidDepots({}, command));
  EXPECT_EQ(command, "x");
  EXPECT_TRUE(IsValidDepots({"http:a.xml", "http:b.xml", "http:a.xml"}, command));
  EXPECT_EQ(command, "x --depot http:a.xml --depot http:b.xml --depot http:a.xml");
  command = "x";
  EXPECT_FALSE(IsValidDepots({"http:a.xml", "bad", "http:b.xml"}, command));
  EXPECT_EQ(command, "x --depot http:a.xml");
  command = "x";
  EXPECT_FALSE(IsValidDepots({"http:a.xml", "http:b.xml", "bad"}, command));
  EXPECT_EQ(command, "x --depot http:a.xml --depot http:b.xml");
}

TEST(IsValidSpecUrl, Table) {
  for (Verdict const& c :
       {Verdict{"http://depot/spec.json", true}, Verdict{"http:ajson", true}, Verdict{"http:.json", true},
        Verdict{"http:json", false}, Verdict{"", false}, Verdict{" ", false},
        Verdict{"http://depot/spec.xml", false}, Verdict{"https://depot/spec.json", false},
        Verdict{"http://depot/sp_ec.json", false}, Verdict{"http://depot/spec.json?a", false},
        Verdict{"http://depot/spec.json\n", false}, Verdict{"http://depot:80/spec.json", false},
        Verdict{"/etc/spec.json", false}, Verdict{std::string("http://d/a.json\0", 16), false}}) {
    EXPECT_EQ(IsValidSpecUrl(c.text), c.valid) << c.text;
  }
}

TEST(IsValidArgument, WithoutColonTheFilterDecides) {
  for (Verdict const& c :
       {Verdict{"-n", true},           Verdict{"--name=x", true}, Verdict{"two words", true},
        Verdict{"a.b_c-d", true},      Verdict{"\ta", true},      Verdict{"<a>", true},
        Verdict{"(#?=[]{}^)", true},   Verdict{"", false},        Verdict{" ", false},
        Verdict{" \t\r\v\f\n", false}, Verdict{"a\"b", false},    Verdict{"a'b", false},
        Verdict{"a;b", false},         Verdict{"a\\b", false},    Verdict{"a*", false},
        Verdict{"a+", false},          Verdict{"%a", false},      Verdict{"$a", false},
        Verdict{"~", false},           Verdict{"!", false},       Verdict{"a&b", false},
        Verdict{"a|b", false},         Verdict{"a`b", false},     Verdict{"a\nb", false}}) {
    EXPECT_EQ(IsValidArgument(c.text, false), c.valid) << c.text;
    EXPECT_EQ(IsValidArgument(c.text, true), c.valid) << c.text;
  }
}

TEST(IsValidArgument, ColonForms) {
  for (Verdict const& c : {Verdict{"a:b", true},
                           Verdict{"a:b.c", true},
                           Verdict{"a_1-B:c_2-D.9", true},
                           Verdict{"a:b:c", true},
                           Verdict{"a:b:c.d", true},
                           Verdict{"A_-9:b_-8:c-.7", true},
                           Verdict{"-:-", true},
                           Verdict{"a:.", true},
                           Verdict{"a:b:c:d", false},
                           Verdict{"a.b:c", false},
                           Verdict{"a:b.c:d", false},
                           Verdict{"a:b:c_d", false},
                           Verdict{":", false},
                           Verdict{"a:", false},
                           Verdict{":b", false},
                           Verdict{"a::c", false},
                           Verdict{"a:b:", false},
                           Verdict{"a b:c", false},
                           Verdict{"a:b c", false},
                           Verdict{"a:b\n", false},
                           Verdict{"\na:b", false},
                           Verdict{"a:\"", false},
                           Verdict{"a:$b", false},
                           Verdict{"http://x", false},
                           Verdict{" a:b", false},
                           Verdict{"a:b ", false},
                           Verdict{"a:b/c", false},
                           Verdict{std::string("a:b\0", 4), false}}) {
    EXPECT_EQ(IsValidArgument(c.text, true), c.valid) << c.text;
    EXPECT_FALSE(IsValidArgument(c.text, false)) << c.text;  // a colon is none of the filter's
  }
}

/// Runs `work` on a thread with a small stack.
void OnSmallStack(std::function<void()> work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{512} * 1024), 0);
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, &attributes,
                [](void* argument) -> void* {
                  (*static_cast<std::function<void()>*>(argument))();
                  return nullptr;
                },
                &work),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

/// Far longer than what the usual matcher bears, up to the length of a request.
TEST(LongTexts, NeedNoStack) {
  OnSmallStack([] {
    std::string const text(100000, 'a');
    std::string command;
    EXPECT_TRUE(IsValidDepots({"http:" + text + ".xml"}, command));
    EXPECT_EQ(command.size(), text.size() + 18);
    EXPECT_FALSE(IsValidDepots({"http:" + text + "_xml"}, command));
    EXPECT_TRUE(IsValidSpecUrl("http:" + text + ".json"));
    EXPECT_FALSE(IsValidSpecUrl("http:" + text + ".xml"));
    EXPECT_TRUE(IsValidArgument(text + ":" + text, true));
    EXPECT_TRUE(IsValidArgument("a:" + text + ":" + text, true));
    EXPECT_FALSE(IsValidArgument(text + ":b:c:" + text, true));
    EXPECT_FALSE(IsValidArgument(std::string(100000, ':'), true));
    EXPECT_TRUE(IsValidArgument(text, false));
    EXPECT_TRUE(IsValidSpecUrl("http:" + std::string(2400000, 'a') + ".json"));
  });
}

TEST(Patterns, ManyThreadsAtOnce) {
  std::vector<std::thread> threads(4);
  for (std::thread& thread : threads) {
    thread = std::thread([] {
      for (int k = 0; k < 200; ++k) {
        std::string command;
        EXPECT_TRUE(IsValidDepots({"http:a.xml"}, command));
        EXPECT_TRUE(IsValidSpecUrl("http:a.json"));
        EXPECT_TRUE(IsValidArgument("a:b:c", true));
        EXPECT_FALSE(IsValidArgument("a:b:c:d", true));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
