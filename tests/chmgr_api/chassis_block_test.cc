#include "tests/chmgr_api/filled_box.h"
#include "tests/libcvmx/fake_system.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

TEST(ChassisBlockGolden, FilledBlockHasTheAgreedBytes)
{
    FilledBox box(CHASSIS_TYPE_PYLON_A3_R1);
    // Slot 2 port 1, the tenth of the box, lies at 24 + 2 * 7360 + 384 + 840 = 15968.
    static const struct {
        const char *field;
        size_t offset;
        std::string bytes;
    } fields[] = {
        {"head", 0, {"\0\0\0\0\0\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0\0\0\0\0", 24}},
        {"part number", 24, {"SIM-8GE\0", 8}},
        {"module 0: state, types, id", 24 + 128, {"\1\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\0\0\0\0", 20}},
        {"module 0: ports", 24 + 154, {"\10\0\10\0", 4}},
        {"module 1: empty", 24 + 7360 + 128, {"\2\0\0\0\2\0\0\0\0\0\0\0\0\0\0\0\1\0\0\0", 20}},
        {"module 2: ports", 24 + 2 * 7360 + 154, {"\4\0\10\0", 4}},
        {"port: id, number, state, vpn, link", 15968, {"\2\0\1\0\11\0\1\0\0\0\0\0\0\0\0\0\1\0\0\0", 20}},
        {"port: operator's name", 15968 + 24, {"ge2/1\0", 6}},
        {"port: kernel's name", 15968 + 56, {"ge2_1\0", 6}},
        {"port: interface, index, numbers",
         15968 + 120,
         {"\2\0\0\0\1\0\0\0\41\0\0\0\41\0\0\0\10\1\0\0\10\0\0\0", 24}},
        {"port: address, number of addresses", 15968 + 144, {"\11\2\1\377\12\2\0\0\10\0\0\0", 12}},
        {"hardware's port 2, 1", 36824 + 4 * (2 * 8 + 1), {"\2\0\1\0", 4}},
        {"devices, reset, cores", 37144, {"\2\0\0\0\1\0\0\0\1\0\0\0\2\0\0\0\1\0\0\0\4\1\3\0\1\3\1\0", 28}},
        {"description", 37172, "Pylon A3: branch router"},
        {"flash", 37428, {"\1\0\0\0\20\0\0\0simulated flash\0", 24}},
        {"fan tray", 37764, {"\1\0\0\0\3\0\0\0\1\0\0\0\240\17\0\0\50\0\0\0", 20}},
        {"sensor", 38188, {"\1\0\0\0\43\0\0\0\101\0\0\0\120\0\0\0board 0\0", 24}},
        {"power", 43364, {"\1\0\0\0\340\56\0\0\60\165\0\0\0\0\0\0simulated\0", 26}},
        {"serial number", 50968, {"sim\0", 4}},
        {"host name", 51008, {"edge\0", 5}},
        {"system address", 51048, {"\2\0\0\0\0\0\0\0\2\1\377\12\0\0\0\0", 16}},
        {"drivers", 51096, "/sys/devices/platform/pylon-sim"},
        {"wide area ports", 51224, {"\2\0\0\0", 4}},
        {"addresses", 51232, {"\0\2\1\377\12\2\0\0\0\1\0\0", 12}},
    };
    for (const auto &row : fields) {
        std::string found(reinterpret_cast<const char *>(box.block.get()) + row.offset, row.bytes.size());
        EXPECT_EQ(found, row.bytes) << row.field;
    }
}

TEST(ChassisBlock, BoardsBecomeChassis)
{
    static constexpr struct {
        uint16_t board;
        uint8_t revision;
        e_chassis_type type;
        const t_chassis_hwapi *p_hwapi;
    } boards[] = {
        {20000, 1, CHASSIS_TYPE_PYLON_CLOUD, &g_pylon_sim_hwapi},
        {20003, 1, CHASSIS_TYPE_PYLON_A2_R1, &g_pylon_sim_hwapi},
        {20004, 1, CHASSIS_TYPE_PYLON_A3_R1, &g_pylon_sim_hwapi},
        {20005, 4, CHASSIS_TYPE_PYLON_A1_R1, &g_pylon_sim_hwapi},
        {20005, 5, CHASSIS_TYPE_PYLON_A1_R3, &g_pylon_sim_hwapi},
        {20006, 5, CHASSIS_TYPE_PYLON_A1_R2, &g_pylon_sim_hwapi},
        {40001, 1, CHASSIS_TYPE_PYLON_A4, &g_pylon_pd1_hwapi},
        {60001, 1, CHASSIS_TYPE_PYLON_E2_R1, &g_pylon_pa2_hwapi},
        {60002, 1, CHASSIS_TYPE_PYLON_E1_R1, &g_pylon_pa2_hwapi},
        {60003, 1, CHASSIS_TYPE_PYLON_E3_R1, &g_pylon_pa2_hwapi},
        {60004, 9, CHASSIS_TYPE_PYLON_A2_R1, &g_pylon_sim_hwapi},
    };
    for (const auto &row : boards) {
        EXPECT_EQ(chmgr_chassis_type_of_board(row.board, row.revision), row.type) << row.board;
        FilledBox box(row.type);
        EXPECT_EQ(gp_hwapi, row.p_hwapi) << row.board;
    }
}

TEST(ChassisBlock, WhoMakesItFillsInTheBoardAndReadersFindIt)
{
    FakeSystem system;
    EXPECT_EQ(chmgr_info_get(O_RDWR), -1);
    EXPECT_EQ(chmgr_get_chassis_type(), CHASSIS_TYPE_UNKNOWN);
    system.put("/etc/default/chassis_type", "pylon-a3\n");
    auto make = [] {
        t_chassis_info *p_chassis = chmgr_api_common_init(true);
        _exit(p_chassis->chassis_state == 1 && p_chassis->p_sysinfo != nullptr ? 0 : 1);
    };
    EXPECT_EQ(run_in_child(make).exit_code, 0);
    EXPECT_EQ(chmgr_info_get(O_RDONLY), -2);
    EXPECT_EQ(gp_chassis_info, nullptr);
    EXPECT_EQ(chmgr_get_chassis_type(), CHASSIS_TYPE_PYLON_A3_R1);
    EXPECT_EQ(gp_hwapi, &g_pylon_sim_hwapi);
    EXPECT_STREQ(gp_chassis_info->description, g_chassis_descr[CHASSIS_TYPE_PYLON_A3_R1].description);
    gp_chassis_info = nullptr;
}

TEST(ChassisBlockDeathTest, WithoutABlockThereIsNoStart)
{
    FakeSystem system;
    system.shm_fails = true;
    EXPECT_EXIT(chmgr_api_common_init(false), testing::KilledBySignal(SIGSEGV), "");
}

// ---- Ports ----

TEST(ChassisPorts, WalkPassesEmptySlotsAndEndsBehindTheLastPort)
{
    FilledBox box(CHASSIS_TYPE_PYLON_A3_R1);
    std::string names;
    for (t_port_info *p_port = chmgr_get_first_port_info(); p_port != nullptr;
         p_port = chmgr_get_next_port_info(p_port->port_id))
        names += std::string(p_port->user_name) + " ";
    EXPECT_EQ(names, "ge0/0 ge0/1 ge0/2 ge0/3 ge0/4 ge0/5 ge0/6 ge0/7 ge2/0 ge2/1 ge2/2 ge2/3 ");
    box.block->num_modules = 0;
    EXPECT_EQ(chmgr_get_first_port_info(), nullptr);
}

TEST(ChassisPorts, HardwaresNumbersLeadToPorts)
{
    FilledBox box(CHASSIS_TYPE_PYLON_A1_R2);
    box.block->modules[0].ports[3].hw_pko_port = 77;
    box.block->hw_port_to_user_port[9][7] = {{0, 0, 3}};
    EXPECT_EQ(chmgr_get_ipd_port(9, 7), 3);
    EXPECT_EQ(chmgr_get_pko_port(9, 7), 77);
    EXPECT_EQ(chmgr_hw_port_to_user_port(10, 0).value, 0u);
    EXPECT_FALSE(chmgr_port_allowed({{0, 0, 0}}));  // the management port
    EXPECT_TRUE(chmgr_port_allowed({{0, 0, 4}}));
    EXPECT_FALSE(chmgr_port_allowed({{0, 0, 5}}));
    EXPECT_EQ(chmgr_get_port_info({{1, 0, 0}}), nullptr);
    uint8_t macaddr[6];
    ASSERT_EQ(chmgr_if_get_default_macaddr("ge0_3.20", macaddr), 0);
    EXPECT_EQ(memcmp(macaddr, "\2\12\377\1\2\3", 6), 0);
    EXPECT_EQ(chmgr_if_get_default_macaddr("ge0_5", macaddr), CHMGR_ABSENT);
}

TEST(ChassisPortsDeathTest, HardwareWithoutAPortEndsTheProcess)
{
    FilledBox box(CHASSIS_TYPE_PYLON_CLOUD);
    box.block->num_modules = 0;
    EXPECT_EXIT(chmgr_get_ipd_port(0, 0), testing::KilledBySignal(SIGSEGV), "");
}

TEST(ChassisPorts, CountsOfTheWriterDoNotLeadOutOfTheBlock)
{
    FilledBox box(CHASSIS_TYPE_PYLON_A4);
    box.block->num_modules = UINT32_MAX;
    box.block->modules[4].num_ports = UINT16_MAX;
    char buf[32];
    for (const char *user : {"ge5/0", "ge4/8", "ge4294967295/0"})
        EXPECT_EQ(chmgr_user_to_kernel_ifname(user, buf, sizeof(buf), nullptr), nullptr) << user;
    EXPECT_EQ(chmgr_get_next_port_info({{4, 0, 7}}), nullptr);
}
