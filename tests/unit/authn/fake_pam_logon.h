// Stands in for the password check, so that tests see what it is asked.
#pragma once

#include <string>
#include <vector>

namespace FakePamLogon {

struct Asked {
  std::string user;
  std::string password;
  std::string service;
  bool operator==(Asked const&) const = default;
};

/// The logons asked for since the last Take.
std::vector<Asked> Take();
/// Whether logons succeed from now on.
void Accept(bool accept);

}  // namespace FakePamLogon
