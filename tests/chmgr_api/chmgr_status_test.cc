#include "tests/chmgr_api/filled_box.h"
#include "tests/libcvmx/fake_system.h"

#include <gtest/gtest.h>

#include <cstring>

// What every table answers for every operation, in order.
static std::set<int> answers(const t_chassis_hwapi &hwapi, t_chassis_info *p_chassis)
{
    std::set<int> results;
#define ASK(member, thing, operation) results.insert(hwapi.member(p_chassis));
    CHMGR_HWAPI_OPERATIONS(ASK)
#undef ASK
    return results;
}

TEST(ChassisOperations, SimulatedOnesSucceedAndAbsentBoxesSaySo)
{
    for (uint32_t type = 0; type < MAX_CHASSIS_TYPES; type++) {
        FilledBox box(static_cast<e_chassis_type>(type));
        EXPECT_EQ(answers(g_pylon_sim_hwapi, box.block.get()), std::set<int>{0}) << type;
    }
    FilledBox box(CHASSIS_TYPE_PYLON_A4);
    EXPECT_EQ(answers(g_pylon_pd1_hwapi, box.block.get()), std::set<int>{CHMGR_ABSENT});
    EXPECT_EQ(answers(g_pylon_pa2_hwapi, box.block.get()), std::set<int>{CHMGR_ABSENT});
}

TEST(ChassisStatus, HealthyBoxWithNothingAttached)
{
    FilledBox box(CHASSIS_TYPE_PYLON_A2_R1);
    t_storage_info storage = {};
    EXPECT_EQ(chmgr_get_flash_info(&storage), 0);
    EXPECT_EQ(storage.state, HW_STATE_OK);
    EXPECT_EQ(chmgr_get_emmc_info(&storage), 0);
    EXPECT_EQ(storage.size, 8192u);
    EXPECT_EQ(chmgr_get_sdcard_info(&storage), 0);
    EXPECT_EQ(storage.state, HW_STATE_ABSENT);
    EXPECT_EQ(chmgr_get_usb_info(1, &storage), 0);
    EXPECT_EQ(storage.state, HW_STATE_ABSENT);
    EXPECT_EQ(chmgr_get_usb_info(2, &storage), CHMGR_ABSENT);
    t_fan_info fan = {};
    EXPECT_EQ(chmgr_get_fan_info(0, 1, &fan), 0);
    EXPECT_EQ(fan.state, HW_STATE_OK);
    EXPECT_EQ(chmgr_get_fan_info(0, 2, &fan), CHMGR_ABSENT);
    EXPECT_EQ(chmgr_get_fan_info(1, 0, &fan), CHMGR_ABSENT);
    t_tempsensor_info sensor = {};
    EXPECT_EQ(chmgr_get_tempsensor_info(0, 2, &sensor), 0);
    EXPECT_STREQ(sensor.name, "board 2");
    EXPECT_LT(sensor.temperature, sensor.warning_threshold);
    EXPECT_EQ(chmgr_get_tempsensor_info(0, 3, &sensor), CHMGR_ABSENT);
    t_pem_info pem = {};
    EXPECT_EQ(chmgr_get_pem_info(1, &pem), 0);
    EXPECT_EQ(pem.state, HW_STATE_OK);
    box.block->num_pems = UINT32_MAX;
    EXPECT_EQ(chmgr_get_pem_info(CHMGR_MAX_PEMS, &pem), CHMGR_ABSENT);
}

TEST(ChassisStatus, SettingsReadBackAndPowerGoesOff)
{
    FilledBox box(CHASSIS_TYPE_PYLON_A2_R1);
    t_led_cfg amber = {LED_COLOR_AMBER, 1};
    t_led_cfg led = {};
    EXPECT_EQ(chmgr_sfp_write_led_cfg({{1, 0, 1}}, &amber), 0);
    EXPECT_EQ(chmgr_sfp_read_led_cfg({{1, 0, 1}}, &led), 0);
    EXPECT_EQ(memcmp(&led, &amber, sizeof(led)), 0);
    EXPECT_EQ(box.block->modules[1].ports[1].led.color, LED_COLOR_AMBER);
    EXPECT_EQ(chmgr_sfp_write_led_cfg({{1, 0, 2}}, &amber), CHMGR_ABSENT);
    EXPECT_EQ(chmgr_pim_write_led_cfg(3, &amber), CHMGR_ABSENT);
    EXPECT_EQ(chmgr_status_set_led(&amber), 0);
    EXPECT_EQ(box.block->status_led.color, LED_COLOR_AMBER);
    char hostname[40];
    EXPECT_EQ(chmgr_set_hostname("a-host-name-of-more-than-thirty-two"), 0);
    EXPECT_EQ(chmgr_get_hostname(hostname, sizeof(hostname)), 0);
    EXPECT_STREQ(hostname, "a-host-name-of-more-than-thirty-");
    e_reset_reason reason = RESET_REASON_UNKNOWN;
    EXPECT_EQ(chmgr_get_reset_status(&reason), 0);
    EXPECT_EQ(reason, RESET_REASON_POWER_ON);
    EXPECT_EQ(chmgr_get_num_fp_cores() + chmgr_get_num_cp_cores(), chmgr_get_num_total_cores());
    EXPECT_EQ(chmgr_poweroff(), 0);
    EXPECT_EQ(box.block->chassis_state, HW_STATE_OFF);
}

TEST(ChassisStatus, WithoutDriversNothingIsReadButTheBlock)
{
    FilledBox box(CHASSIS_TYPE_PYLON_E1_R1);
    t_led_cfg led = {LED_COLOR_RED, 0};
    EXPECT_EQ(chmgr_system_read_led_cfg(&led), CHMGR_ABSENT);
    EXPECT_EQ(led.color, LED_COLOR_RED);
    EXPECT_EQ(chmgr_poweroff(), CHMGR_ABSENT);
    t_storage_info storage = {};
    EXPECT_EQ(chmgr_get_flash_info(&storage), 0);
}

TEST(ChassisStatus, WithoutABlockEverythingIsAbsent)
{
    FakeSystem system;
    t_storage_info storage = {};
    t_fan_info fan = {};
    t_led_cfg led = {};
    for (int result : {chmgr_get_flash_info(&storage), chmgr_get_usb_info(0, &storage),
                       chmgr_get_fan_info(0, 0, &fan), chmgr_pim_read_led_cfg(0, &led),
                       chmgr_status_set_led(&led), chmgr_set_hostname("x"), chmgr_poweroff()})
        EXPECT_EQ(result, CHMGR_ABSENT);
    EXPECT_EQ(chmgr_get_first_port_info(), nullptr);
    EXPECT_FALSE(chmgr_has_mgmt_if());
}
