// The entry thread's wait.
#pragma once

void Poll_InitDefault();
/// Returns once the byte at `exitFlag` is not 0, at the latest 250 ms after it was set, whatever thread took the
/// signal; no signal can slip past. `loop` is true and `classSet` 0 in this program.
void Poll_Loop(bool loop, char volatile* exitFlag, int classSet);
void Poll_Exit();
