#include "support/file_helpers.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <type_traits>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "temp_dir.h"

namespace {

using LifeCycle::FileIOError;
using LifeCycle::WriteToFile;
using Orbane::CapturedLine;
using Lines = std::vector<CapturedLine>;

static_assert(std::is_base_of_v<std::exception, FileIOError>);

bool Exists(std::string const& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

class WriteToFileTest : public testing::Test {
 protected:
  Orbane::TestOnlyLogCapture log_;
  TempDir dir_;
};

TEST_F(WriteToFileTest, CreatesAndReplaces) {
  std::string const path = dir_ / "spec";
  WriteToFile(path, "a longer text");
  EXPECT_EQ(Content(path), "a longer text");
  std::string const binary("\0\n\xff", 3);
  WriteToFile(path, binary);
  EXPECT_EQ(Content(path), binary);
  WriteToFile(path, "");
  EXPECT_EQ(Content(path), "");
  EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(WriteToFileTest, LargeText) {
  std::string const text(5 << 20, 'x');
  WriteToFile(dir_ / "large", text);
  EXPECT_EQ(Content(dir_ / "large"), text);
}

TEST_F(WriteToFileTest, ModeIsTheProcessDefault) {
  mode_t const old = ::umask(027);
  WriteToFile(dir_ / "mode", "x");
  ::umask(old);
  struct stat info {};
  ASSERT_EQ(::stat((dir_ / "mode").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640U);
}

TEST_F(WriteToFileTest, MakesTheWholeChainOfDirectories) {
  WriteToFile(dir_ / "a/b/c/file", "x");
  EXPECT_EQ(Content(dir_ / "a/b/c/file"), "x");
  EXPECT_EQ(log_.lines(), (Lines{{2, "[WriteToFile] Creating directory " + (dir_ / "a/b/c")}}));
}

TEST_F(WriteToFileTest, BareFileNameTouchesNoDirectory) {
  ASSERT_EQ(::chdir(dir_.path().c_str()), 0);
  WriteToFile("bare", "x");
  ASSERT_EQ(::chdir("/"), 0);
  EXPECT_EQ(Content(dir_ / "bare"), "x");
  EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(WriteToFileTest, DirectoryThatCannotBeMade) {
  Put(dir_ / "file", "kept");
  EXPECT_THROW(WriteToFile(dir_ / "file/below/it", "x"), FileIOError);
  EXPECT_EQ(Content(dir_ / "file"), "kept");
  ASSERT_EQ(log_.lines().size(), 2U);
  EXPECT_EQ(log_.lines()[0], (CapturedLine{2, "[WriteToFile] Creating directory " + (dir_ / "file/below")}));
  std::string const start = "[WriteToFile] Failed to create directory " + (dir_ / "file/below") + ": ";
  EXPECT_EQ(log_.lines()[1].priority, 0);
  EXPECT_EQ(log_.lines()[1].text.substr(0, start.size()), start);
  EXPECT_NE(log_.lines()[1].text.find("Not a directory"), std::string::npos) << log_.lines()[1].text;
}

TEST_F(WriteToFileTest, ParentWhoseStatusCannotBeHadIsMade) {
  ASSERT_EQ(::symlink((dir_ / "loop").c_str(), (dir_ / "loop").c_str()), 0);
  EXPECT_THROW(WriteToFile(dir_ / "loop/file", "x"), FileIOError);
  ASSERT_EQ(log_.lines().size(), 2U);
  EXPECT_EQ(log_.lines()[0], (CapturedLine{2, "[WriteToFile] Creating directory " + (dir_ / "loop")}));
  std::string const start = "[WriteToFile] Failed to create directory " + (dir_ / "loop") + ": ";
  EXPECT_EQ(log_.lines()[1].text.substr(0, start.size()), start);
}

TEST_F(WriteToFileTest, ParentThatIsAFileFailsTheOpen) {
  Put(dir_ / "file", "kept");
  EXPECT_THROW(WriteToFile(dir_ / "file/below", "x"), FileIOError);
  EXPECT_EQ(log_.lines(), (Lines{{0, "[WriteToFile] Unable to open file: " + (dir_ / "file/below")}}));
}

TEST_F(WriteToFileTest, FailedOpenRemovesWhatWasThere) {
  std::string const empty = dir_ / "empty-directory";
  ASSERT_EQ(::mkdir(empty.c_str(), 0755), 0);
  EXPECT_THROW(WriteToFile(empty, "x"), FileIOError);
  EXPECT_FALSE(Exists(empty));
  EXPECT_EQ(log_.lines(), (Lines{{0, "[WriteToFile] Unable to open file: " + empty}}));

  Put(dir_ / "full-directory/file", "kept");  // remove can't
  EXPECT_THROW(WriteToFile(dir_ / "full-directory", "x"), FileIOError);
  EXPECT_EQ(Content(dir_ / "full-directory/file"), "kept");
}

TEST_F(WriteToFileTest, PlantedLinkIsNotFollowed) {
  Put(dir_ / "target", "kept");
  ASSERT_EQ(::symlink((dir_ / "target").c_str(), (dir_ / "link").c_str()), 0);
  EXPECT_THROW(WriteToFile(dir_ / "link", "x"), FileIOError);
  EXPECT_EQ(Content(dir_ / "target"), "kept");
  EXPECT_FALSE(Exists(dir_ / "link"));
  WriteToFile(dir_ / "link", "x");  // the way is clear now
  EXPECT_EQ(Content(dir_ / "link"), "x");
}

TEST_F(WriteToFileTest, PlantedFifoDoesNotHoldTheThread) {
  ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0600), 0);
  EXPECT_THROW(WriteToFile(dir_ / "fifo", "x"), FileIOError);
  EXPECT_FALSE(Exists(dir_ / "fifo"));
}

TEST_F(WriteToFileTest, FailedWriteLeavesNoFile) {
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  rlimit small = limit;
  small.rlim_cur = 1000;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_THROW(WriteToFile(dir_ / "big", std::string(2000, 'x')), FileIOError);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_FALSE(Exists(dir_ / "big"));
  EXPECT_EQ(log_.lines(), (Lines{{0, "[WriteToFile] Failed to write to file: " + (dir_ / "big")}}));
}

}  // namespace
