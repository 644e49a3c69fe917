#include "security/token_key_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "platform/files/descriptor.h"

namespace Ryn::Authn {
namespace {

using Orbane::Descriptor;

constexpr int kFailureLevel = 4;  // of Lumo::Log::Logger
constexpr std::size_t kMostNameBytes = 128;
constexpr std::size_t kMostFileBytes = 16U << 10U;  // an RSA key of 16384 bits takes 3 KiB
/// Names come from callers, and where files can't be opened for want of descriptors any name is complained
/// of.
constexpr std::size_t kMostComplaints = 256;
/// A file's times advance in steps of some milliseconds; one that changed this short a time ago could change
/// once more and look the same.
constexpr time_t kSettledSeconds = 1;

/// Why a file or folder could be another user's work; null when it could not. `above`: a folder above that of
/// the keys.
char const* Distrust(struct stat const& status, bool above) {
  if (status.st_uid != 0 && status.st_uid != geteuid()) {
    return "it belongs to another user";
  }
  bool const othersMayWrite = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  bool const othersKeepOff = above && (status.st_mode & S_ISVTX) != 0;
  return othersMayWrite && !othersKeepOff ? "others may write it" : nullptr;
}

/// Opens the folder one name after the other, so that each of them is looked at. Without a result `problem`
/// says why.
Descriptor OpenFolder(std::string const& path, std::string& problem) {
  Descriptor folder(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::size_t begin = 1;
  while (true) {
    bool const last = begin > path.size();
    struct stat status {};
    char const* distrust = nullptr;
    if (!folder || fstat(folder.get(), &status) != 0) {
      problem = errno == ENOTDIR ? "it is no folder" : std::strerror(errno);
    } else if ((distrust = Distrust(status, !last)) != nullptr) {
      problem = distrust;
    } else if (last) {
      return folder;
    }
    if (!problem.empty()) {
      problem.insert(0, ": ").insert(0, path, 0, std::max<std::size_t>(begin - 1, 1));
      return Descriptor(-1);
    }
    std::size_t const end = std::min(path.find('/', begin), path.size());
    folder = Descriptor(openat(folder.get(), path.substr(begin, end - begin).c_str(),
                               O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    begin = end + 1;
  }
}

/// The whole content; nothing on an error.
std::optional<std::string> ReadWhole(int file) {
  std::string text;
  std::array<char, 4096> buffer{};
  while (text.size() <= kMostFileBytes) {
    ssize_t const got = read(file, buffer.data(), buffer.size());
    if (got == 0) {
      return text;
    }
    if (got < 0 && errno != EINTR) {
      return std::nullopt;
    }
    text.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  }
  errno = EFBIG;
  return std::nullopt;
}

bool IsAsciiAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool Same(timespec const& a, timespec const& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

TokenKeyStore::Stamp::Stamp(struct stat const& status)
    : device(status.st_dev),
      inode(status.st_ino),
      size(status.st_size),
      modified(status.st_mtim),
      changed(status.st_ctim) {}

bool TokenKeyStore::Stamp::operator==(Stamp const& other) const {
  return device == other.device && inode == other.inode && size == other.size &&
         Same(modified, other.modified) && Same(changed, other.changed);
}

TokenKeyStore::TokenKeyStore(std::shared_ptr<Lumo::Log::Logger> logger, std::string folder, Wall wall)
    : logger_(std::move(logger)), folder_(std::move(folder)), wall_(std::move(wall)) {}

bool TokenKeyStore::IsKeyName(std::string_view name) {
  return !name.empty() && name.size() <= kMostNameBytes && IsAsciiAlphanumeric(name.front()) &&
         std::all_of(name.begin(), name.end(),
                     [](char c) { return IsAsciiAlphanumeric(c) || c == '.' || c == '_' || c == '-'; });
}

std::shared_ptr<TokenKey const> TokenKeyStore::Find(std::string const& name) {
  if (!IsKeyName(name)) {
    return nullptr;
  }
  std::string problem;
  Descriptor const folder = OpenFolder(folder_, problem);
  if (!folder) {
    Complain("", problem);
    return nullptr;
  }
  complaints_.erase("");
  // Without O_NONBLOCK a pipe of that name would hold the daemon up.
  Descriptor const file(openat(folder.get(), (name + ".pem").c_str(),
                               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    int const error = errno;
    kept_.erase(name);
    if (error == ENOENT) {
      complaints_.erase(name);
    } else {
      Complain(name, error == ELOOP ? "it is a symbolic link" : std::strerror(error));
    }
    return nullptr;
  }
  auto const kept = kept_.find(name);
  if (kept != kept_.end() && kept->second.stamp == Stamp(status)) {
    return kept->second.key;
  }
  auto key = Load(file.get(), status, name);
  if (IsSettled(status.st_ctim)) {
    kept_.insert_or_assign(name, Kept{Stamp(status), key});
  } else {
    kept_.erase(name);
  }
  return key;
}

std::shared_ptr<TokenKey const> TokenKeyStore::Load(int file, struct stat const& status,
                                                    std::string const& name) {
  if (!S_ISREG(status.st_mode)) {
    Complain(name, "it is no file");
    return nullptr;
  }
  if (char const* const distrust = Distrust(status, false)) {
    Complain(name, distrust);
    return nullptr;
  }
  auto const text = ReadWhole(file);
  if (!text) {
    Complain(name, std::strerror(errno));
    return nullptr;
  }
  std::string problem;
  auto key = TokenKey::FromPem(*text, problem);
  if (key) {
    complaints_.erase(name);
  } else {
    Complain(name, problem);
  }
  return key;
}

bool TokenKeyStore::IsSettled(timespec const& changed) const {
  return std::chrono::system_clock::from_time_t(changed.tv_sec + kSettledSeconds + 1) <= wall_();
}

void TokenKeyStore::Complain(std::string const& name, std::string const& problem) {
  if (complaints_.size() >= kMostComplaints) {
    complaints_.clear();
  }
  std::string& last = complaints_[name];
  if (last == problem) {
    return;
  }
  last = problem;
  if (name.empty()) {
    Lumo::Log::Write(logger_, kFailureLevel, "Token keys can't be used: ", problem);
  } else {
    Lumo::Log::Write(logger_, kFailureLevel, "Token key ", folder_, "/", name,
                     ".pem can't be used: ", problem);
  }
}

}  // namespace Ryn::Authn
