// The entry thread's wait.
#pragma once

/// The wait needs no resources: this and Poll_Exit mark the span in which Poll_Loop may be called.
void Poll_InitDefault();
/// Returns once the byte at `exitFlag` is not 0, at the latest 250 ms after it was set, whatever thread took
/// the signal; no signal can slip past. With `loop` false it waits one slice at most. `classSet` is 0 in this
/// program.
void Poll_Loop(bool loop, char volatile* exitFlag, int classSet);
void Poll_Exit();
