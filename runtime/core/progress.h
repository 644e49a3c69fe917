#pragma once

namespace Lumo {

/// Progress of a call: minimum, maximum and current. A fresh one is that of a finished call: 0, 1, 1.
struct Progress {
  long long min = 0;
  long long max = 1;
  long long current = 1;
};

}  // namespace Lumo
