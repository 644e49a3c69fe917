// A folder of token keys in tests.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/// A folder of its own for each object, removed with it.
class TokenFolder {
 public:
  TokenFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "keeld_tokens.XXXXXX").string();
    root_ = mkdtemp(pattern.data());
    std::filesystem::create_directory(path());
    chmod(path().c_str(), 0755);
  }
  TokenFolder(TokenFolder const&) = delete;
  TokenFolder& operator=(TokenFolder const&) = delete;
  ~TokenFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  std::filesystem::path root() const { return root_; }
  std::filesystem::path path() const { return root_ / "token-keys"; }
  std::filesystem::path file(std::string const& name) const { return path() / (name + ".pem"); }

  /// Writes a file in place.
  void Write(std::string const& name, std::string const& pem) const {
    std::ofstream(file(name), std::ios::binary | std::ios::trunc) << pem;
    chmod(file(name).c_str(), 0644);
  }

 private:
  std::filesystem::path root_;
};
