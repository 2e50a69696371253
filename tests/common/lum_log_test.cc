#include "common/lum_log.h"

#include <gtest/gtest.h>

#include <string>

// Standard output of a call under a flag word.
static std::string printed(uint64_t flags, void (*log)())
{
    g_tarn_debug_flags = flags;
    testing::internal::CaptureStdout();
    log();
    g_tarn_debug_flags = 0;
    return testing::internal::GetCapturedStdout();
}

static constexpr int plain_line = __LINE__ + 3;
static void log_plain()
{
    TARN_LOG("%d rules", 3);
}

static constexpr int trace_line = __LINE__ + 3;
static void trace_policy()
{
    TARN_TRACE(TARN_DEBUG_POLICY, "size %u", 7u);
}

static void log_library()
{
    LUM_LOG(LUM_LOG_NOTICE, "restart");
}

TEST(LumLog, TheLowestFlagSendsLinesToStandardOutput)
{
    EXPECT_EQ(printed(TARN_DEBUG_STDOUT, log_plain),
              "log_plain:" + std::to_string(plain_line) + ": 3 rules\n");
    EXPECT_EQ(printed(TARN_DEBUG_STDOUT | TARN_DEBUG_POLICY, trace_policy),
              "trace_policy:" + std::to_string(trace_line) + ": size 7\n");
}

TEST(LumLog, OtherLinesStayAwayFromStandardOutput)
{
    EXPECT_EQ(printed(0, log_plain), "");
    EXPECT_EQ(printed(TARN_DEBUG_NONE, log_plain), "");
    EXPECT_EQ(printed(TARN_DEBUG_POLICY, trace_policy), "");
    EXPECT_EQ(printed(TARN_DEBUG_STDOUT | TARN_DEBUG_CONFIG, trace_policy), "") << "another topic";
    EXPECT_EQ(printed(TARN_DEBUG_STDOUT, log_library), "") << "libraries always use syslog";
}

TEST(LumLog, ALongLineIsCutAndHarmless)
{
    std::string text = printed(TARN_DEBUG_STDOUT, [] { TARN_LOG("%s", std::string(5000, 'x').c_str()); });
    EXPECT_GT(text.size(), 1000u);
    EXPECT_LT(text.size(), 2100u);
    EXPECT_EQ(text.back(), '\n');
}
