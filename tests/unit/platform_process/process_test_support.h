// A throw-away folder for scripts and what they leave.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

class ProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/process-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  /// Makes an executable script and gives its path.
  std::string Script(std::string const& body) const {
    std::string const path = folder_ + "/script" + std::to_string(++scripts_);
    std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
    chmod(path.c_str(), 0700);
    return path;
  }
  std::string Path(std::string const& name) const { return folder_ + "/" + name; }
  static std::string Content(std::string const& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  /// Waits for a file that is complete once it is there.
  std::string Await(std::string const& name) const {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!std::filesystem::exists(Path(name)) && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
    }
    EXPECT_TRUE(std::filesystem::exists(Path(name))) << name;
    return Content(Path(name));
  }

  std::string folder_;

 private:
  mutable int scripts_ = 0;
};
