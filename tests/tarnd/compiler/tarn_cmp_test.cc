#include "tarnd/compiler/tarn_cmp.h"

#include "tarnd/compiler/interval.h"

#include <gtest/gtest.h>

static int sign(int value)
{
    return (value > 0) - (value < 0);
}

TEST(TarnCmp, NumbersCompareUnsigned)
{
    static const struct {
        uint32_t a, b;
        int want;
    } cases[] = {{1, 2, -1}, {2, 1, 1}, {7, 7, 0}, {0, 0xffffffff, -1}, {0x80000000, 0x7fffffff, 1}};
    for (auto c : cases) {
        EXPECT_EQ(sign(uint32s_cmp(&c.a, &c.b)), c.want) << c.a << " " << c.b;
        t_interval x = {c.a, 9, nullptr};
        t_interval y = {c.b, 3, nullptr};
        EXPECT_EQ(sign(intervals_cmp(&x, &y)), c.want) << c.a << " " << c.b;
    }
}

TEST(TarnCmp, OverlappingIntervalsCompareByWidthThenByLowerBound)
{
    static const struct {
        t_interval a, b;
        int want;
    } cases[] = {
        {{10, 12, nullptr}, {0, 3, nullptr}, -1},
        {{5, 7, nullptr}, {4, 6, nullptr}, 1},
        {{5, 7, nullptr}, {5, 7, nullptr}, 0},
        {{0, 0xffffffff, nullptr}, {1, 2, nullptr}, 1},
    };
    for (auto c : cases)
        EXPECT_EQ(sign(overlap_intervals_cmp(&c.a, &c.b)), c.want) << c.a.i_min << " " << c.b.i_min;
}

TEST(TarnCmp, AValueLiesInAHalfOpenInterval)
{
    t_interval ival = {4, 6, nullptr};
    static const int want[] = {-1, 0, 0, 1, 1};
    for (uint32_t i = 0; i < 5; i++) {
        uint32_t value = i + 3;
        EXPECT_EQ(intervals_within(&value, &ival), want[i]) << value;
    }
}
