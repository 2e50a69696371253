#include "common/priority_timers.h"

static constexpr int64_t min_gap_ms = 6;
static constexpr uint32_t run_budget_ms = 100;

static f_priority_timers_run g_run;
static void *g_p_run_ctx;
static timespec g_own_last_run;  // for an owner who keeps none
static timespec *g_p_last_run = &g_own_last_run;

void tarn_priority_timers_register(f_priority_timers_run run, void *p_ctx, timespec *p_last_run)
{
    g_run = run;
    g_p_run_ctx = p_ctx;
    g_p_last_run = p_last_run != nullptr ? p_last_run : &g_own_last_run;
}

bool tarn_priority_timers_active()
{
    return g_run != nullptr;
}

int tarn_exec_priority_timers()
{
    if (g_run == nullptr)
        return 0;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    int64_t gap_ms =
        (now.tv_nsec - g_p_last_run->tv_nsec) / 1000000 + (now.tv_sec - g_p_last_run->tv_sec) * 1000;
    if (gap_ms < min_gap_ms)
        return 0;
    g_run(g_p_run_ctx, run_budget_ms);
    clock_gettime(CLOCK_MONOTONIC, g_p_last_run);
    return 0;
}
