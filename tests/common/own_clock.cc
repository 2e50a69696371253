#include "tests/common/own_clock.h"

#include "common/timer_private.h"

static int64_t g_now = 1'000'000'000'000;

void own_clock_set(int64_t now)
{
    g_now = now;
}

int64_t own_clock_now()
{
    return g_now;
}

timespec timer_clock_read()
{
    return {g_now / 1'000'000'000, g_now % 1'000'000'000};
}
