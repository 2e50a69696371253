#include "libcvmx/sim/_cvmx-clock.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/libcvmx/fake_system.h"

static std::string rate()
{
    return std::to_string(cvmx_clock_get_rate(CVMX_CLOCK_CORE));
}

TEST(Clock, TheRateComesFromTheFirstMatchingLineAsAFloat)
{
    static const struct {
        const char *behaviour;
        const char *cpuinfo;
        const char *rate;
    } cases[] = {
        {"whole MHz", "processor\t: 0\ncpu MHz\t\t: 2000.000\n", "2000000000"},
        {"a float holds 24 bits, so the last digits go", "cpu MHz\t\t: 2494.140\n", "2494139904"},
        {"the first line counts", "cpu MHz\t\t: 1000.000\ncpu MHz\t\t: 3000.000\n", "1000000000"},
        {"a line without a number is passed over", "cpu MHz\t\t: unknown\ncpu MHz\t\t: 5\n", "5000000"},
        {"other case, other line", "CPU MHz\t\t: 2000.000\nbogomips\t: 4000.00\n", "0"},
        {"an empty file", "", "0"},
        {"no file", nullptr, "0"},
    };
    for (const auto &c : cases) {
        FakeSystem fake;
        if (c.cpuinfo != nullptr)
            fake.put("/proc/cpuinfo", c.cpuinfo);
        EXPECT_EQ(run_in_child([] { fputs(rate().c_str(), stdout); }).text, c.rate) << c.behaviour;
    }
}

TEST(Clock, ARateIsKeptButZeroIsLookedUpAgain)
{
    FakeSystem fake;
    t_child_end end = run_in_child([&] {
        std::string rates = rate();
        fake.put("/proc/cpuinfo", "cpu MHz\t\t: 2000.000\n");
        rates += " " + rate();
        fake.put("/proc/cpuinfo", "cpu MHz\t\t: 3000.000\n");
        rates += " " + rate();
        fputs(rates.c_str(), stdout);
    });
    EXPECT_EQ(end.text, "0 2000000000 2000000000");
}

TEST(Clock, AllKindsReadOneCounterThatGoesOn)
{
    uint64_t last = cvmx_get_cycle();
    for (cvmx_clock_t clock : {CVMX_CLOCK_RCLK, CVMX_CLOCK_CORE, CVMX_CLOCK_SCLK, CVMX_CLOCK_TIM}) {
        uint64_t now = cvmx_clock_get_count(clock);
        EXPECT_GT(now, last);
        last = now;
    }
}
