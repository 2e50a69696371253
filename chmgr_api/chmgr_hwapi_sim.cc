// The simulated platform's operations: a present, healthy box with nothing attached.
//
// There are no devices behind it. What a setting operation would pass on stands in the block already, so most
// of them have nothing to do, and readers of settings find them where they were put. plat_sim_init gives the
// box the places of its model; everything else follows the counts in the block.
#include "chmgr_api/chmgr_api.h"
#include "chmgr_api/chmgr_hwapi.h"
#include "common/strlcpy.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

// The first count devices of an array.
template <typename T, size_t size>
static std::span<T> present(T (&devices)[size], uint32_t count)
{
    return std::span<T>(devices).first(std::min<size_t>(count, size));
}

static std::span<t_module_info> modules_of(t_chassis_info *p_chassis)
{
    return present(p_chassis->modules, p_chassis->num_modules);
}

// ---- The box ----

static int plat_sim_init(t_chassis_info *p_chassis)
{
    const t_chassis_descr &descr =
        g_chassis_descr[std::min<uint32_t>(p_chassis->chassis_type, MAX_CHASSIS_TYPES - 1)];
    p_chassis->num_usb = descr.num_usb;
    p_chassis->num_fan_trays = descr.num_fan_trays;
    p_chassis->num_sensor_modules = descr.num_sensors == 0 ? 0 : 1;
    p_chassis->num_pems = descr.num_pems;
    for (t_fantray_info &tray : present(p_chassis->fan_trays, descr.num_fan_trays))
        tray.num_fans = descr.num_fans;
    p_chassis->sensor_modules[0].num_sensors = descr.num_sensors;
    p_chassis->system_led = {.color = LED_COLOR_GREEN, .is_blinking = 0};
    p_chassis->status_led = {.color = LED_COLOR_GREEN, .is_blinking = 0};
    p_chassis->wwan_state = HW_STATE_ABSENT;
    return 0;
}

static int plat_sim_poweroff(t_chassis_info *p_chassis)
{
    p_chassis->chassis_state = HW_STATE_OFF;
    return 0;
}

static int reset_sim_get_status(t_chassis_info *p_chassis)
{
    p_chassis->reset_status = RESET_REASON_POWER_ON;
    return 0;
}

static int cpld_sim_read_status(t_chassis_info *p_chassis)
{
    p_chassis->cpld_version = 1;
    return 0;
}

static int status_sim_get_poe(t_chassis_info *p_chassis)
{
    p_chassis->poe_state = HW_STATE_ABSENT;
    return 0;
}

static int wwan_sim_get_power(t_chassis_info *p_chassis)
{
    p_chassis->wwan_state = HW_STATE_ABSENT;
    return 0;
}

// ---- Modules and plug-ins ----

static int pim_sim_read_status(t_chassis_info *p_chassis)
{
    for (t_module_info &module : modules_of(p_chassis)) {
        module.pim_status = module.num_ports == 0 ? HW_STATE_ABSENT : HW_STATE_OK;
        module.module_state = module.pim_status;
    }
    return 0;
}

static int pim_sim_read_eeprom(t_chassis_info *p_chassis)
{
    for (t_module_info &module : modules_of(p_chassis)) {
        module.module_eeprom = {};
        if (module.num_ports == 0)
            continue;
        t_module_eeprom *p_eeprom = &module.module_eeprom;
        snprintf(p_eeprom->part_number, sizeof(p_eeprom->part_number), "SIM-%uGE", module.num_ports);
        snprintf(p_eeprom->serial_number, sizeof(p_eeprom->serial_number), "sim-%u", module.module_id);
        lum_strlcpy(p_eeprom->description, "Simulated Ethernet ports", sizeof(p_eeprom->description));
        p_eeprom->revision = 1;
    }
    return 0;
}

static int sfp_sim_is_present(t_chassis_info *p_chassis)
{
    for (t_module_info &module : modules_of(p_chassis))
        for (t_port_info &port : present(module.ports, module.num_ports))
            port.sfp_state = HW_STATE_ABSENT;
    return 0;
}

static int sfp_sim_read_status(t_chassis_info *p_chassis)
{
    return sfp_sim_is_present(p_chassis);
}

static int sfp_sim_read_raw_data(t_chassis_info *p_chassis)
{
    for (t_module_info &module : modules_of(p_chassis))
        for (t_port_info &port : present(module.ports, module.num_ports))
            memset(port.sfp_raw_data, 0, sizeof(port.sfp_raw_data));
    return 0;
}

// ---- Storage ----

static int flash_sim_read_status(t_chassis_info *p_chassis)
{
    p_chassis->flash = {.state = HW_STATE_OK, .size = 16, .model = "simulated flash"};
    return 0;
}

static int emmc_sim_read_status(t_chassis_info *p_chassis)
{
    p_chassis->emmc = {.state = HW_STATE_OK, .size = 8192, .model = "simulated eMMC"};
    return 0;
}

static int sdcard_sim_read_status(t_chassis_info *p_chassis)
{
    p_chassis->sdcard = {.state = HW_STATE_ABSENT, .size = 0, .model = ""};
    return 0;
}

static int usb_sim_read_status(t_chassis_info *p_chassis)
{
    for (t_storage_info &stick : present(p_chassis->usb, p_chassis->num_usb))
        stick = {.state = HW_STATE_ABSENT, .size = 0, .model = ""};
    return 0;
}

// ---- Air, heat and power ----

static int fan_sim_read_status(t_chassis_info *p_chassis)
{
    static constexpr t_fan_info running = {.state = HW_STATE_OK, .speed = 4000, .duty_cycle = 40};
    for (t_fantray_info &tray : present(p_chassis->fan_trays, p_chassis->num_fan_trays)) {
        tray.state = HW_STATE_OK;
        std::ranges::fill(present(tray.fans, tray.num_fans), running);
    }
    return 0;
}

// A new sensor gets thresholds; one that was given others keeps them.
static void read_sensor(t_tempsensor_info *p_sensor, uint32_t index)
{
    if (p_sensor->state == HW_STATE_UNKNOWN) {
        p_sensor->warning_threshold = 65;
        p_sensor->critical_threshold = 80;
    }
    p_sensor->state = HW_STATE_OK;
    p_sensor->temperature = 35;
    snprintf(p_sensor->name, sizeof(p_sensor->name), "board %u", index);
}

static int tempsensor_sim_read_status(t_chassis_info *p_chassis)
{
    for (t_tempsensor_module_info &module :
         present(p_chassis->sensor_modules, p_chassis->num_sensor_modules)) {
        module.state = HW_STATE_OK;
        uint32_t index = 0;
        for (t_tempsensor_info &sensor : present(module.sensors, module.num_sensors))
            read_sensor(&sensor, index++);
    }
    return 0;
}

static int pem_sim_read_status(t_chassis_info *p_chassis)
{
    for (t_pem_info &pem : present(p_chassis->pems, p_chassis->num_pems))
        pem = {.state = HW_STATE_OK, .voltage = 12000, .power = 30000, .reserved0 = 0, .model = "simulated"};
    return 0;
}

// ---- What has nothing to do ----

#define SIM_NOTHING_TO_DO(thing, operation)                                                                  \
    static int thing##_sim_##operation(t_chassis_info *)                                                     \
    {                                                                                                        \
        return 0;                                                                                            \
    }
SIM_NOTHING_TO_DO(sfp, drv_init)
SIM_NOTHING_TO_DO(poe, enable)
SIM_NOTHING_TO_DO(sfp, tx_enable)
SIM_NOTHING_TO_DO(sfp, read_led_cfg)
SIM_NOTHING_TO_DO(sfp, write_led_cfg)
SIM_NOTHING_TO_DO(pim, read_led_cfg)
SIM_NOTHING_TO_DO(pim, write_led_cfg)
SIM_NOTHING_TO_DO(wlan, read_led_cfg)
SIM_NOTHING_TO_DO(wwan, read_led_cfg)
SIM_NOTHING_TO_DO(wwan, set_connector)
SIM_NOTHING_TO_DO(wwan, set_power)
SIM_NOTHING_TO_DO(system, read_led_cfg)
SIM_NOTHING_TO_DO(system, write_led_cfg)
SIM_NOTHING_TO_DO(status, get_led)
SIM_NOTHING_TO_DO(status, set_led)
SIM_NOTHING_TO_DO(fan, set_status)
SIM_NOTHING_TO_DO(tempsensor, set_thld)
SIM_NOTHING_TO_DO(module, power_enable)
SIM_NOTHING_TO_DO(pci, init)
SIM_NOTHING_TO_DO(pci, cleanup)
SIM_NOTHING_TO_DO(pim, module_init)
SIM_NOTHING_TO_DO(crypto, module_init)

#define SIM_ENTRY(member, thing, operation) .member = thing##_sim_##operation,
const t_chassis_hwapi g_pylon_sim_hwapi = {CHMGR_HWAPI_OPERATIONS(SIM_ENTRY)};
