#include "support/file_helpers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdio>

#include "platform/logging/logging.h"
#include "support/path_exists.h"

namespace LifeCycle {
namespace {

char const* const kTag = "WriteToFile";

void _MakeParent(std::string const& path) {
  boost::filesystem::path const parent = boost::filesystem::path(path).parent_path();
  if (parent.empty() || PathExists(parent.string())) {
    return;
  }
  CSLogger::Log(2, "[%s] Creating directory %s", kTag, parent.c_str());
  try {
    boost::filesystem::create_directories(parent);
  } catch (std::exception const& e) {
    CSLogger::Log(0, "[%s] Failed to create directory %s: %s", kTag, parent.c_str(), e.what());
    throw FileIOError();
  }
}

/// A descriptor of the emptied regular file, or -1.
int _OpenForWriting(char const* path) {
  // O_NONBLOCK: a FIFO without reader fails instead of holding the thread.
  int const fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666);
  if (fd < 0) {
    return -1;
  }
  struct stat info {};
  if (::fstat(fd, &info) != 0 || S_ISFIFO(info.st_mode)) {
    ::close(fd);
    return -1;
  }
  return fd;
}

bool _WriteAll(int fd, std::string const& contents) {
  std::size_t done = 0;
  while (done < contents.size()) {
    ssize_t const count = ::write(fd, contents.data() + done, contents.size() - done);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

void WriteToFile(std::string const& path, std::string const& contents) {
  _MakeParent(path);
  int const fd = _OpenForWriting(path.c_str());
  if (fd < 0) {
    ::remove(path.c_str());
    CSLogger::Log(0, "[%s] Unable to open file: %s", kTag, path.c_str());
    throw FileIOError();
  }
  bool const written = _WriteAll(fd, contents);
  bool const closed = ::close(fd) == 0;
  if (!written || !closed) {
    ::remove(path.c_str());
    CSLogger::Log(0, "[%s] Failed to write to file: %s", kTag, path.c_str());
    throw FileIOError();
  }
}

}  // namespace LifeCycle
