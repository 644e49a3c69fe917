#pragma once

#include <stdlib.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>
#include <string>

/// A fresh directory that goes with the object.
class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/keeld-test-XXXXXX";
    path_ = ::mkdtemp(name);
  }
  ~TempDir() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(path_, ignored);
  }
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;

  std::string operator/(std::string const& name) const { return path_ + "/" + name; }
  std::string const& path() const { return path_; }

 private:
  std::string path_;
};

inline void Put(std::string const& path, std::string const& content) {
  boost::filesystem::create_directories(boost::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

inline std::string Content(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
