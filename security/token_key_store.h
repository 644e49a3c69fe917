#pragma once

#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/log/logger.h"
#include "security/token_key.h"

namespace Ryn::Authn {

/// The folder of public keys, read as it stands at each question: a file "<name>.pem" that is added, replaced
/// or taken away counts from the next question on. What was read from a file is kept as long as the file
/// stays the same one. A file or folder that somebody else could have put there is no key: a symbolic link,
/// one of another owner than root or the process's user, one that group or others may write, and so for all
/// folders above, where those with the sticky bit pass. Each refused file is logged once. I/O thread only.
class TokenKeyStore {
 public:
  static constexpr char kFolder[] = "/etc/orbane/token-keys";

  using Wall = std::function<std::chrono::system_clock::time_point()>;

  /// `folder` is absolute, without "." and "..".
  explicit TokenKeyStore(std::shared_ptr<Lumo::Log::Logger> logger, std::string folder = kFolder,
                         Wall wall = &std::chrono::system_clock::now);

  /// True for 1 to 128 letters, digits, ".", "_" and "-" that begin with a letter or digit.
  static bool IsKeyName(std::string_view name);

  /// Null when there is no such key, or none that may be used, or `name` is no key's name.
  std::shared_ptr<TokenKey const> Find(std::string const& name);

 private:
  /// What tells one state of a file from another.
  struct Stamp {
    dev_t device;
    ino_t inode;
    off_t size;
    timespec modified;
    timespec changed;

    explicit Stamp(struct stat const& status);
    bool operator==(Stamp const& other) const;
  };
  struct Kept {
    Stamp stamp;
    std::shared_ptr<TokenKey const> key;  // null: refused
  };

  std::shared_ptr<TokenKey const> Load(int file, struct stat const& status, std::string const& name);
  bool IsSettled(timespec const& changed) const;
  void Complain(std::string const& name, std::string const& problem);

  std::shared_ptr<Lumo::Log::Logger> logger_;
  std::string folder_;
  Wall wall_;
  std::map<std::string, Kept> kept_;
  std::map<std::string, std::string> complaints_;  // the last one of each name
};

}  // namespace Ryn::Authn
