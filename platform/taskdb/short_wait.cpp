#include "platform/taskdb/short_wait.h"

#include <ctime>
#include <iterator>

namespace TaskDB {

bool ShortWait(int count) {
  // 25 short waits of 1.1 ms together for another's transaction, then some for its checkpoint.
  constexpr int kMicroseconds[] = {10,   10,   20,   20,   20,   50,   50,   50,   50,   100,
                                   100,  100,  100,  200,  200,  500,  500,  500,  1000, 1000,
                                   1000, 2000, 2000, 3000, 5000, 5000, 8000, 8000, 10000};
  if (count < 0 || count >= static_cast<int>(std::size(kMicroseconds))) {
    return false;
  }
  timespec const time{0, kMicroseconds[count] * 1000L};
  nanosleep(&time, nullptr);
  return true;
}

}  // namespace TaskDB
