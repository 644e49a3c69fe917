#include "support/path_exists.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;
using LifeCycle::PathExists;

TEST(PathExists, TakesWhateverIsThere) {
  TempDir const folder;
  std::string const file = folder / "file";
  EXPECT_FALSE(PathExists(file));
  std::ofstream{file};
  EXPECT_TRUE(PathExists(file));
  EXPECT_TRUE(PathExists(folder.path()));
  std::string const fifo = folder / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_TRUE(PathExists(fifo));
}

TEST(PathExists, FollowsLinks) {
  TempDir const folder;
  std::string const link = folder / "link";
  fs::create_symlink(folder / "none", link);
  EXPECT_FALSE(PathExists(link));
  std::ofstream{folder / "none"};
  EXPECT_TRUE(PathExists(link));
}

TEST(PathExists, CountsAStatusThatCannotBeHadAsMissing) {
  TempDir const folder;
  std::ofstream{folder / "file"};
  EXPECT_FALSE(PathExists(folder / "file/below"));
  EXPECT_FALSE(PathExists(folder / std::string(300, 'x')));
  EXPECT_FALSE(PathExists(""));
}

}  // namespace
