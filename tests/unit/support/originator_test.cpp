#include "support/originator.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "platform/logging/test_only_log_capture.h"
#include "temp_dir.h"

namespace {

using LifeCycle::FindBaseOriginatorId;
using Orbane::CapturedLine;

class OriginatorTest : public testing::Test {
 protected:
  Orbane::TestOnlyLogCapture log_;
  TempDir dir_;
};

TEST_F(OriginatorTest, Form) {
  EXPECT_EQ(LifeCycle::MakeOriginatorId("x"), "pak[x]");
  EXPECT_EQ(LifeCycle::MakeOriginatorId(""), "pak[]");
}

TEST_F(OriginatorTest, SchemaOfTheFlavour) {
  struct Case {
    char const* file;
    bool dpu;
    char const* id;
  };
  for (Case const& c : {
           Case{"ryn-base-1.2-schema.json", false, "pak[ryn-base-1.2]"},
           Case{"ryn-base-1.0.0-schema.json", false, "pak[ryn-base-1.0.0]"},
           Case{"rynio-base-1.0.0-schema.json", true, "pak[rynio-base-1.0.0]"},
           Case{"ryn-base", false, "pak[r]"},              // the base name alone: the last 7 characters go
           Case{"stray-schema.txt", false, "pak[stray]"},  // no .json: taken, whatever its name
           Case{"stray-schema.txt", true, "pak[stray]"},
           Case{"README", false, "pak[]"},
       }) {
    TempDir dir;
    Put(dir / c.file, "{}");
    EXPECT_EQ(FindBaseOriginatorId(dir.path(), c.dpu), c.id) << c.file;
  }
}

TEST_F(OriginatorTest, LogsWhatIsUsed) {
  Put(dir_ / "ryn-base-1.2-schema.json", "{}");
  FindBaseOriginatorId(dir_.path(), false);
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{{2, "Using 'ryn-base-1.2' for ryn-base originator ID"}}));
}

TEST_F(OriginatorTest, JsonOfOtherNamesIsPassedOver) {
  Put(dir_ / "ryn-extra-1.0.0-schema.json", "{}");
  Put(dir_ / "rynio-base-1.0.0-schema.json", "{}");
  EXPECT_THROW(FindBaseOriginatorId(dir_.path(), false), std::runtime_error);
  Put(dir_ / "ryn-base-1.0.0-schema.json", "{}");
  EXPECT_EQ(FindBaseOriginatorId(dir_.path(), false), "pak[ryn-base-1.0.0]");
}

TEST_F(OriginatorTest, OnlyTheHostsSchemaOnTheOtherFlavour) {
  Put(dir_ / "ryn-base-1.0.0-schema.json", "{}");
  EXPECT_THROW(FindBaseOriginatorId(dir_.path(), true), std::runtime_error);
}

TEST_F(OriginatorTest, NoneToBeHad) {
  for (std::string const& directory : {dir_.path(), dir_ / "missing"}) {
    try {
      FindBaseOriginatorId(directory, false);
      ADD_FAILURE() << directory;
    } catch (std::runtime_error const& error) {
      EXPECT_STREQ(error.what(), "Unable to find ryn-base schema");
    }
  }
  EXPECT_TRUE(log_.lines().empty());
}

/// Over the fixed paths, in the order that one process can live through: the id that was found is kept.
TEST_F(OriginatorTest, BaseIdIsFoundOnceAndKept) {
  std::string const schemas = "/usr/lib/orbane/configmanager/schemas";
  boost::filesystem::remove_all(schemas);
  EXPECT_THROW(LifeCycle::GetBaseOriginatorId(), std::runtime_error);
  boost::filesystem::create_directories(schemas);
  EXPECT_THROW(LifeCycle::GetBaseOriginatorId(), std::runtime_error);
  Put(schemas + "/ryn-base-1.2-schema.json", "{}");
  Put("/etc/.rynio", "");
  EXPECT_THROW(LifeCycle::GetBaseOriginatorId(), std::runtime_error);
  ASSERT_EQ(::unlink("/etc/.rynio"), 0);
  EXPECT_EQ(LifeCycle::GetBaseOriginatorId(), "pak[ryn-base-1.2]");
  boost::filesystem::remove_all(schemas);
  EXPECT_EQ(LifeCycle::GetBaseOriginatorId(), "pak[ryn-base-1.2]");
  EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(OriginatorTest, FlavourMarkerOfAnyType) {
  EXPECT_FALSE(LifeCycle::IsDpuFlavour());
  Put("/etc/.rynio", "");
  EXPECT_TRUE(LifeCycle::IsDpuFlavour());
  ASSERT_EQ(::unlink("/etc/.rynio"), 0);
  ASSERT_EQ(::mkdir("/etc/.rynio", 0755), 0);
  EXPECT_TRUE(LifeCycle::IsDpuFlavour());
  ASSERT_EQ(::rmdir("/etc/.rynio"), 0);
  for (char const* target : {"/nowhere", "/etc/.rynio"}) {  // missing when followed, without a status
    ASSERT_EQ(::symlink(target, "/etc/.rynio"), 0);
    EXPECT_FALSE(LifeCycle::IsDpuFlavour()) << target;
    ASSERT_EQ(::unlink("/etc/.rynio"), 0);
  }
}

}  // namespace
