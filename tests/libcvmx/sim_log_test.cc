#include "libcvmx/sim/sim_log.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>

static std::string g_syslog;

extern "C" __attribute__((format(printf, 2, 0))) void __wrap_vsyslog(int priority, const char *format,
                                                                     va_list arguments)
{
    char text[256];
    vsnprintf(text, sizeof(text), format, arguments);
    g_syslog += std::to_string(priority) + " " + text;
}

TEST(SimLog, OneSwitchChoosesBetweenStandardOutputAndSyslogWithoutAFacility)
{
    testing::internal::CaptureStdout();
    g_fp_sim_use_printf = 1;
    cvmx_sim_log("table %d\n", 1);
    g_fp_sim_use_printf = 0;
    cvmx_sim_log("table %d\n", 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "table 1\n");
    EXPECT_EQ(g_syslog, "7 table 2\n");
}
