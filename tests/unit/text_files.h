// Whole files as texts.
#pragma once

#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>
#include <string>

namespace TextFiles {

/// Writes the file, and the folders that it lies in.
inline void Put(std::string const& path, std::string const& content) {
  boost::filesystem::create_directories(boost::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

/// Empty for a file that can't be read.
inline std::string Content(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace TextFiles
