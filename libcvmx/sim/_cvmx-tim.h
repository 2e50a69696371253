// Timers that submit a work entry when their time has come.
//
// They hang in a timer manager of their own, with ticks of 100 ms, so that a delay is rounded to the nearest
// tick, at least one. There is no thread: the loop that does the forwarding plane's work calls cvmx_tim_exec
// every so often, and entries are submitted from there. One thread sets up, adds, deletes and runs.
//
// From adding on the entry belongs to the timer. It is submitted once; when its group doesn't take it, the
// timer tries again a few times and then starts its delay anew.
#pragma once

#include <cstdint>

#include "libcvmx/sim/cvmx-wqe.h"

struct t_timer;

// Times that a failed submit is tried again before the delay starts anew, and the wait before each, in
// microseconds.
inline constexpr int CVMX_TIM_RETRIES = 7;
inline constexpr uint32_t CVMX_TIM_RETRY_USEC = 100;

// Names a timer for its deletion, also after it has fired.
struct cvmx_tim_delete_t {
    uint64_t id;
};

// Makes the manager, stopped; 0, or -1. tick_usec is the unit of the delays, max_ticks the longest of them.
int cvmx_tim_setup(uint64_t tick_usec, uint64_t max_ticks);

// Lets cvmx_tim_exec run timers; the two are one.
void cvmx_tim_enable();
void cvmx_tim_start();

// Deletes all timers, frees their entries with their packets, and ends the manager. Harmless without one.
void cvmx_tim_shutdown();

// 0, or -1 when there is no manager, the delay is longer than agreed or memory is short; the entry is still
// the caller's then. p_delete may be null.
[[nodiscard]] int cvmx_tim_add_entry(cvmx_wqe_t *p_work, uint64_t ticks_from_now,
                                     cvmx_tim_delete_t *p_delete);

// Deletes a timer that hasn't fired; its entry, which the caller knows, is the caller's again. -1 when it
// has fired already.
int cvmx_tim_delete_entry(const cvmx_tim_delete_t *p_delete);

// Runs the timers that are due, unless stopped.
void cvmx_tim_exec();

// The callback of all timers: args are the entry and the timer's id.
void cvmx_tim_cb(t_timer *p_timer, void *p_work, void *p_id, void *, void *);
