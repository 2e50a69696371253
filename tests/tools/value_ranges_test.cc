#include "tools/value_ranges.h"

#include <gtest/gtest.h>

#include <random>

namespace {

constexpr uint32_t small_end = 40;
constexpr uint32_t offsets[] = {0, 0xffffffff - small_end + 1};  // both ends of the 32-bit values

t_value_ranges random_ranges(std::mt19937 &random, uint32_t offset)
{
    t_value_ranges ranges;
    for (uint32_t i = static_cast<uint32_t>(random()) % 6; i > 0; i--) {
        uint32_t low = static_cast<uint32_t>(random()) % small_end;
        uint32_t high = std::min(small_end - 1, low + static_cast<uint32_t>(random()) % 6);
        ranges.push_back({offset + low, offset + high});
    }
    return ranges;
}

}  // namespace

TEST(ValueRanges, SetOperationsAgreeWithValueByValue)
{
    std::mt19937 random(3);
    for (int round = 0; round < 4000; round++) {
        uint32_t offset = offsets[round % 2];
        t_value_ranges raw_a = random_ranges(random, offset);
        t_value_ranges raw_b = random_ranges(random, offset);
        t_value_ranges a = raw_a;
        t_value_ranges b = raw_b;
        ranges_normalise(&a);
        ranges_normalise(&b);
        t_value_ranges both = ranges_intersection(a, b);
        t_value_ranges rest = ranges_difference(a, b);
        bool contain = true;
        bool meet = false;
        uint64_t count = 0;
        for (uint32_t v = offset; v - offset < small_end; v++) {
            bool in_a = ranges_hold(raw_a, v);
            bool in_b = ranges_hold(raw_b, v);
            ASSERT_EQ(ranges_hold(a, v), in_a) << "round " << round;
            ASSERT_EQ(ranges_hold(both, v), in_a && in_b) << "round " << round;
            ASSERT_EQ(ranges_hold(rest, v), in_a && !in_b) << "round " << round;
            if (in_a) {
                ASSERT_EQ(ranges_value_at(a, count++), v) << "round " << round;
            }
            contain = contain && (!in_b || in_a);
            meet = meet || (in_a && in_b);
        }
        ASSERT_EQ(ranges_contain(a, b), contain) << "round " << round;
        ASSERT_EQ(ranges_intersect(a, b), meet) << "round " << round;
        ASSERT_EQ(ranges_count(a), count) << "round " << round;
        for (t_value_ranges *p_result : {&both, &rest}) {
            t_value_ranges normal = *p_result;
            ranges_normalise(&normal);
            ASSERT_EQ(*p_result, normal) << "round " << round;
        }
    }
}
