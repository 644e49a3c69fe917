#include "platform/taskdb/connection.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "platform/taskdb/errors.h"
#include "platform/taskdb/schema.h"
#include "platform/taskdb/short_wait.h"

namespace TaskDB {
namespace {

/// As many threads use the database at once in the daemon.
constexpr std::size_t kMaxKept = 4;

std::string FolderOf(std::string const& path) {
  std::size_t const slash = path.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Connections that nobody uses at the moment. One in the process.
class Pool {
 public:
  static Pool& Instance() {
    static Pool* const pool = new Pool;  // never destroyed: threads may work until the process is gone
    return *pool;
  }

  /// Starts a use; null when no connection is kept. Throws LifeCycle::AccessLockError while init holds the
  /// path.
  std::unique_ptr<Connection> Take(std::string const& path) {
    std::unique_lock lock(mutex_);
    for (int count = 0; closed_.count(path) > 0; ++count) {
      lock.unlock();
      if (!ShortWait(count)) {
        throw LifeCycle::AccessLockError(EWOULDBLOCK);
      }
      lock.lock();
    }
    ++uses_;
    for (auto entry = kept_.begin(); entry != kept_.end(); ++entry) {
      if (entry->path == path) {
        std::unique_ptr<Connection> connection = std::move(entry->connection);
        kept_.erase(entry);
        return connection;
      }
    }
    return nullptr;
  }

  /// Ends a use. `connection` may be null.
  void Give(std::string const& path, std::unique_ptr<Connection> connection) {
    std::unique_ptr<Connection> oldest;  // closed outside the lock
    std::lock_guard lock(mutex_);
    if (connection) {
      if (kept_.size() >= kMaxKept) {
        oldest = std::move(kept_.front().connection);
        kept_.erase(kept_.begin());
      }
      kept_.push_back({path, std::move(connection)});
    }
    --uses_;
  }

  void Close(std::string const& path) {
    std::lock_guard lock(mutex_);
    closed_.insert(path);
    std::erase_if(kept_, [&path](Entry const& entry) { return entry.path == path; });
  }

  void Open(std::string const& path) {
    std::lock_guard lock(mutex_);
    closed_.erase(closed_.find(path));
  }

 private:
  struct Entry {
    std::string path;
    std::unique_ptr<Connection> connection;
  };

  Pool() { pthread_atfork(&Pool::PrepareFork, &Pool::ParentAfterFork, &Pool::ChildAfterFork); }

  /// SQLite's own books on locks must not say in the child that it holds what only the parent holds.
  static void PrepareFork() {
    Pool& pool = Instance();
    pool.mutex_.lock();
    for (int count = 0; pool.uses_ > 0; ++count) {
      pool.mutex_.unlock();
      ShortWait(count % 16);
      pool.mutex_.lock();
    }
    pool.kept_.clear();
  }
  static void ParentAfterFork() { Instance().mutex_.unlock(); }
  static void ChildAfterFork() {
    Instance().closed_.clear();  // the threads that work on init are the parent's
    Instance().mutex_.unlock();
  }

  std::mutex mutex_;
  std::vector<Entry> kept_;            // least recently used first
  std::multiset<std::string> closed_;  // paths at which init works
  std::size_t uses_ = 0;
};

bool LockShared(FolderLock const& folder) {
  for (int count = 0; !folder.TryLock(FolderLock::Mode::Shared); ++count) {
    if (!ShortWait(count)) {
      return false;
    }
  }
  return true;
}

std::unique_ptr<Connection> OpenConnection(std::string const& path) {
  auto folder = std::make_unique<FolderLock>(path);
  if (!LockShared(*folder)) {
    throw LifeCycle::AccessLockError(EWOULDBLOCK);
  }
  return std::make_unique<Connection>(path, std::move(folder));
}

void CheckPragma(SqliteHandle& database, char const* sql, std::int64_t expected) {
  Statement statement = database.Prepare(sql);
  if (!statement.Step() || statement.Number(0) != expected) {
    throw LifeCycle::JsonParseError("not a task database of this version");
  }
}

}  // namespace

FileIdentity IdentifyFile(std::string const& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      throw LifeCycle::TaskFileNotFoundError("cannot find \"" + path + "\"");
    }
    throw LifeCycle::AccessLockError(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    throw LifeCycle::JsonParseError("not a plain file: \"" + path + "\"");
  }
  if (status.st_size % kPageBytes != 0) {
    // SQLite would read the missing part of a page as zeros.
    throw LifeCycle::JsonParseError("cut short: \"" + path + "\"");
  }
  return {status.st_dev, status.st_ino};
}

FolderLock::FolderLock(std::string const& filePath)
    : descriptor_(open(FolderOf(filePath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (descriptor_ < 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      throw LifeCycle::TaskFileNotFoundError("cannot find the folder of \"" + filePath + "\"");
    }
    throw LifeCycle::AccessLockError(errno);
  }
}

FolderLock::~FolderLock() {
  close(descriptor_);
}

bool FolderLock::TryLock(Mode mode) const {
  return flock(descriptor_, (mode == Mode::Shared ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0;
}

void FolderLock::Unlock() const {
  flock(descriptor_, LOCK_UN);
}

Connection::Connection(std::string const& path, std::unique_ptr<FolderLock> lockedFolder)
    : folder(std::move(lockedFolder)),
      identity(IdentifyFile(path)),
      database(path, SqliteHandle::AtClose::LeaveJournal) {
  database.Execute("PRAGMA synchronous = NORMAL; PRAGMA trusted_schema = OFF; PRAGMA cell_size_check = ON;");
  CheckPragma(database, "PRAGMA application_id", kApplicationId);
  CheckPragma(database, "PRAGMA user_version", kSchemaVersion);
  if (!(IdentifyFile(path) == identity)) {
    throw LifeCycle::TaskFileNotFoundError("\"" + path + "\" was replaced");
  }
}

Session::Session(std::string path) : path_(std::move(path)), connection_(Pool::Instance().Take(path_)) {
  try {
    if (connection_ && !LockShared(*connection_->folder)) {
      throw LifeCycle::AccessLockError(EWOULDBLOCK);
    }
    if (connection_ && !(IdentifyFile(path_) == connection_->identity)) {
      connection_.reset();
    }
    if (!connection_) {
      connection_ = OpenConnection(path_);
    }
  } catch (...) {
    connection_.reset();
    Pool::Instance().Give(path_, nullptr);
    throw;
  }
}

Session::~Session() {
  if (spoilt_ || connection_->database.inTransaction()) {
    connection_.reset();
  } else {
    connection_->folder->Unlock();
  }
  Pool::Instance().Give(path_, std::move(connection_));
}

void Session::CheckUnmoved() const {
  if (!(IdentifyFile(path_) == connection_->identity)) {
    throw LifeCycle::TaskFileNotFoundError("\"" + path_ + "\" was replaced");
  }
}

InitGate::InitGate(std::string path) : path_(std::move(path)) {
  Pool::Instance().Close(path_);
}

InitGate::~InitGate() {
  Pool::Instance().Open(path_);
}

}  // namespace TaskDB
