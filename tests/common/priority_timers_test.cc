#include "common/priority_timers.h"

#include <gtest/gtest.h>

#include <ctime>
#include <vector>

extern "C" int __real_clock_gettime(clockid_t clock, timespec *p_time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *p_time);

static bool g_own_clock;
static int64_t g_now_us;  // of the monotonic clock, while it is ours
static int g_reads;

extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *p_time)
{
    if (!g_own_clock || clock != CLOCK_MONOTONIC)
        return __real_clock_gettime(clock, p_time);
    g_reads++;
    *p_time = {g_now_us / 1000000, g_now_us % 1000000 * 1000};
    return 0;
}

static std::vector<int64_t> g_runs_us;  // when the timers ran

// Timers that take 2 ms.
static void run_timers(void *p_ctx, uint32_t budget_ms)
{
    EXPECT_EQ(p_ctx, &g_runs_us);
    EXPECT_EQ(budget_ms, 100u);
    g_runs_us.push_back(g_now_us);
    g_now_us += 2000;
}

TEST(PriorityTimers, NothingHappensWithoutATimerManager)
{
    g_own_clock = true;
    g_reads = 0;
    EXPECT_FALSE(tarn_priority_timers_active());
    EXPECT_EQ(tarn_exec_priority_timers(), 0);
    g_own_clock = false;
    EXPECT_EQ(g_reads, 0);
}

TEST(PriorityTimers, RunAtMostOncePerSixMillisecondsCountedFromTheirEnd)
{
    g_own_clock = true;
    g_now_us = 5'000'000;  // any time after the clock's start; no run yet
    tarn_priority_timers_register(run_timers, &g_runs_us);
    EXPECT_TRUE(tarn_priority_timers_active());
    static const struct {
        int64_t at_us;
        size_t runs;
    } looks[] = {
        {5'000'000, 1},
        {5'002'000, 1},
        {5'007'999, 1},
        {5'008'000, 2},
        {5'015'999, 2},
        {5'997'500, 3},
        // The last run ended at 5'999'500. Across a second the nanosecond part is negative and is cut
        // towards zero, so the sixth millisecond counts from its first half on.
        {6'004'499, 3},
        {6'004'900, 4},
    };
    for (const auto &look : looks) {
        g_now_us = look.at_us;
        EXPECT_EQ(tarn_exec_priority_timers(), 0);
        EXPECT_EQ(g_runs_us.size(), look.runs) << "at " << look.at_us;
    }
    tarn_priority_timers_register(nullptr, nullptr);
    g_own_clock = false;
}
