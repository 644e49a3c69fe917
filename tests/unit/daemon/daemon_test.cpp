#include "apps/lifecycle/lumo/lumocpp/daemon.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "platform/logging/logging.h"

namespace {

/// In a process of its own, since an output stands for good.
TEST(AddSyslogOutputDeathTest, GoesOnWithTheOutputThatStands) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto const addTwo = [] {
    constexpr int kLevelOfTheFirst = 3;
    LogOutput* const first = Log_NewSyslogOutput("first", "first", 0, Log_CfgInterface());
    Log_SetOutputLevel(first, kLevelOfTheFirst);
    std::cerr << Log_AddOutput(first);
    Host::Settings::SettingsApi::AddSyslogOutput();
    std::cerr << Log_IsEnabled(kLevelOfTheFirst) << Log_IsEnabled(kLevelOfTheFirst + 1) << '\n';
    std::exit(0);  // not _Exit: a leak of the refused output is told at the end
  };
  EXPECT_EXIT(addTwo(), testing::ExitedWithCode(0), "^110\n$");
}

}  // namespace
