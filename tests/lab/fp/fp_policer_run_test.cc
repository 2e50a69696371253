// Policers against a plain model, at the clock's borders, and beside a daemon that changes them.
#include "lab/fp/fp_policer_run.h"

#include "lab/fp/fp_clock.h"

#include <gtest/gtest.h>
#include <random>

static t_fp_policer policer_make(uint64_t rate, uint64_t burst)
{
    t_fp_policer policer = {};
    policer.rate = rate;
    policer.burst = burst;
    return policer;
}

namespace {

// The bucket by the book, in numbers that don't wrap.
struct t_model {
    __int128 rate;
    __int128 burst;
    __int128 tokens;
    __int128 last;

    bool take(__int128 now, uint32_t bytes)
    {
        tokens = std::min(burst, tokens + (now - last));
        last = now;
        if (bytes * rate > tokens)
            return false;
        tokens -= bytes * rate;
        return true;
    }
};

}  // namespace

TEST(FpPolicerShortTest, RandomArrivalsAreInBoundsExactlyWhenTheModelSaysSo)
{
    for (uint32_t seed = 1; seed <= 20; seed++) {
        std::mt19937_64 random(seed);
        uint64_t rate = 1 + random() % 1000;
        uint64_t burst = rate * (1000 + random() % 5000);
        uint64_t start = seed % 2 == 0 ? 1000 : UINT64_MAX - random() % 10000000;  // odd ones wrap
        t_fp_policer policer = policer_make(rate, burst);
        t_model model = {rate, burst, burst, start};
        __int128 now = start;
        for (int i = 0; i < 5000; i++) {
            now += random() % (2 * 700 * rate);  // 700 bytes a packet on average, so about half are in bounds
            uint32_t bytes = static_cast<uint32_t>(random() % 1500);
            bool in_bounds =
                fp_policer_run(&policer, static_cast<uint64_t>(now), bytes) == FP_POLICE_IN_BOUNDS;
            ASSERT_EQ(in_bounds, model.take(now, bytes)) << "seed " << seed << ", packet " << i;
            ASSERT_EQ(policer.available_tokens, static_cast<uint64_t>(model.tokens)) << "seed " << seed;
        }
    }
}

TEST(FpPolicerShortTest, TheLongRunRateIsTheConfiguredOneWithinOnePercent)
{
    static constexpr uint64_t clock_hz = 2000000000;
    for (uint64_t bytes_per_second : {8000ull, 125000ull, 12500000ull}) {
        uint64_t rate = clock_hz / bytes_per_second;
        t_fp_policer policer = policer_make(rate, 15000 * rate);
        std::mt19937_64 random(bytes_per_second);
        uint64_t now = 1;
        uint64_t begin = now;
        uint64_t passed = 0;
        int64_t oob_bytes = 0;
        for (int i = 0; i < 200000; i++) {
            now += random() % (800 * rate);  // offers about twice the rate
            uint32_t bytes = static_cast<uint32_t>(64 + random() % 1437);
            if (fp_policer_run(&policer, now, bytes) == FP_POLICE_IN_BOUNDS)
                passed += bytes;
            else
                oob_bytes += bytes;
        }
        double seconds = static_cast<double>(now - begin) / static_cast<double>(clock_hz);
        double got = static_cast<double>(passed) / seconds;
        EXPECT_NEAR(got / static_cast<double>(bytes_per_second), 1.0, 0.01);
        EXPECT_EQ(policer.oob_bytes[0], oob_bytes);
    }
}

TEST(FpPolicerShortTest, BordersOfClockAndBucket)
{
    struct t_case {
        const char *behaviour;
        t_fp_policer policer;  // rate, burst, last_sent_ticks, available_tokens
        uint64_t now;
        uint32_t bytes;
        bool in_bounds;
        uint64_t tokens;
    };
    auto policer = [](uint64_t rate, uint64_t burst, uint64_t last, uint64_t tokens) {
        t_fp_policer made = policer_make(rate, burst);
        made.last_sent_ticks = last;
        made.available_tokens = tokens;
        return made;
    };
    const t_case cases[] = {
        {"the first packet finds a full bucket, even on a young clock", policer(10, 1000, 0, 0), 5, 100, true,
         0},
        {"and one byte more does not fit", policer(10, 1000, 0, 0), 5, 101, false, 1000},
        {"an empty bucket fills tick by tick", policer(10, 1000, 100, 0), 199, 10, false, 99},
        {"and holds the packet at the very tick", policer(10, 1000, 100, 0), 200, 10, true, 0},
        {"a clock that wraps goes on", policer(10, 1000, UINT64_MAX - 49, 0), 50, 10, true, 0},
        {"a clock that jumped back fills the bucket", policer(10, 1000, 5000, 0), 4000, 100, true, 0},
        {"the bucket is never fuller than its burst", policer(1, 1000, 1, 1000), UINT64_MAX, 1, true, 999},
        {"a lowered burst holds at once", policer(1, 100, 50, 1000), 50, 101, false, 100},
        {"no sum runs over", policer(1, UINT64_MAX, 1, UINT64_MAX - 1), UINT64_MAX - 5, 1, true,
         UINT64_MAX - 1},
        {"no product runs over", policer(UINT64_MAX, UINT64_MAX - 1, 0, 0), 9, 2, false, UINT64_MAX - 1},
        {"a packet of no bytes costs nothing", policer(10, 0, 1, 0), 1, 0, true, 0},
        {"a rate of 0 never limits and leaves the bucket alone", policer(0, 0, 7, 3), 9, 65535, true, 3},
    };
    for (t_case c : cases) {
        uint64_t last = c.policer.last_sent_ticks;
        bool in_bounds = fp_policer_run(&c.policer, c.now, c.bytes) == FP_POLICE_IN_BOUNDS;
        EXPECT_EQ(in_bounds, c.in_bounds) << c.behaviour;
        EXPECT_EQ(c.policer.available_tokens, c.tokens) << c.behaviour;
        EXPECT_EQ(c.policer.last_sent_ticks, c.policer.rate == 0 ? last : c.now) << c.behaviour;
        EXPECT_EQ(c.policer.oob_pkts[0], in_bounds ? 0 : 1) << c.behaviour;
        EXPECT_EQ(c.policer.oob_bytes[0], in_bounds ? 0 : c.bytes) << c.behaviour;
    }
}

TEST(FpPolicerShortTest, OutOfBoundsFollowsActionAndSelectorAtEachPacket)
{
    t_fp_policer policer = policer_make(1, 0);
    EXPECT_EQ(fp_policer_run(&policer, 1, 10), FP_POLICE_DROP);
    policer.version = 1;
    policer.oob_action = FP_POLICER_ACTION_MARK_PLP_HIGH;
    EXPECT_EQ(fp_policer_run(&policer, 1, 20), FP_POLICE_MARK);
    EXPECT_EQ(fp_policer_run(&policer, 1, 30), FP_POLICE_MARK);
    EXPECT_EQ(policer.oob_pkts[0], 1);
    EXPECT_EQ(policer.oob_bytes[0], 10);
    EXPECT_EQ(policer.oob_pkts[1], 2);
    EXPECT_EQ(policer.oob_bytes[1], 50);
    policer.version = 255;  // foreign bytes select an element, too
    fp_policer_run(&policer, 1, 1);
    EXPECT_EQ(policer.oob_pkts[1], 3);
}

static uint64_t g_machine;

static uint64_t machine_ticks()
{
    return g_machine;
}

TEST(FpClockShortTest, TimesFromFilesMoveTheClockAheadAndNeverBack)
{
    g_machine = UINT64_MAX - 10;
    t_fp_clock clock = fp_clock_make(machine_ticks, 1000);
    EXPECT_EQ(fp_clock_now(&clock), UINT64_MAX - 10);
    EXPECT_EQ(fp_clock_at(&clock, 90), 90u) << "101 ticks ahead, over the wrap";
    EXPECT_EQ(fp_clock_now(&clock), 90u);
    g_machine += 20;
    EXPECT_EQ(fp_clock_now(&clock), 110u) << "what a replay was ahead stays";
    EXPECT_EQ(fp_clock_at(&clock, 100), 110u) << "an older time is now";
    g_machine -= 20;
    EXPECT_EQ(fp_clock_now(&clock), 110u);
}
