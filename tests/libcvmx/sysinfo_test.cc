#include "libcvmx/sim/_cvmx-sysinfo.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/libcvmx/fake_system.h"

static const char DMI_SERIAL[] = "/usr/sbin/dmidecode -s system-serial-number";
static const char DMI_VERSION[] = "/usr/sbin/dmidecode -s system-version";

// ---- Board type ----

TEST(BoardType, TheBoardsOwnCodeComesFirst)
{
    static const struct {
        int code;
        int board_type;
    } cases[] = {
        {0, 20003},  {1, 20004},  {5, 20005},  {6, 20006},  {7, 40001},  {11, 60001}, {14, 60001},
        {12, 60002}, {15, 60002}, {13, 60003}, {16, 60003}, {-1, 60001}, {2, 60001},  {17, 60001},
    };
    FakeSystem fake;
    fake.put("/etc/default/chassis_type", "Pylon-B1");
    for (const auto &c : cases) {
        fake.board_code = c.code;
        EXPECT_EQ(cvmx_sim_get_board_type(), c.board_type) << "code " << c.code;
    }
}

TEST(BoardType, TheChassisTextDecidesInTheOrderOfTheSearch)
{
    static const struct {
        std::string text;
        int board_type;
    } cases[] = {
        {"pylon-a1", 20005},
        {"pylon-a3", 20004},
        {"pylon-a4", 40001},
        {"Harrisonville", 60003},
        {"Pylon-B1", 60001},
        {"Pylon-B2", 60002},
        {"Pylon-B3", 60003},
        {"Pylon-E1", 60002},
        {"Pylon-E2", 60001},
        {"Pylon-E3", 60003},
        {"model=pylon-a3-r2\n", 20004},
        {"Pylon-E3 pylon-a4 pylon-a1", 20005},
        {"Pylon-E2 Pylon-B3", 60003},
        {"Pylon-a1", 20000},
        {"", 20000},
        {std::string(56, ' ') + "pylon-a1", 20005},
        {std::string(57, ' ') + "pylon-a1", 20000},
    };
    FakeSystem fake;
    for (const auto &c : cases) {
        fake.put("/etc/default/chassis_type", c.text);
        EXPECT_EQ(cvmx_sim_get_board_type(), c.board_type) << c.text;
    }
    fake.remove("/etc/default/chassis_type");
    EXPECT_EQ(cvmx_sim_get_board_type(), 20000) << "no file";
}

// ---- Serial number and revision ----

// What stands in the record, in one line.
static std::string serial_and_revision(const cvmx_sysinfo_t &info)
{
    return std::string(info.board_serial_number) + " " + std::to_string(info.board_rev_major) + "." +
           std::to_string(info.board_rev_minor);
}

TEST(BoardInfo, OfALargeBoardComesFromDmidecode)
{
    static const struct {
        const char *behaviour;
        std::string serial;
        std::string version;
        int result;
        const char *want;
    } cases[] = {
        {"blanks behind the serial are cut", "SN 12345\t \n", "3.7\n", 0, "SN 12345 3.7"},
        {"nineteen characters fit", "0123456789012345678\n", "2.11", 0, "0123456789012345678 2.11"},
        {"what is more is cut", "01234567890123456789", "2.0", 0, "0123456789012345678 2.0"},
        {"a lone number is the major", "X", "4", 0, "X 4.0"},
        {"a version that is no number", "X", "Not Specified\n", 0, "X 1.0"},
        {"a failing command", "# no access", "9.9", 1, "sim 1.0"},
    };
    FakeSystem fake;
    for (const auto &c : cases) {
        fake.output = {{DMI_SERIAL, c.serial}, {DMI_VERSION, c.version}};
        fake.output_result = c.result;
        cvmx_sysinfo_t info = {};
        cvmx_get_pd1_info(&info);
        EXPECT_EQ(serial_and_revision(info), c.want) << c.behaviour;
    }
}

TEST(BoardInfo, OfASmallBoardComesFromFiles)
{
    static const std::string LONG(45, 's');
    static const struct {
        const char *behaviour;
        const char *serial;  // null: no file
        const char *version;
        int result;
        std::string want;
    } cases[] = {
        {"a serial with a newline", "B1-77\nmore\n", "2.3\n", 0, "B1-77 2.3"},
        {"a serial without a newline keeps its text", "B1-77", "2.3", 0, "B1-77 2.3"},
        {"a serial as long as the field", LONG.c_str(), "2.3", 0, LONG.substr(0, 39) + " 2.3"},
        {"no serial file", nullptr, "2.3", 0, "sim 2.3"},
        {"an empty serial file", "", "2.3", 0, "sim 2.3"},
        {"a failing command leaves the revision", "B1", "2.3", 256, "B1 1.0"},
    };
    for (const auto &c : cases) {
        FakeSystem fake;
        if (c.serial != nullptr)
            fake.put("/tmp/serial-num", c.serial);
        fake.system_version = c.version;
        fake.system_result = c.result;
        cvmx_sysinfo_t info = {};
        cvmx_get_mocha_info(&info);
        EXPECT_EQ(serial_and_revision(info), c.want) << c.behaviour;
    }
}

// ---- The record ----

TEST(Sysinfo, IsFilledOnceByTheBoardsKind)
{
    static const struct {
        const char *chassis;
        const char *want;
    } cases[] = {
        {"", "20000 sim 1.0"},          {"pylon-a3", "20004 sim 1.0"},  {"pylon-a4", "40001 dmi 5.6"},
        {"Pylon-B1", "60001 file 7.8"}, {"Pylon-B2", "60002 file 7.8"}, {"Pylon-B3", "60003 file 7.8"},
    };
    FakeSystem fake;
    fake.ram = 3ull << 30;
    fake.output = {{DMI_SERIAL, "dmi"}, {DMI_VERSION, "5.6"}};
    fake.put("/tmp/serial-num", "file");
    fake.system_version = "7.8";
    for (const auto &c : cases) {
        fake.put("/etc/default/chassis_type", c.chassis);
        t_child_end end = run_in_child([&] {
            cvmx_sysinfo_t *p_info = cvmx_sysinfo_get();
            fake.put("/etc/default/chassis_type", "pylon-a1");
            bool same = cvmx_sysinfo_get() == p_info && p_info->board_type != 20005;
            printf("%d %s%s", p_info->board_type, serial_and_revision(*p_info).c_str(), same ? "" : " again");
            if (p_info->system_dram_size != 3ull << 30 || p_info->cpu_clock_hz != 0)
                printf(" memory");
        });
        EXPECT_EQ(end.text, c.want) << c.chassis;
    }
}

TEST(Sysinfo, AProcessEntersAndLeavesTheCoreMaskByBitZero)
{
    FakeSystem fake;
    uint32_t *p_mask = &cvmx_sysinfo_get()->core_mask;
    *p_mask = 0xf0;
    cvmx_sysinfo_add_self_to_core_mask();
    EXPECT_EQ(*p_mask, 0xf1u);
    cvmx_sysinfo_remove_self_from_core_mask();
    EXPECT_EQ(*p_mask, 0xf0u);
}
