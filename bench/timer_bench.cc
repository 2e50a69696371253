// What the timer wheel costs: starting and stopping a timer, and one tick, by the number of timers that hang
// in the wheel. Time is the bench's own, so that each pass walks exactly one bucket.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "common/timer.h"
#include "common/timer_private.h"

static timespec g_now = {1000, 0};

timespec timer_clock_read()
{
    return g_now;
}

static void advance_one_tick()
{
    g_now.tv_nsec += 10'000'000;
    if (g_now.tv_nsec == 1'000'000'000)
        g_now = {g_now.tv_sec + 1, 0};
}

static void count_fired(t_timer *, void *p_count, void *, void *, void *)
{
    ++*static_cast<uint64_t *>(p_count);
}

// A manager with so many running timers, whose intervals are spread evenly up to max_msecs.
struct t_wheel {
    t_timer_mgr *p_mgr;
    std::vector<t_timer *> timers;
    uint64_t fired = 0;

    t_wheel(int64_t count, e_timer_type type, uint32_t max_msecs)
        : p_mgr(timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL))
    {
        std::minstd_rand random(1);
        std::uniform_int_distribution<uint32_t> msecs(10, max_msecs);
        for (int64_t i = 0; i < count; i++) {
            timers.push_back(timer_util_create(p_mgr, TIMER_PRI_NORMAL, type, msecs(random), count_fired,
                                               &fired, nullptr, nullptr, nullptr, "bench"));
            timer_enable(timers.back());
        }
    }
    ~t_wheel()
    {
        for (t_timer *p_timer : timers)
            timer_util_delete(p_timer);
        timer_mgr_destroy(p_mgr);
    }
    t_wheel(const t_wheel &) = delete;
    t_wheel &operator=(const t_wheel &) = delete;
};

static void enable_and_disable(benchmark::State &state)
{
    t_wheel wheel(state.range(0), TIMER_TYPE_ONESHOT, 20'000);
    size_t next = 0;
    for (auto _ : state) {
        t_timer *p_timer = wheel.timers[next];
        next = next + 1 < wheel.timers.size() ? next + 1 : 0;
        timer_disable(p_timer);
        timer_enable(p_timer);
    }
}
BENCHMARK(enable_and_disable)->RangeMultiplier(100)->Range(1, 1'000'000);

// All intervals lie far behind the bench's time: every look is at a timer of a later revolution.
static void tick_that_skips(benchmark::State &state)
{
    t_wheel wheel(state.range(0), TIMER_TYPE_ONESHOT, 20'480);
    for (t_timer *p_timer : wheel.timers)
        timer_reset(p_timer, 2'000'000'000 + timer_get_interval_msec(p_timer));
    for (auto _ : state) {
        advance_one_tick();
        benchmark::DoNotOptimize(timer_exec(wheel.p_mgr, TIMER_PRI_MASK_ALL, 100));
    }
}
BENCHMARK(tick_that_skips)->Arg(0)->Arg(2'000)->Arg(20'000)->Arg(200'000);

static void tick_that_fires(benchmark::State &state)
{
    t_wheel wheel(state.range(0), TIMER_TYPE_CYCLIC, 20'480);
    for (auto _ : state) {
        advance_one_tick();
        benchmark::DoNotOptimize(timer_exec(wheel.p_mgr, TIMER_PRI_MASK_ALL, 100));
    }
    state.counters["fired_per_tick"] =
        benchmark::Counter(static_cast<double>(wheel.fired), benchmark::Counter::kAvgIterations);
}
BENCHMARK(tick_that_fires)->Arg(20)->Arg(2'000)->Arg(200'000);

// The pass after a stall of ten seconds, a thousand buckets long.
static void pass_after_a_stall(benchmark::State &state)
{
    t_wheel wheel(state.range(0), TIMER_TYPE_CYCLIC, 20'480);
    for (auto _ : state) {
        g_now.tv_sec += 10;
        benchmark::DoNotOptimize(timer_exec(wheel.p_mgr, TIMER_PRI_MASK_ALL, 100));
    }
}
BENCHMARK(pass_after_a_stall)->Arg(20)->Arg(2'000)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
