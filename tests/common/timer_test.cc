#include "common/timer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/timer_private.h"
#include "tests/common/own_clock.h"
#include "tests/common/syslog_lines.h"

static constexpr int64_t sec = 1000 * OWN_CLOCK_MSEC;

static void call_function(t_timer *p_timer, void *arg1, void *arg2, void *arg3, void *arg4);

// A manager at 10 ms whose timers call functions; what fires is noted as "name@tick".
struct TimerTest : testing::Test {
    t_timer_mgr *p_mgr;
    std::vector<std::string> fired;
    std::vector<std::unique_ptr<std::function<void(t_timer *)>>> functions;
    int64_t start_ns;

    TimerTest()
    {
        own_clock_set(1000 * sec);
        start_ns = own_clock_now();
        p_mgr = timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
        syslog_lines_take();
    }

    ~TimerTest() override
    {
        while (p_mgr->created_timers.p_head != nullptr)
            timer_util_delete(DLL_RECORD(p_mgr->created_timers.p_head, t_timer, created_dlnode));
        timer_mgr_destroy(p_mgr);
    }

    t_timer *create(
        const char *name, e_timer_type type, uint32_t msecs,
        std::function<void(t_timer *)> function = [](t_timer *) {},
        e_timer_priority priority = TIMER_PRI_NORMAL)
    {
        functions.push_back(std::make_unique<std::function<void(t_timer *)>>(std::move(function)));
        return timer_util_create(p_mgr, priority, type, msecs, call_function, this, functions.back().get(),
                                 nullptr, nullptr, name);
    }

    t_timer *start(
        const char *name, e_timer_type type, uint32_t msecs,
        std::function<void(t_timer *)> function = [](t_timer *) {},
        e_timer_priority priority = TIMER_PRI_NORMAL)
    {
        t_timer *p_timer = create(name, type, msecs, std::move(function), priority);
        timer_enable(p_timer);
        return p_timer;
    }

    // Pumps the wheels every 10 ms for so many ticks.
    void run_ticks(int ticks)
    {
        for (int i = 0; i < ticks; i++) {
            own_clock_advance(10 * OWN_CLOCK_MSEC);
            ASSERT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100), 0);
        }
    }
};

static void call_function(t_timer *p_timer, void *arg1, void *arg2, void *, void *)
{
    TimerTest *p_test = static_cast<TimerTest *>(arg1);
    int64_t tick = (own_clock_now() - p_test->start_ns) / (10 * OWN_CLOCK_MSEC);
    p_test->fired.push_back(std::string(p_timer->name) + "@" + std::to_string(tick));
    (*static_cast<std::function<void(t_timer *)> *>(arg2))(p_timer);
}

using names = std::vector<std::string>;

TEST(Timer, ConversionsRoundToTheNearestTickOrCut)
{
    static const struct {
        e_timer_resn resn;
        uint64_t msecs;
        uint64_t rounded;
        uint64_t cut;
    } rows[] = {
        {TIMER_RESN_10MSEC, 4, 0, 0},
        {TIMER_RESN_10MSEC, 5, 1, 0},
        {TIMER_RESN_10MSEC, 14, 1, 1},
        {TIMER_RESN_10MSEC, 15, 2, 1},
        {TIMER_RESN_50MSEC, 24, 0, 0},
        {TIMER_RESN_50MSEC, 25, 1, 0},
        {TIMER_RESN_100MSEC, 149, 1, 1},
        {TIMER_RESN_100MSEC, 150, 2, 1},
        {TIMER_RESN_500MSEC, 749, 1, 1},
        {TIMER_RESN_500MSEC, 750, 2, 1},
        {TIMER_RESN_SEC, 1499, 1, 1},
        {TIMER_RESN_SEC, 1500, 2, 1},
        {TIMER_RESN_MIN, 29999, 0, 0},
        {TIMER_RESN_MIN, 30000, 1, 0},
        {TIMER_RESN_10MSEC, 5'000'000'000, 500'000'000, 500'000'000},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(TIMER_MSECS_TO_TICKS(row.resn, row.msecs, true), row.rounded)
            << row.resn << " " << row.msecs;
        EXPECT_EQ(TIMER_MSECS_TO_TICKS(row.resn, row.msecs, false), row.cut) << row.resn << " " << row.msecs;
    }
    static const uint64_t tick_msecs[] = {10, 50, 100, 500, 1000, 60000};
    for (int resn = TIMER_RESN_10MSEC; resn <= TIMER_RESN_MIN; resn++) {
        uint64_t three = TIMER_TICKS_TO_MSECS(static_cast<e_timer_resn>(resn), 3);
        EXPECT_EQ(three, 3 * tick_msecs[resn]) << resn;
    }
}

TEST_F(TimerTest, AManagerTellsItsResolutionAndLaysItsWheelsBehindIt)
{
    timeval interval;
    EXPECT_EQ(timer_mgr_get_resolution(p_mgr, &interval), TIMER_RESN_10MSEC);
    EXPECT_EQ(timer_mgr_get_resolution(p_mgr, nullptr), TIMER_RESN_10MSEC);
    EXPECT_EQ(interval.tv_sec, 0);
    EXPECT_EQ(interval.tv_usec, 10000);
    EXPECT_EQ(static_cast<void *>(p_mgr->pri[TIMER_PRI_NORMAL]), p_mgr + 1);
    EXPECT_EQ(p_mgr->pri[TIMER_PRI_HIGH], p_mgr->pri[TIMER_PRI_NORMAL] + 1);
    t_timer_mgr *p_minutes = timer_mgr_create(TIMER_RESN_MIN, nullptr, nullptr, this, TIMER_PRI_MASK_HIGH);
    timer_mgr_get_resolution(p_minutes, &interval);
    EXPECT_EQ(interval.tv_sec, 60);
    EXPECT_EQ(interval.tv_usec, 0);
    EXPECT_EQ(p_minutes->pri[TIMER_PRI_NORMAL], nullptr);
    EXPECT_EQ(static_cast<void *>(p_minutes->pri[TIMER_PRI_HIGH]), p_minutes + 1);
    EXPECT_EQ(p_minutes->mem_arg, this);
    timer_mgr_destroy(p_minutes);
}

TEST_F(TimerTest, TheClockAdvancesByWholeTicksAndCarriesOnlyAboveASecond)
{
    static const struct {
        int64_t advance_ns;
        uint64_t cur_ticks;
        timespec cur_time;
    } rows[] = {
        {9'999'999, 0, {1000, 0}},
        {1, 1, {1000, 10'000'000}},
        {25'000'000, 3, {1000, 30'000'000}},
        {5'000'000, 4, {1000, 40'000'000}},
        // Exactly a second stays in the nanoseconds.
        {960'000'000, 100, {1000, 1'000'000'000}},
        {9'000'000, 100, {1000, 1'000'000'000}},
        {1'000'000, 101, {1001, 10'000'000}},
        {3'600'000'000'000, 360'101, {4601, 10'000'000}},
    };
    for (const auto &row : rows) {
        own_clock_advance(row.advance_ns);
        timer_mgr_update_curtime(p_mgr);
        EXPECT_EQ(p_mgr->cur_ticks, row.cur_ticks);
        EXPECT_EQ(p_mgr->cur_time.tv_sec, row.cur_time.tv_sec) << row.cur_ticks;
        EXPECT_EQ(p_mgr->cur_time.tv_nsec, row.cur_time.tv_nsec) << row.cur_ticks;
    }
}

static int g_allocations_left;

static void *scarce_alloc(size_t size)
{
    return g_allocations_left-- > 0 ? malloc(size) : nullptr;
}

TEST(Timer, PrioritiesFallBackToALowerWheelAndFailuresGiveNull)
{
    static const struct {
        uint32_t pri_mask;
        e_timer_priority asked;
        int actual;  // -1: no timer
    } rows[] = {
        {TIMER_PRI_MASK_ALL, TIMER_PRI_HIGH, TIMER_PRI_HIGH},
        {TIMER_PRI_MASK_ALL, TIMER_PRI_NORMAL, TIMER_PRI_NORMAL},
        {TIMER_PRI_MASK_NORMAL, TIMER_PRI_HIGH, TIMER_PRI_NORMAL},
        {TIMER_PRI_MASK_HIGH, TIMER_PRI_HIGH, TIMER_PRI_HIGH},
        {TIMER_PRI_MASK_HIGH, TIMER_PRI_NORMAL, -1},
    };
    for (const auto &row : rows) {
        g_allocations_left = 2;
        t_timer_mgr *p_mgr = timer_mgr_create(TIMER_RESN_SEC, scarce_alloc, free, nullptr, row.pri_mask);
        t_timer *p_timer = timer_util_create(p_mgr, row.asked, TIMER_TYPE_ONESHOT, 1, nullptr, nullptr,
                                             nullptr, nullptr, nullptr, "t");
        EXPECT_EQ(p_timer != nullptr ? p_timer->priority : -1, row.actual)
            << row.pri_mask << " " << row.asked;
        EXPECT_EQ(p_mgr->num_timers_created, row.actual >= 0 ? 1u : 0u);
        timer_util_delete(p_timer);
        g_allocations_left = 0;
        EXPECT_EQ(timer_util_create(p_mgr, row.asked, TIMER_TYPE_ONESHOT, 1, nullptr, nullptr, nullptr,
                                    nullptr, nullptr, "t"),
                  nullptr);
        EXPECT_EQ(timer_mgr_create(TIMER_RESN_SEC, scarce_alloc, free, nullptr, row.pri_mask), nullptr);
        timer_mgr_destroy(p_mgr);
    }
}

TEST_F(TimerTest, ACreatedTimerIsIdleAndItsNameIsCut)
{
    std::string name(60, 'n');
    t_timer *p_timer = create(name.c_str(), TIMER_TYPE_ONESHOT, 14);
    EXPECT_EQ(p_timer->name, name.substr(0, 39));
    EXPECT_FALSE(timer_is_active(p_timer));
    EXPECT_EQ(p_timer->bucket, TIMER_BUCKET_NULL);
    EXPECT_EQ(timer_get_ticks_to_expiry(p_timer), -1);
    EXPECT_EQ(timer_get_msecs_to_expiry(p_timer), -1);
    EXPECT_EQ(timer_get_interval_ticks(p_timer), 1);
    EXPECT_EQ(timer_get_interval_msec(p_timer), 10);
    EXPECT_EQ(timer_get_interval_ticks(nullptr), -1);
    EXPECT_EQ(timer_get_interval_msec(nullptr), -1);
    void *p_arg1 = nullptr;
    void *p_arg4 = this;
    timer_get_args(p_timer, &p_arg1, nullptr, nullptr, &p_arg4);
    EXPECT_EQ(p_arg1, this);
    EXPECT_EQ(p_arg4, nullptr);
}

TEST_F(TimerTest, IntervalsStartAtOneTickAndOverdueTimersTellItInTwoWays)
{
    t_timer *p_timer = start("short", TIMER_TYPE_ONESHOT, 4);
    EXPECT_EQ(p_timer->interval_ticks, 1u);
    EXPECT_EQ(timer_get_ticks_to_expiry(p_timer), 1);
    own_clock_advance(70 * OWN_CLOCK_MSEC);
    timer_mgr_update_curtime(p_mgr);
    EXPECT_EQ(timer_get_ticks_to_expiry(p_timer), -6);
    EXPECT_EQ(timer_get_msecs_to_expiry(p_timer), 60);
}

TEST_F(TimerTest, EnableLeavesARunningCountdownAndResetRestartsIt)
{
    t_timer *p_timer = start("t", TIMER_TYPE_ONESHOT, 100);
    run_ticks(3);
    timer_enable(p_timer);
    EXPECT_EQ(timer_get_ticks_to_expiry(p_timer), 7);
    timer_reset(p_timer, 100);
    EXPECT_EQ(timer_get_ticks_to_expiry(p_timer), 10);
    timer_reset_interval(p_timer, 25);
    EXPECT_EQ(timer_get_ticks_to_expiry(p_timer), 3);
    timer_disable(p_timer);
    timer_disable(p_timer);
    EXPECT_EQ(p_mgr->num_timers_active, 0u);
    timer_reset_interval(p_timer, 50);
    EXPECT_FALSE(timer_is_active(p_timer));
    EXPECT_EQ(timer_get_interval_ticks(p_timer), 5);
    timer_reset(p_timer, 30);
    EXPECT_EQ(timer_get_ticks_to_expiry(p_timer), 3);
    timer_reset(p_timer, -1);
    EXPECT_EQ(p_timer->interval_ticks, 429'496'730u);
}

// A wheel that has been walked further than the clock: the timer must not hang in a bucket that is gone.
TEST_F(TimerTest, AnExpiryBehindTheWheelMovesInFrontOfIt)
{
    p_mgr->pri[TIMER_PRI_NORMAL]->next_bucket_ticks = 100;
    EXPECT_EQ(start("behind", TIMER_TYPE_ONESHOT, 990)->expire_ticks, 101u);
    EXPECT_EQ(start("next", TIMER_TYPE_ONESHOT, 1000)->expire_ticks, 100u);
}

// A single pass over many buckets, and one pass per tick, must give the same.
TEST_F(TimerTest, OneShotTimersFireOnceAndCyclicOnesKeepTheirBeat)
{
    start("once", TIMER_TYPE_ONESHOT, 30);
    start("two", TIMER_TYPE_CYCLIC, 20);
    t_timer *p_again =
        start("again", TIMER_TYPE_ONESHOT, 10, [](t_timer *p_timer) { timer_reset(p_timer, 40); });
    run_ticks(6);
    EXPECT_EQ(fired, (names{"again@1", "two@2", "once@3", "two@4", "again@5", "two@6"}));
    timer_disable(p_again);
    fired.clear();
    // A stall: the cyclic timer fires once per bucket that it falls on and then keeps its old beat.
    own_clock_advance(50 * OWN_CLOCK_MSEC);
    EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100), 0);
    run_ticks(2);
    EXPECT_EQ(fired, (names{"two@11", "two@11", "two@12"}));
    EXPECT_EQ(p_mgr->num_timers_fired, 9u);
}

TEST_F(TimerTest, IntervalsBeyondARevolutionAreSkippedUntilTheirTurn)
{
    t_timer *p_long = start("long", TIMER_TYPE_ONESHOT, 3 * 20480 + 50);
    t_timer *p_same = start("short", TIMER_TYPE_ONESHOT, 50);
    EXPECT_EQ(p_long->bucket, p_same->bucket);
    EXPECT_EQ(timer_get_next(p_long), p_same);
    EXPECT_EQ(timer_get_next(p_same), nullptr);
    run_ticks(3 * 2048 + 6);
    EXPECT_EQ(fired, (names{"short@5", "long@6149"}));
}

// Queues itself into the bucket under way, where a due timer still waits behind it.
TEST_F(TimerTest, ACyclicTimerOfWholeRevolutionsFiresOncePerRevolution)
{
    start("round", TIMER_TYPE_CYCLIC, 20480);
    start("round2", TIMER_TYPE_CYCLIC, 2 * 20480);
    start("last", TIMER_TYPE_ONESHOT, 20480);
    run_ticks(2 * 2048 + 10);
    EXPECT_EQ(fired, (names{"round@2048", "last@2048", "round2@4096", "round@4096"}));
}

TEST_F(TimerTest, CallbacksMayDeleteThemselvesAndTheirNeighbours)
{
    t_timer *p_next = nullptr;
    start("self", TIMER_TYPE_CYCLIC, 20, timer_util_delete);
    start("killer", TIMER_TYPE_ONESHOT, 20, [&](t_timer *) { timer_util_delete(p_next); });
    p_next = start("victim", TIMER_TYPE_ONESHOT, 20);
    start("stopped", TIMER_TYPE_CYCLIC, 20, timer_disable);
    t_timer *p_prev = start("bystander", TIMER_TYPE_ONESHOT, 20480 + 20);
    start("reaper", TIMER_TYPE_ONESHOT, 20, [&](t_timer *) { timer_util_delete(p_prev); });
    run_ticks(5);
    EXPECT_EQ(fired, (names{"self@2", "killer@2", "stopped@2", "reaper@2"}));
    EXPECT_EQ(p_mgr->num_timers_active, 0u);
    EXPECT_EQ(p_mgr->num_timers_created - p_mgr->num_timers_deleted, 3u);
}

// The wheel's time moves on while a callback sleeps: what it enables counts from then, and the pass that is
// under way doesn't reach further for it.
TEST_F(TimerTest, APassReachesOnlyToTheTickItBeganAt)
{
    t_timer *p_late = create("late", TIMER_TYPE_ONESHOT, 10);
    start("sleeper", TIMER_TYPE_ONESHOT, 10, [&](t_timer *) {
        own_clock_advance(100 * OWN_CLOCK_MSEC);
        timer_enable(p_late);
    });
    start("next", TIMER_TYPE_ONESHOT, 20);
    run_ticks(1);
    EXPECT_EQ(fired, names{"sleeper@1"});
    EXPECT_EQ(p_late->expire_ticks, 12u);
    run_ticks(1);
    EXPECT_EQ(fired, (names{"sleeper@1", "next@12", "late@12"}));
}

TEST_F(TimerTest, AnExhaustedBudgetStopsBetweenBucketsAndTheHighWheelGoesFirst)
{
    auto sleep_60 = [](t_timer *) { own_clock_advance(60 * OWN_CLOCK_MSEC); };
    start("n1", TIMER_TYPE_ONESHOT, 10);
    start("h1", TIMER_TYPE_ONESHOT, 10, sleep_60, TIMER_PRI_HIGH);
    start("h2a", TIMER_TYPE_ONESHOT, 20, sleep_60, TIMER_PRI_HIGH);
    start("h2b", TIMER_TYPE_ONESHOT, 20, sleep_60, TIMER_PRI_HIGH);
    start("h2c", TIMER_TYPE_ONESHOT, 20, sleep_60, TIMER_PRI_HIGH);
    start("h3", TIMER_TYPE_ONESHOT, 30, sleep_60, TIMER_PRI_HIGH);
    own_clock_advance(30 * OWN_CLOCK_MSEC);
    // The look at h2c sees 180 ms; the bucket is finished, and the normal wheel has to wait.
    EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100), EAGAIN);
    EXPECT_EQ(fired, (names{"h1@3", "h2a@9", "h2b@15", "h2c@21"}));
    fired.clear();
    EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100), 0);
    EXPECT_EQ(fired, (names{"h3@27", "n1@33"}));
    EXPECT_EQ(syslog_lines_take(), std::vector<t_syslog_line>{});
}

TEST_F(TimerTest, AWheelIsOnlyRunWhenItsBitIsInTheMask)
{
    start("normal", TIMER_TYPE_ONESHOT, 10);
    start(
        "high", TIMER_TYPE_CYCLIC, 10, [](t_timer *) {}, TIMER_PRI_HIGH);
    own_clock_advance(20 * OWN_CLOCK_MSEC);
    EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_HIGH, 100), 0);
    EXPECT_EQ(fired, (names{"high@2", "high@2"}));
    EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_NORMAL, 100), 0);
    EXPECT_EQ(fired.back(), "normal@2");
}

// 150 ms at the look is still within the budget of 100 and the slack of 50; one more millisecond isn't.
TEST_F(TimerTest, TheBudgetIsOverOnlyAboveItsSlack)
{
    for (int64_t taken : {150, 151}) {
        start("slow", TIMER_TYPE_ONESHOT, 10, [=](t_timer *) { own_clock_advance(taken * OWN_CLOCK_MSEC); });
        start("second", TIMER_TYPE_ONESHOT, 20);
        start("third", TIMER_TYPE_ONESHOT, 30);
        own_clock_advance(30 * OWN_CLOCK_MSEC);
        fired.clear();
        EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100), taken == 150 ? 0 : EAGAIN);
        EXPECT_EQ(fired.size(), taken == 150 ? 3u : 2u);
        EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100), 0);
        EXPECT_EQ(fired.size(), 3u);
    }
}

TEST_F(TimerTest, ATimerThatTakesMoreThanFiveSecondsIsNamed)
{
    for (int64_t taken : {5000, 5001}) {
        std::string name = "takes " + std::to_string(taken);
        start(name.c_str(), TIMER_TYPE_ONESHOT, 10, [=](t_timer *p_timer) {
            own_clock_advance(taken * OWN_CLOCK_MSEC);
            timer_util_delete(p_timer);
        });
        start("next", TIMER_TYPE_ONESHOT, 10);
        own_clock_advance(10 * OWN_CLOCK_MSEC);
        EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100), 0) << "the last bucket ends the pass";
        while (timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100) != 0)
            continue;
    }
    EXPECT_EQ(syslog_lines_take(), (std::vector<t_syslog_line>{{189, "takes 5001 timer took 5001 msecs!"}}));
}

// A callback may run the other wheel, and its own, without a bucket being lost.
TEST_F(TimerTest, NestedPassesLoseNothing)
{
    start(
        "high", TIMER_TYPE_CYCLIC, 10, [](t_timer *) {}, TIMER_PRI_HIGH);
    run_ticks(1);
    start("outer", TIMER_TYPE_ONESHOT, 10, [&](t_timer *) {
        own_clock_advance(20 * OWN_CLOCK_MSEC);
        EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_HIGH, 100), 0);
        EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_NORMAL, 100), 0);
    });
    for (uint32_t msecs : {10, 20, 30, 40, 50})
        start(std::to_string(msecs).c_str(), TIMER_TYPE_ONESHOT, msecs);
    fired.clear();
    run_ticks(3);
    EXPECT_EQ(fired, (names{"high@2", "outer@2", "high@4", "high@4", "10@4", "20@4", "30@4", "high@5", "40@5",
                            "high@6", "50@6"}));
}

TEST_F(TimerTest, TheCurrentBucketCanBeEmptiedWithALastCallEach)
{
    static int calls;
    calls = 0;
    auto last_call = [](void *arg1, void *arg2, void *, void *) {
        EXPECT_NE(arg1, nullptr);
        EXPECT_NE(arg2, nullptr);
        calls++;
    };
    start("a", TIMER_TYPE_ONESHOT, 10);
    start("b", TIMER_TYPE_ONESHOT, 10 + 20480);
    start(
        "c", TIMER_TYPE_CYCLIC, 10, [](t_timer *) {}, TIMER_PRI_HIGH);
    start("other", TIMER_TYPE_ONESHOT, 20);
    EXPECT_EQ(timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100), 0);
    timer_del_all_cur_bucket(p_mgr, last_call);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(p_mgr->num_timers_deleted, 3u);
    EXPECT_EQ(p_mgr->num_timers_active, 1u);
}

TEST(Timer, TheSynchronizedTimeReachesTheNextMultiple)
{
    own_clock_set(12'345 * OWN_CLOCK_MSEC + 999'999);
    EXPECT_EQ(timer_get_synchronized_time(1000), 655u);
    EXPECT_EQ(timer_get_synchronized_time(5), 5u);
    EXPECT_EQ(timer_get_synchronized_time(60000), 47655u);
}

TEST_F(TimerTest, TheDumpTellsEveryTimerAndTheCounters)
{
    own_clock_advance(1'234'567'890);
    t_timer *p_idle = create("idle", TIMER_TYPE_ONESHOT, 500);
    t_timer *p_timer = start(
        "tick", TIMER_TYPE_CYCLIC, 70, [](t_timer *) {}, TIMER_PRI_HIGH);
    t_timer *p_far = start("far", TIMER_TYPE_ONESHOT, 1000);
    timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100);
    syslog_lines_take();
    char lines[3][256];
    static const struct {
        const char *format;
        t_timer *p_timer;
    } expected[] = {
        {"[bucket 0xffff] %p idle one-shot normal Disabled unwalked interval 50 expire 0 (-1) cb %p %p %p "
         "(nil) (nil)",
         p_idle},
        {"[bucket 0x82] %p tick cyclic high Enabled unwalked interval 7 expire 0x82 (7) cb %p %p %p (nil) "
         "(nil)",
         p_timer},
        {"[bucket 0xdf] %p far one-shot normal Enabled unwalked interval 100 expire 0xdf (100) cb %p %p %p "
         "(nil) "
         "(nil)",
         p_far},
    };
    for (int i = 0; i < 3; i++) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        snprintf(lines[i], sizeof(lines[i]), expected[i].format, static_cast<void *>(expected[i].p_timer),
                 reinterpret_cast<void *>(call_function), expected[i].p_timer->args[0],
                 expected[i].p_timer->args[1]);
#pragma GCC diagnostic pop
    }
    timer_mgr_dump(p_mgr, 10);
    EXPECT_EQ(syslog_lines_take(),
              (std::vector<t_syslog_line>{
                  {191, "List of Created Timers:"},
                  {191, lines[0]},
                  {191, lines[1]},
                  {191, lines[2]},
                  {191, "resolution 10ms cur-time 1001.230000000 actual-time 1001.234567890 cur_ticks 123 "
                        "next_hi_ticks 124 next_lo_ticks 124"},
                  {191, "ncreated 3 ndeleted 0 nactive 2 nfired 0"},
                  {191, lines[1]}}));
}

TEST_F(TimerTest, DebugLinesFollowTheSwitch)
{
    t_timer *p_timer = create("t", TIMER_TYPE_ONESHOT, 20);
    timer_debug(true);
    timer_enable(p_timer);
    EXPECT_EQ(syslog_lines_take().size(), 2u);
    timer_debug(false);
    timer_disable(p_timer);
    EXPECT_EQ(syslog_lines_take().size(), 0u);
}

TEST(TimerDeathTest, BrokenContractsEndTheProcess)
{
    auto dies = testing::KilledBySignal(SIGSEGV);
    t_timer_mgr *p_mgr =
        timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_NORMAL);
    t_timer *p_timer = timer_util_create(p_mgr, TIMER_PRI_NORMAL, TIMER_TYPE_ONESHOT, 10, nullptr, nullptr,
                                         nullptr, nullptr, nullptr, "t");
    EXPECT_EXIT(TIMER_TICKS_TO_MSECS(static_cast<e_timer_resn>(6), 1), dies, "");
    EXPECT_EXIT(TIMER_MSECS_TO_TICKS(static_cast<e_timer_resn>(7), 1, true), dies, "");
    EXPECT_EXIT(timer_mgr_destroy(p_mgr), dies, "");
    EXPECT_EXIT(
        {
            p_timer->bucket = 3;
            timer_enable(p_timer);
        },
        dies, "");
    EXPECT_EXIT(
        {
            // A timer of an earlier revolution, still in its bucket.
            own_clock_advance(3 * sec);
            timer_enable(p_timer);
            timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100);
            p_timer->expire_ticks -= 2048;
            own_clock_advance(3 * sec);
            timer_exec(p_mgr, TIMER_PRI_MASK_ALL, 100);
        },
        dies, "");
    timer_util_delete(p_timer);
    timer_mgr_destroy(p_mgr);
}
