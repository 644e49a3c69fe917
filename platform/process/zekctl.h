// Starting processes from command texts, without any shell. A command text is split into words by the shell's
// quoting rules; no character has any further meaning.
#pragma once

#include <exception>
#include <string>

namespace HostCtl::Lib {
class HostCtlException : public std::exception {
 public:
  explicit HostCtlException(std::string text) : text_(std::move(text)) {}
  char const* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};
}  // namespace HostCtl::Lib

namespace ZekCtl::Util {

/// Starts `command` detached: double-forked, a session of its own, no inherited descriptors, default signals,
/// "/dev/null" as standard streams. A word "++…" directly behind the program names resources and is taken off
/// (docs/processes.md). Returns 0, or the errno of a start that failed (EINVAL for unbalanced quotes). The
/// four flags are false, false, true, true in this program. Blocks for the start only.
int ZekCtl_Daemon(std::string const& command, bool inheritStdio, bool wait, bool detach, bool newSession);

/// Runs `command` to its end and returns its exit code, or 128 plus the signal. Throws HostCtlException when
/// it can't be started, with errno set.
int ZekCtl_Exec(std::string const& command, bool inheritStdio, bool wait, bool newSession);

}  // namespace ZekCtl::Util
