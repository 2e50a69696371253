#include "common/lum_util_text.h"

#include "common/strlcpy.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

TEST(LumUtilText, EightHardwareAddressesStandAtOnce)
{
    std::vector<const char *> texts;
    for (uint8_t i = 0; i < 8; i++) {
        const uint8_t bytes[6] = {2, 0, 0, 0, 0, i};
        texts.push_back(lum_util_mac_str(bytes));
    }
    EXPECT_STREQ(texts[0], "02:00:00:00:00:00");
    EXPECT_STREQ(texts[7], "02:00:00:00:00:07");
}

TEST(LumUtilText, TextsChangeInPlace)
{
    char text[] = " a\tB c- ";
    EXPECT_STREQ(lum_util_remove_spaces(text), "aBc-");
    EXPECT_STREQ(to_upper(text), "ABC-");
    char empty[] = "";
    EXPECT_STREQ(to_upper(lum_util_remove_spaces(empty)), "");
}

TEST(LumUtilText, PowersAndPercents)
{
    struct {
        uint32_t value;
        uint32_t power;
    } powers[] = {{0, 0}, {1, 1}, {2, 2}, {3, 2}, {1000, 512}, {1024, 1024}, {UINT32_MAX, 1u << 31}};
    for (const auto &row : powers)
        EXPECT_EQ(lum_pow2_round_down(row.value), row.power) << row.value;
    struct {
        uint64_t a;
        uint64_t b;
        uint64_t percent;
    } percents[] = {{200, 250, 25}, {200, 150, 25}, {3, 4, 33}, {0, 0, 0}, {0, 7, 100}, {UINT64_MAX, 0, 100}};
    for (const auto &row : percents)
        EXPECT_EQ(lum_util_percent_diff(row.a, row.b), row.percent);
    EXPECT_STREQ(lum_util_proto2str(6), "tcp");
    EXPECT_STREQ(lum_util_proto2str(89), "ospf");
    EXPECT_STREQ(lum_util_proto2str(254), "--");
    EXPECT_STREQ(lum_util_disp_boolean(true), "true");
    EXPECT_STREQ(lum_util_disp_boolean(false), "false");
}

TEST(LumUtilText, HexDumpsHaveWholeRows)
{
    const char bytes[] = "tarn\n0123456789ab";
    const std::string first = "0000  74 61 72 6e 0a 30 31 32 33 34 35 36 37 38 39 61  tarn.0123456789a\n";
    const std::string second = "0010  62" + std::string(47, ' ') + "b\n";
    char buf[256];
    EXPECT_EQ(hex_dump_buf(buf, sizeof(buf), bytes, 17), (first + second).size());
    EXPECT_EQ(buf, first + second);
    EXPECT_EQ(hex_dump_buf(buf, first.size() + second.size(), bytes, 17), first.size());
    EXPECT_EQ(buf, first);
    EXPECT_EQ(hex_dump_buf(buf, first.size(), bytes, 17), 0u);
    EXPECT_EQ(buf, std::string());
    EXPECT_EQ(hex_dump_buf(buf, 0, bytes, 17), 0u);

    char *p_text = nullptr;
    size_t size = 0;
    FILE *p_file = open_memstream(&p_text, &size);
    hex_dump(p_file, bytes, 17);
    fclose(p_file);
    EXPECT_EQ(std::string(p_text, size), first + second);
    free(p_text);
}

TEST(LumUtilText, TimesPrintInTheLocalZone)
{
    setenv("TZ", "TST-1:30", 1);
    tzset();
    struct timespec time = {1709644029, 123456};
    char buf[64];
    EXPECT_STREQ(lum_util_timespec2str(&time, buf, sizeof(buf)), "2024-03-05 14:37:09.000123456");
    EXPECT_STREQ(lum_util_timespec2str_tz(&time, buf, sizeof(buf)), "2024-03-05 14:37:09.000123456 +0130");
    EXPECT_STREQ(lum_util_get_time_str(time.tv_sec, buf, sizeof(buf)), "Tue Mar  5 14:37:09 2024");
    EXPECT_STREQ(lum_util_get_time_str(time.tv_sec, buf, 5), "");
    unsetenv("TZ");
    tzset();
    EXPECT_STREQ(lum_util_get_time_ddhhmmss(3 * 86400 + 2 * 3600 + 59, buf, sizeof(buf)), "3:02:00:59");
    EXPECT_EQ(strlen(lum_util_get_date(buf, sizeof(buf))), strlen("2024-03-05"));
    EXPECT_EQ(strlen(lum_util_get_time(buf, sizeof(buf))), strlen("14:37:09"));
}

TEST(Strlcpy, CutsAndTellsTheWholeLength)
{
    char buf[4] = "xyz";
    EXPECT_EQ(lum_strlcpy(buf, "tarnd", sizeof(buf)), 5u);
    EXPECT_STREQ(buf, "tar");
    EXPECT_EQ(lum_strlcpy(buf, "abc", sizeof(buf)), 3u);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(lum_strlcpy(buf, "q", 0), 1u);
    EXPECT_STREQ(buf, "abc");
}
