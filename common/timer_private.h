// What the timer wheel's own files and its tests share.
#pragma once

#include <ctime>

#include "common/lum_log.h"
#include "common/timer.h"

// Now, on the monotonic clock. Alone in its source file, so that a test or a benchmark that defines it itself
// takes the place of the library's and owns the wheel's time.
timespec timer_clock_read();

extern bool g_timer_debug;

// A line about a single step, while timer_debug is on.
#define TIMER_DEBUG(...)                                                                                     \
    do {                                                                                                     \
        if (g_timer_debug)                                                                                   \
            LUM_LOG(LUM_LOG_DEBUG, __VA_ARGS__);                                                             \
    } while (0)
