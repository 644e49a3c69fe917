// Waiting for a lock that is usually held for some ten microseconds.
#pragma once

namespace TaskDB {

/// Waits a little, longer with each `count` from 0 on. False, without a wait, once the waits have come to
/// some 50 ms.
bool ShortWait(int count);

}  // namespace TaskDB
