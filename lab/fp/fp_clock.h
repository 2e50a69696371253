// The forwarding plane's clock: the machine's ticks, and the times that capture files tell.
//
// A replay sends its packets at the distances that they have in the file, not as fast as the file can be
// read, so that policers act on it as they did, or would have done, on the wire. Such a time may lie ahead of
// the machine's clock; then the whole clock moves ahead and stays there, and never goes back. Times compare
// modulo 2^64.
#pragma once

#include <cstdint>

struct t_fp_clock {
    uint64_t (*p_ticks)();      // the machine's clock
    uint64_t ticks_per_second;  // 0 when nobody knows; files then tell no times
    uint64_t ahead;             // ticks that replays are ahead of the machine's clock
    uint64_t last;              // latest time given out
};

inline uint64_t fp_clock_give(t_fp_clock *p_clock, uint64_t time)
{
    if (static_cast<int64_t>(time - p_clock->last) > 0)
        p_clock->last = time;
    return p_clock->last;
}

// A clock that begins with the present time.
inline t_fp_clock fp_clock_make(uint64_t (*p_ticks)(), uint64_t ticks_per_second)
{
    return {p_ticks, ticks_per_second, 0, p_ticks()};
}

// The present time.
inline uint64_t fp_clock_now(t_fp_clock *p_clock)
{
    return fp_clock_give(p_clock, p_clock->p_ticks() + p_clock->ahead);
}

// The time of an event that is told to happen at `time`: that, or the latest time given out if it is later.
inline uint64_t fp_clock_at(t_fp_clock *p_clock, uint64_t time)
{
    uint64_t machine = p_clock->p_ticks();
    if (static_cast<int64_t>(time - (machine + p_clock->ahead)) > 0)
        p_clock->ahead = time - machine;
    return fp_clock_give(p_clock, time);
}
