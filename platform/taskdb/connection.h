// Connections to task database files, lent for one use each.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "platform/taskdb/sqlite_handle.h"

namespace TaskDB {

/// Which file a path names.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  bool operator==(FileIdentity const&) const = default;
};

/// Of a plain file at `path`. Throws LifeCycle::TaskFileNotFoundError when nothing is there and
/// JsonParseError for anything but a plain file of whole pages; links are not followed.
FileIdentity IdentifyFile(std::string const& path);

/// The folder of a database file, open, for the lock that keeps users and init apart: users hold it shared
/// while they work, init exclusively while it replaces the files. A lock file of its own could be deleted;
/// the folder can't.
class FolderLock {
 public:
  /// Throws LifeCycle::TaskFileNotFoundError when there is no such folder.
  explicit FolderLock(std::string const& filePath);
  ~FolderLock();
  FolderLock(FolderLock const&) = delete;
  FolderLock& operator=(FolderLock const&) = delete;

  enum class Mode { Shared, Exclusive };
  /// One attempt without waiting.
  bool TryLock(Mode mode) const;
  void Unlock() const;

 private:
  int descriptor_;
};

/// An open, checked connection to one file, and the folder it lies in.
struct Connection {
  /// The file must exist and be a task database. Throws SqliteFailure, TaskFileNotFoundError, JsonParseError.
  Connection(std::string const& path, std::unique_ptr<FolderLock> lockedFolder);

  std::unique_ptr<FolderLock> folder;
  FileIdentity identity;
  SqliteHandle database;
};

/// One use of the database at a path: the folder lock and a connection to the very file that the path names
/// now. Connections are kept for the next use, but only while the path names the same file, and never over a
/// fork: a fork first waits for uses to end and closes what is kept.
class Session {
 public:
  /// Throws as Connection does, and LifeCycle::AccessLockError when init is at work.
  explicit Session(std::string path);
  ~Session();
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;

  SqliteHandle& database() { return connection_->database; }
  /// Throws LifeCycle::TaskFileNotFoundError when the path names another file by now, or none.
  void CheckUnmoved() const;
  /// Don't keep the connection.
  void Spoil() { spoilt_ = true; }

 private:
  std::string const path_;
  std::unique_ptr<Connection> connection_;
  bool spoilt_ = false;
};

/// While it lives, no session for `path` starts in this process, so that init need not wait for its own
/// threads again and again; the kept connections are closed at the start.
class InitGate {
 public:
  explicit InitGate(std::string path);
  ~InitGate();
  InitGate(InitGate const&) = delete;
  InitGate& operator=(InitGate const&) = delete;

 private:
  std::string const path_;
};

}  // namespace TaskDB
