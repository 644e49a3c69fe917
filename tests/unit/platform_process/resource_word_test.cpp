#include "platform/process/resource_word.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Orbane::IsGroupName;
using Orbane::IsResourceWord;
using Orbane::ParseResourceWord;
using Orbane::ResourceRequest;

TEST(ResourceWord, IsToldByItsFront) {
  EXPECT_TRUE(IsResourceWord("++group=a"));
  EXPECT_TRUE(IsResourceWord("++"));
  EXPECT_FALSE(IsResourceWord("+"));
  EXPECT_FALSE(IsResourceWord(""));
  EXPECT_FALSE(IsResourceWord("a++b"));
}

TEST(ResourceWord, IsRead) {
  struct Case {
    char const* word;
    char const* group;
    unsigned megabytes;
    bool ofGroup;
    bool stats;
  };
  Case const cases[] = {
      {"++group=keeld-task-forks,mem=groupMax,stats", "keeld-task-forks", 0, true, true},
      {"++stats,mem=groupMax,group=g", "g", 0, true, true},
      {"++mem=200", "", 200, false, false},
      {"++mem=1,group=a.b_c", "a.b_c", 1, false, false},
      {"++mem=16777216", "", 16777216, false, false},
      {"++stats", "", 0, false, true},
      {"++group=g", "g", 0, false, false},
  };
  for (Case const& each : cases) {
    ResourceRequest request;
    ASSERT_TRUE(ParseResourceWord(each.word, request)) << each.word;
    EXPECT_EQ(request.group, each.group) << each.word;
    EXPECT_EQ(request.memoryMegabytes.value_or(0), each.megabytes) << each.word;
    EXPECT_EQ(request.memoryOfGroup, each.ofGroup) << each.word;
    EXPECT_EQ(request.stats, each.stats) << each.word;
  }
}

TEST(ResourceWord, SlipsAreRefused) {
  for (char const* const word : {"++",
                                 "++,",
                                 "++stats,",
                                 "++,stats",
                                 "++group=",
                                 "++group=a/b",
                                 "++group=..",
                                 "++group=.a",
                                 "++group=a b",
                                 "++mem=",
                                 "++mem=0",
                                 "++mem=-1",
                                 "++mem=+1",
                                 "++mem=1M",
                                 "++mem=16777217",
                                 "++mem=99999999999",
                                 "++mem=groupmax",
                                 "++mem=groupMax",
                                 "++mem=1,mem=2",
                                 "++mem=groupMax,mem=1,group=a",
                                 "++group=a,group=b",
                                 "++stats,stats",
                                 "++cpu=1",
                                 "++Stats",
                                 "group=a",
                                 "+group=a"}) {
    ResourceRequest request;
    EXPECT_FALSE(ParseResourceWord(word, request)) << word;
  }
}

TEST(GroupName, IsAPlainFolderName) {
  EXPECT_TRUE(IsGroupName("keeld-nontask-forks"));
  EXPECT_TRUE(IsGroupName(std::string(64, 'a')));
  EXPECT_FALSE(IsGroupName(std::string(65, 'a')));
  EXPECT_FALSE(IsGroupName(""));
  EXPECT_FALSE(IsGroupName("a/b"));
  EXPECT_FALSE(IsGroupName("."));
  EXPECT_FALSE(IsGroupName(".."));
}

}  // namespace
