// Time-outs with a clock that tests may own.
//
// One record holds all time-outs of an engine, in the order in which they fall due. The owner's loop calls
// mgmt_timers_run when mgmt_timers_wait_ms is over; a test moves its own clock and calls it by hand. Owner's
// thread only. Times are milliseconds of a clock that never goes back.
#pragma once

#include <cstdint>
#include <functional>
#include <map>

struct t_mgmt_timers {
    std::function<int64_t()> now_ms;  // never null
    std::function<void()> changed;    // the first time-out may be another one now; may be null
    std::map<std::pair<int64_t, uint64_t>, std::function<void()>> due;  // by time and number
    uint64_t last_number = 0;
};

// A time-out that was set; 0 is none.
struct t_mgmt_timer {
    int64_t due_ms = 0;
    uint64_t number = 0;
};

// The monotonic clock of the system.
int64_t mgmt_clock_ms();

// Calls fn once, delay_ms from now. *p_timer is cancelled first, if it is set.
void mgmt_timer_set(t_mgmt_timers *p_timers, t_mgmt_timer *p_timer, int64_t delay_ms,
                    std::function<void()> fn);

// Forgets a time-out; nothing if it is not set or has run.
void mgmt_timer_cancel(t_mgmt_timers *p_timers, t_mgmt_timer *p_timer);

// Runs all that is due.
void mgmt_timers_run(t_mgmt_timers *p_timers);

// Milliseconds until the first one is due, 0 for now, -1 for never.
int64_t mgmt_timers_wait_ms(const t_mgmt_timers &timers);
