#pragma once

#include <stdlib.h>

#include <boost/filesystem.hpp>
#include <string>

#include "tests/unit/text_files.h"

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

using TextFiles::Content;
using TextFiles::Put;
