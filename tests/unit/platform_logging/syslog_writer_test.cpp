#include "platform/logging/syslog_writer.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace {

using Orbane::SyslogWriter;
using namespace std::chrono_literals;

constexpr int kWaitMilliseconds = 30000;

/// The other side of "/dev/log".
class Listener {
 public:
  explicit Listener(std::string path) : path_(std::move(path)) { Open(); }
  ~Listener() { Close(); }
  Listener(Listener const&) = delete;
  Listener& operator=(Listener const&) = delete;

  void Open() {
    descriptor_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    if (bind(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
      ADD_FAILURE() << std::strerror(errno);
    }
  }
  void Close() {
    if (descriptor_ >= 0) {
      close(descriptor_);
      unlink(path_.c_str());
      descriptor_ = -1;
    }
  }
  /// The next datagram; empty when none comes.
  std::string Receive(int milliseconds = kWaitMilliseconds) {
    pollfd entry{descriptor_, POLLIN, 0};
    if (poll(&entry, 1, milliseconds) != 1) {
      return {};
    }
    static char buffer[1 << 18];
    ssize_t const size = recv(descriptor_, buffer, sizeof buffer, 0);
    return size > 0 ? std::string(buffer, static_cast<std::size_t>(size)) : std::string();
  }
  /// The next datagram's text behind "tag[pid]: ".
  std::string ReceiveText(int milliseconds = kWaitMilliseconds) {
    std::string const line = Receive(milliseconds);
    std::size_t const end = line.find("]: ");
    return end == std::string::npos ? line : line.substr(end + 3);
  }

 private:
  std::string const path_;
  int descriptor_ = -1;
};

class Writer : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/syslog-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    path_ = folder_ + "/log";
    // Its thread lives as long as the process.
    static auto* const kept = new std::vector<std::unique_ptr<SyslogWriter>>;
    kept->push_back(std::make_unique<SyslogWriter>("keeld", path_));
    writer_ = kept->back().get();
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string folder_;
  std::string path_;
  SyslogWriter* writer_ = nullptr;
};

TEST_F(Writer, SendsTheProtocolsLines) {
  Listener listener(path_);
  writer_->Write(2, "[opId=7] ", "Creating task\n");
  std::string const line = listener.Receive();
  std::regex const form(
      R"(<29>[A-Z][a-z]{2} [ 123][0-9] \d\d:\d\d:\d\d keeld\[(\d+)\]: \[opId=7\] Creating task)");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(line, match, form)) << line;
  EXPECT_EQ(match[1], std::to_string(getpid()));
}

TEST_F(Writer, KeepsTheOrder) {
  Listener listener(path_);
  for (int i = 0; i < 500; ++i) {
    writer_->Write(2, "", std::to_string(i));
  }
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(listener.ReceiveText(), std::to_string(i));
  }
}

TEST_F(Writer, LinesWaitForASystemLogThatComesLater) {
  writer_->Write(2, "", "early");
  EXPECT_FALSE(writer_->Flush(60s)) << "gives up at once, for there may never be one";
  Listener listener(path_);
  EXPECT_EQ(listener.ReceiveText(), "early");
}

TEST_F(Writer, ReachesASystemLogThatWasRestarted) {
  Listener listener(path_);
  writer_->Write(2, "", "before");
  EXPECT_EQ(listener.ReceiveText(), "before");
  listener.Close();
  writer_->Write(2, "", "meanwhile");
  listener.Open();
  EXPECT_EQ(listener.ReceiveText(), "meanwhile");
  writer_->Write(2, "", "after");
  EXPECT_EQ(listener.ReceiveText(), "after");
}

TEST_F(Writer, DropsAndCountsWhenTheSystemLogIsBehind) {
  Listener listener(path_);
  std::string const text(1000, 'x');
  std::uint64_t refused = 0;
  std::uint64_t written = 0;
  // The listener reads nothing: first its socket fills, then the queue.
  while (refused < 100) {
    if (writer_->DropIfFull() || !writer_->Write(2, "", text)) {
      ++refused;
    } else {
      ++written;
    }
    ASSERT_LT(written, 1000000U);
  }
  std::uint64_t received = 0;
  std::uint64_t reported = 0;
  while (received + reported < written + refused) {
    std::string const line = listener.ReceiveText();
    ASSERT_FALSE(line.empty()) << received << " + " << reported << " of " << written + refused;
    unsigned long long count = 0;
    if (std::sscanf(line.c_str(), "%llu log lines were dropped, the system log did not keep up", &count) ==
        1) {
      reported += count;
    } else {
      EXPECT_EQ(line, text);
      ++received;
    }
  }
  EXPECT_EQ(received, written);
  EXPECT_EQ(reported, refused);
  EXPECT_TRUE(writer_->Flush(60s));
}

TEST_F(Writer, AuditEventsHaveTheirFacilityAndTheirCount) {
  Listener listener(path_);
  writer_->WriteAudit(2, "event");
  EXPECT_EQ(listener.Receive().substr(0, 4), "<85>");
  std::string const text(1000, 'x');
  std::uint64_t taken = 0;
  std::uint64_t refused = 0;
  // The listener reads nothing. Other lines are refused first; events go on for another MiB.
  while (writer_->Write(2, "", text)) {
    ASSERT_LT(++taken, 1000000U);
  }
  std::uint64_t const others = taken;
  while (refused < 100) {
    ++(writer_->WriteAudit(1, text) ? taken : refused);
    ASSERT_LT(taken, 1000000U);
  }
  EXPECT_GT(taken - others, 900U) << "1 MiB of lines of 1 KB";
  std::uint64_t received = 0;
  std::uint64_t reported = 0;
  while (received < taken || reported < refused) {
    std::string const line = listener.Receive();
    ASSERT_FALSE(line.empty()) << received << " + " << reported << " of " << taken + refused;
    std::string const own = line.substr(line.find("]: ") + 3);
    if (own.ends_with(" audit events were dropped, the system log did not keep up")) {
      EXPECT_EQ(line.substr(0, 4), "<84>");
      reported += std::stoull(own);
    } else if (own == text) {
      ++received;
    } else {
      EXPECT_EQ(own, "1 log lines were dropped, the system log did not keep up");
    }
  }
  EXPECT_EQ(received, taken);
  EXPECT_EQ(reported, refused);
}

TEST_F(Writer, FlushWaitsUntilAllIsHandedOver) {
  Listener listener(path_);
  for (int i = 0; i < 5; ++i) {
    writer_->Write(2, "", std::to_string(i));
  }
  ASSERT_TRUE(writer_->Flush(60s));
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(listener.ReceiveText(0), std::to_string(i));
  }
}

TEST_F(Writer, ALongLineFitsADatagramEvenWhenAllOfItIsEscaped) {
  Listener listener(path_);
  writer_->Write(2, "", std::string(32 * 1024, '\x01'));
  std::string const text = listener.ReceiveText();
  EXPECT_EQ(text.size(), 4U * 32 * 1024);
  EXPECT_EQ(text.substr(0, 8), "#001#001");
}

TEST_F(Writer, ItsThreadTakesNoSignals) {
  Listener listener(path_);
  writer_->Write(2, "", "x");
  ASSERT_EQ(listener.ReceiveText(), "x");
  int found = 0;
  for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream name(task.path() / "comm");
    std::string comm;
    std::getline(name, comm);
    if (comm != "syslog") {
      continue;
    }
    std::ifstream status(task.path() / "status");
    std::string line;
    while (std::getline(status, line)) {
      if (line.rfind("SigBlk:", 0) == 0) {
        ++found;
        unsigned long long const blocked = std::stoull(line.substr(7), nullptr, 16);
        // All but SIGKILL and SIGSTOP, which can't be, and the two of the threads library itself, 32 and 33.
        constexpr unsigned long long kCannot = (1ULL << 8) | (1ULL << 18) | (3ULL << 31);
        EXPECT_EQ(blocked | kCannot, ~0ULL) << line;
      }
    }
  }
  EXPECT_GE(found, 1);
  sigset_t own;
  pthread_sigmask(SIG_SETMASK, nullptr, &own);
  EXPECT_EQ(sigismember(&own, SIGTERM), 0) << "the caller's mask is as it was";
}

TEST_F(Writer, AForkedChildLogsForItself) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a sanitizer's own locks may be held at the fork, and a child's thread then waits for ever";
#endif
  Listener listener(path_);
  writer_->Write(2, "", "parent before");
  writer_->PrepareFork();
  pid_t const child = fork();
  if (child == 0) {
    writer_->ChildAfterFork();
    writer_->Write(2, "", "child");
    _exit(writer_->Flush(60s) ? 0 : 1);
  }
  writer_->ParentAfterFork();
  writer_->Write(2, "", "parent after");
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ASSERT_TRUE(writer_->Flush(60s));
  std::vector<std::string> lines;
  for (std::string line = listener.Receive(0); !line.empty(); line = listener.Receive(0)) {
    std::size_t const tag = line.find(" keeld[");
    lines.push_back(line.substr(tag + 1));
  }
  std::string const parentTag = "keeld[" + std::to_string(getpid()) + "]: ";
  std::string const childTag = "keeld[" + std::to_string(child) + "]: ";
  std::sort(lines.begin(), lines.end());
  std::vector<std::string> expected{parentTag + "parent before", parentTag + "parent after",
                                    childTag + "child"};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(lines, expected);
}

}  // namespace
