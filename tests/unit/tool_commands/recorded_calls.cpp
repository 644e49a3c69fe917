#include "recorded_calls.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <chrono>
#include <fstream>
#include <thread>

#include "tests/unit/lifecycle_state.h"

namespace Recorded {
namespace {

char const* const kCalls = "/tmp/recorder/calls";

}  // namespace

void Install() {
  namespace fs = boost::filesystem;
  fs::create_directories("/tmp/recorder");
  for (char const* path : {"/usr/bin/ryncli", "/usr/bin/nearcli", "/usr/bin/python", "/usr/bin/sh",
                           "/usr/bin/dash", "/usr/bin/bash", "/usr/bin/touch"}) {
    fs::remove(path);
    std::ofstream(path, std::ios::binary) << std::ifstream(COMMAND_RECORDER, std::ios::binary).rdbuf();
    ASSERT_EQ(::chmod(path, 0755), 0);
  }
}

void Answer(std::string const& output, int status, int signal) {
  LifecycleState::Put("/tmp/recorder/output", output);
  LifecycleState::Put("/tmp/recorder/status", std::to_string(status));
  LifecycleState::Put("/tmp/recorder/signal", std::to_string(signal));
}

std::vector<Words> Take() {
  std::string const text = LifecycleState::Content(kCalls);
  boost::filesystem::remove(kCalls);
  std::vector<Words> calls;
  std::size_t position = 0;
  auto const next = [&] {
    std::size_t const end = text.find('\0', position);
    std::string word = text.substr(position, end - position);
    position = end + 1;
    return word;
  };
  while (position < text.size()) {
    Words words;
    for (int count = std::stoi(next()); count > 0; --count) {
      words.push_back(next());
    }
    calls.push_back(words);
  }
  return calls;
}

std::vector<Words> Await() {
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (LifecycleState::Content(kCalls).empty() && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  return Take();
}

long LastProcess() {
  std::ifstream in("/proc/loadavg");
  std::string field;
  for (int i = 0; i < 5; ++i) {
    in >> field;
  }
  return std::stol(field);
}

}  // namespace Recorded
