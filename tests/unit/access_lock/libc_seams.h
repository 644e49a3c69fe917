// The C library calls of the lock, as a test sees and bends them.
#pragma once

#include <string>
#include <vector>

namespace LibcSeams {

/// "<priority> <text>" of each syslog call since the last Take.
std::vector<std::string> TakeSyslog();

/// The next calls fail with these errnos, one each; 0 lets a call through.
void FailSocket(std::vector<int> errors);
void FailBind(std::vector<int> errors);
/// Only closes of sockets that a bind was tried on count.
void FailClose(std::vector<int> errors);

/// Address bytes and length of the last bind.
std::string LastAddress();

}  // namespace LibcSeams
