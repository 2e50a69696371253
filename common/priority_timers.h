// Keeps the high-priority timers alive during long work on the main thread.
//
// Every long loop calls tarn_exec_priority_timers. It costs one clock read, and once 6 ms have passed since
// the timers last ran it runs those of high priority for at most 100 ms. Their callbacks therefore run
// inside a compilation or a configuration pass and must not touch the compiler's context or a rule table.
//
// Who owns a timer manager registers its run function; without one the call does nothing and reads no
// clock. Main thread only.
#pragma once

#include <cstdint>
#include <ctime>

// Runs due high-priority timers for at most budget_ms.
using f_priority_timers_run = void (*)(void *p_ctx, uint32_t budget_ms);

// Names the function that runs the timers; null takes it back. p_ctx is handed to each run. *p_last_run, when
// given, holds the monotonic time of the last run; it is read and written by each call, and is the caller's.
void tarn_priority_timers_register(f_priority_timers_run run, void *p_ctx, timespec *p_last_run = nullptr);

// True when a run function is registered.
bool tarn_priority_timers_active();

// Returns 0.
int tarn_exec_priority_timers();
