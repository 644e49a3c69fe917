#include "platform/taskdb/create_database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "platform/taskdb/connection.h"
#include "platform/taskdb/reserve.h"
#include "platform/taskdb/schema.h"

namespace TaskDB {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kWaitForUsers{5};
constexpr std::chrono::microseconds kBetweenLooks{100};

/// Who can write to the folder can put another file in the place of ours.
void CheckFolder(fs::path const& folder) {
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) {
    throw std::runtime_error(std::strerror(errno));
  }
  bool const foreignOwner = status.st_uid != 0 && status.st_uid != geteuid();
  bool const foreignGroup =
      (status.st_mode & S_IWGRP) != 0 && status.st_gid != 0 && status.st_gid != getegid();
  if (foreignOwner || foreignGroup || (status.st_mode & S_IWOTH) != 0) {
    throw std::runtime_error("others can write to its folder");
  }
}

/// A user works for a fraction of a millisecond at a time, so looking often finds a gap; one that hangs for
/// long does not keep us: it goes on with the old files, which it has open.
void LockOutUsers(FolderLock const& folder) {
  auto const end = std::chrono::steady_clock::now() + kWaitForUsers;
  while (!folder.TryLock(FolderLock::Mode::Exclusive) && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(kBetweenLooks);
  }
}

void RemoveDatabase(std::string const& path) {
  // The journals before the file: a new file must never meet an old journal.
  for (char const* const suffix : {"-journal", "-wal", "-shm", "-reserve", ""}) {
    fs::remove_all(path + suffix);
  }
}

void BuildDatabase(std::string const& path) {
  int const descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor < 0) {
    throw std::runtime_error(std::strerror(errno));
  }
  close(descriptor);
  SqliteHandle database(path, SqliteHandle::AtClose::FoldJournal);
  database.Execute(kCreateSchema);
}

}  // namespace

void CreateDatabase(std::string const& path) {
  InitGate const gate(path);
  std::string const fresh = path + ".new";
  try {
    fs::path const folder = fs::absolute(path).parent_path();
    fs::create_directories(folder);
    CheckFolder(folder);
    FolderLock const lock(path);
    LockOutUsers(lock);
    RemoveDatabase(fresh);
    RemoveDatabase(path);
    BuildDatabase(fresh);
    fs::rename(fresh, path);
  } catch (std::exception const& failure) {
    throw std::runtime_error("cannot create the task database \"" + path + "\": " + failure.what());
  }
  Reserve(path).Ensure();
}

}  // namespace TaskDB
