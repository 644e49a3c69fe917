// Writing of documents for the host tools.
#pragma once

#include <exception>
#include <string>

namespace LifeCycle {

/// A file could not be written. What happened is in the log.
class FileIOError : public std::exception {};

/// Replaces the content of `path` in place, after making missing parent directories. Not atomic: a reader can
/// see a part. A symbolic link or FIFO at `path` is not followed but counts as a failed open. On failure the
/// file is removed and FileIOError thrown. Any thread.
void WriteToFile(std::string const& path, std::string const& contents);

}  // namespace LifeCycle
