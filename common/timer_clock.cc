#include "common/timer_private.h"

timespec timer_clock_read()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}
