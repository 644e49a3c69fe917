#include "support/translator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "runtime/errors/categories.h"
#include "temp_dir.h"

namespace {

using LifeCycle::Translator;
using Lumo::L10n::L10nErrc;
using Orbane::CapturedLine;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class TranslatorTest : public testing::Test {
 protected:
  std::string Get(Translator& translator, std::string const& id, std::string const& language = "en") {
    std::error_code error;
    std::string const text = translator.GetMessage(id, language, error);
    return error ? "code " + std::to_string(error.value()) + " of " + error.category().name() : text;
  }

  Orbane::TestOnlyLogCapture log_;
  TempDir dir_;
  std::string const english_ = dir_ / "locale/en";
  std::string const plugins_ = dir_ / "apply_modules";
  Translator translator_{{english_, plugins_}};
};

char const* const kUnsupported = "code 1 of Lumo Localization Error";
char const* const kUnknown = "code 5 of Lumo Localization Error";

TEST_F(TranslatorTest, LanguagesAreEight) {
  EXPECT_THAT(LifeCycle::SupportedLanguages(),
              ElementsAre("en", "es", "de", "zh_CN", "zh_TW", "ko", "ja", "fr"));
}

TEST_F(TranslatorTest, QuotesAroundAValueGo) {
  Put(english_ + "/a.omsg",
      "quoted = \"two words {1}\"\nbare = text\nhalf = \"open\nother = closed\"\nempty = \"\"\none = \"\n"
      "double = \"\"x\"\"\n");
  EXPECT_EQ(Get(translator_, "quoted"), "two words {1}");
  EXPECT_EQ(Get(translator_, "bare"), "text");
  EXPECT_EQ(Get(translator_, "half"), "\"open");
  EXPECT_EQ(Get(translator_, "other"), "closed\"");
  EXPECT_EQ(Get(translator_, "empty"), "");
  EXPECT_EQ(Get(translator_, "one"), "\"");
  EXPECT_EQ(Get(translator_, "double"), "\"x\"");
}

TEST_F(TranslatorTest, LocaleIsTheNameOfTheDirectory) {
  Put(english_ + "/a.omsg", "id = english\n");
  Put(plugins_ + "/keeld/de/a.omsg", "id = deutsch\n");
  Put(plugins_ + "/sysctl/locale/zh_CN/x.omsg", "id = zhongwen\n");
  EXPECT_EQ(Get(translator_, "id"), "english");
  EXPECT_EQ(Get(translator_, "id", "de"), "deutsch");
  EXPECT_EQ(Get(translator_, "id", "zh_CN"), "zhongwen");
  EXPECT_EQ(Get(translator_, "id", "fr"), kUnsupported);
  EXPECT_EQ(Get(translator_, "other", "de"), kUnknown);
}

TEST_F(TranslatorTest, LanguageOutsideTheEightIsNotLoadedFor) {
  Put(plugins_ + "/keeld/it/a.omsg", "id = italiano\n");
  for (char const* language : {"it", "en_US", "EN", "", "C"}) {
    EXPECT_EQ(Get(translator_, "id", language), kUnsupported) << language;
  }
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(TranslatorTest, LoadsOnFirstNeedAndOnEachMiss) {
  Put(english_ + "/a.omsg", "id = text\n");
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(Get(translator_, "id"), "text");
  std::vector<CapturedLine> const load{
      {2, "The translator found 1 .omsg files in directory \"" + english_ + "\""},
      {2, "Translator: Adding \"en\" language file \"" + english_ + "/a.omsg\""},
      {2, "Cannot open dir \"" + plugins_ + "\", error message: \"No such file or directory\""}};
  EXPECT_EQ(log_.lines(), load);
  log_.Clear();
  EXPECT_EQ(Get(translator_, "id"), "text");
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(Get(translator_, "missing"), kUnknown);
  EXPECT_EQ(log_.lines(), load);
  log_.Clear();
  EXPECT_EQ(Get(translator_, "missing"), kUnknown);
  EXPECT_EQ(log_.lines(), load);
}

TEST_F(TranslatorTest, HasLanguageLoadsOnceWhateverIsMissing) {
  Put(english_ + "/a.omsg", "id = text\n");
  Put(plugins_ + "/keeld/de/a.omsg", "id = Text\n");
  Put(plugins_ + "/keeld/it/a.omsg", "id = testo\n");
  EXPECT_FALSE(translator_.HasLanguage("it"));  // none of the eight
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_FALSE(translator_.HasLanguage("fr"));
  EXPECT_TRUE(log_.Contains("The translator found 1 .omsg files in directory \"" + english_ + "\""));
  log_.Clear();
  Put(plugins_ + "/keeld/ja/a.omsg", "id = tekisuto\n");
  for (char const* language : {"es", "zh_CN", "zh_TW", "ko", "ja", "fr"}) {
    EXPECT_FALSE(translator_.HasLanguage(language)) << language;
  }
  EXPECT_TRUE(translator_.HasLanguage("en"));
  EXPECT_TRUE(translator_.HasLanguage("de"));
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(Get(translator_, "other"), kUnknown);  // loads
  EXPECT_TRUE(translator_.HasLanguage("ja"));
}

TEST_F(TranslatorTest, WhatIsAddedLaterIsFoundAndNothingIsForgotten) {
  Put(english_ + "/a.omsg", "first = 1\n");
  EXPECT_EQ(Get(translator_, "first"), "1");
  ASSERT_EQ(::unlink((english_ + "/a.omsg").c_str()), 0);
  Put(english_ + "/b.omsg", "second = 2\n");
  EXPECT_EQ(Get(translator_, "second"), "2");
  EXPECT_EQ(Get(translator_, "first"), "1");
}

TEST_F(TranslatorTest, OtherFilesAreLeftAlone) {
  Put(english_ + "/a.txt", "id = text\n");
  Put(english_ + "/omsg", "id = text\n");
  Put(english_ + "/b.omsg~", "id = text\n");
  boost::filesystem::create_directories(english_ + "/dir.omsg");
  ASSERT_EQ(::mkfifo((english_ + "/fifo.omsg").c_str(), 0600), 0);
  EXPECT_EQ(Get(translator_, "id"), kUnsupported);  // no locale at all so far
  EXPECT_THAT(log_.texts(), Contains("The translator found 0 .omsg files in directory \"" + english_ + "\""));
}

TEST_F(TranslatorTest, BrokenFileIsSkipped) {
  Put(english_ + "/bad.omsg", "[section]\nid = text\n");
  Put(english_ + "/good.omsg", "fine = yes\n");
  EXPECT_EQ(Get(translator_, "fine"), "yes");
  EXPECT_EQ(Get(translator_, "id"), kUnknown);
  EXPECT_THAT(log_.lines(),
              Contains(CapturedLine{0, "LoadIniFile(\"" + english_ +
                                           "/bad.omsg\") failed = \"Failed to load localization "
                                           "bundle\", returning..."}));
}

TEST_F(TranslatorTest, DirectoryThatIsAFile) {
  Put(english_, "x");
  EXPECT_EQ(Get(translator_, "id"), kUnsupported);
  EXPECT_EQ(log_.lines().front().priority, 2);
  EXPECT_THAT(log_.lines().front().text,
              testing::StartsWith("Cannot open dir \"" + english_ + "\", error message: \""));
}

/// Root reads everything: the owner of nothing for as long as it lives.
class Unprivileged {
 public:
  Unprivileged() { EXPECT_EQ(::seteuid(65534), 0); }
  ~Unprivileged() { EXPECT_EQ(::seteuid(0), 0); }
  Unprivileged(Unprivileged const&) = delete;
  Unprivileged& operator=(Unprivileged const&) = delete;
};

TEST_F(TranslatorTest, FileThatCannotBeOpenedIsSkipped) {
  Put(english_ + "/closed.omsg", "id = text\n");
  Put(english_ + "/good.omsg", "fine = yes\n");
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod((english_ + "/closed.omsg").c_str(), 0), 0);
  Unprivileged const nobody;
  EXPECT_EQ(Get(translator_, "fine"), "yes");
  EXPECT_EQ(Get(translator_, "id"), kUnknown);
  EXPECT_THAT(log_.lines(), Contains(CapturedLine{0, "Opening file \"" + english_ +
                                                         "/closed.omsg\" failed : \"Permission denied\""}));
}

TEST_F(TranslatorTest, WalkThatFailsIsLoggedAndTheNextDirectoryIsWalked) {
  Put(english_ + "/closed/a.omsg", "id = text\n");
  Put(plugins_ + "/keeld/en/a.omsg", "fine = yes\n");
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod((english_ + "/closed").c_str(), 0), 0);
  {
    Unprivileged const nobody;
    EXPECT_EQ(Get(translator_, "fine"), "yes");
  }
  std::string const failure =
      "ExtractOmsgFiles: failed to iterate over \"" + english_ + "\" : \"Permission denied\"";
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{
                {0, failure},
                {2, "The translator found 0 .omsg files in directory \"" + english_ + "\""},
                {2, "The translator found 1 .omsg files in directory \"" + plugins_ + "\""},
                {2, "Translator: Adding \"en\" language file \"" + plugins_ + "/keeld/en/a.omsg\""}}));

  // The directory itself.
  log_.Clear();
  ASSERT_EQ(::chmod(english_.c_str(), 0), 0);
  Unprivileged const nobody;
  EXPECT_EQ(Get(translator_, "id"), kUnknown);
  EXPECT_EQ(log_.lines().at(0), (CapturedLine{0, failure}));
}

TEST_F(TranslatorTest, ManyThreads) {
  Put(english_ + "/a.omsg", "id = text\n");
  Orbane::TestOnlyLogCapture const quiet(0);
  std::vector<std::thread> threads;
  std::atomic<int> good{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        std::error_code error;
        translator_.GetMessage("missing", "en", error);
        good += translator_.GetMessage("id", "en", error) == "text" && !error ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(good, 200);
}

/// The process-wide one, over the installed catalogues.
TEST_F(TranslatorTest, DefaultMessage) {
  boost::filesystem::remove_all("/usr/lib/orbane/configmanager");
  EXPECT_EQ(LifeCycle::GetDefaultMessage("test.only.id"), "Unknown message.");
  std::error_code error;
  EXPECT_EQ(LifeCycle::GetDefaultMessageEx("test.only.id", error), "Unknown message.");
  EXPECT_EQ(error, make_error_code(L10nErrc::LocaleNotSupported));
  Put("/usr/lib/orbane/configmanager/apply_modules/keeld/de/a.omsg", "test.only.id = \"deutsch\"\n");
  EXPECT_EQ(LifeCycle::GetDefaultMessage("test.only.id"), "Unknown message.");
  Put("/usr/lib/orbane/configmanager/locale/en/a.omsg", "test.only.id = \"english {1}\"\n");
  EXPECT_EQ(LifeCycle::GetDefaultMessage("test.only.id"), "english {1}");
  EXPECT_EQ(LifeCycle::GetDefaultMessageEx("test.only.id", error), "english {1}");
  EXPECT_FALSE(error);
  EXPECT_EQ(LifeCycle::GetMessage("test.only.id", "de", error), "deutsch");
}

}  // namespace
