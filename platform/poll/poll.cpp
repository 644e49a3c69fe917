#include "platform/poll/poll.h"

#include <poll.h>

#include <csignal>
#include <ctime>

namespace {

/// Longest wait between two looks at the flag, in nanoseconds. A signal that another thread took interrupts
/// nothing here, so this bounds the delay; 50 ms below the promised 250 ms leave room for a busy machine.
constexpr long kSliceNanoseconds = 200L * 1000 * 1000;

bool IsSet(char volatile* exitFlag) {
  return __atomic_load_n(exitFlag, __ATOMIC_ACQUIRE) != 0;
}

}  // namespace

void Poll_InitDefault() {}

void Poll_Loop(bool loop, char volatile* exitFlag, int /*classSet*/) {
  // Signals are let in only by ppoll, which swaps the mask and starts to wait in one step: one that arrives
  // between the look at the flag and the wait ends the wait at once.
  sigset_t all;
  sigset_t original;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &original);
  while (!IsSet(exitFlag)) {
    timespec const slice{0, kSliceNanoseconds};
    ppoll(nullptr, 0, &slice, &original);
    if (!loop) {
      break;
    }
  }
  pthread_sigmask(SIG_SETMASK, &original, nullptr);
}

void Poll_Exit() {}
