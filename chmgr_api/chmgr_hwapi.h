// Operations of the platform's hardware, as tables: one per family of boxes.
//
// The block is what both sides exchange: an operation that reads asks the devices of the whole box and writes
// into the block what they say; one that sets takes from the block what they shall do. All entries are set.
// Each gives 0, or a negative errno number; CHMGR_ABSENT says that this machine doesn't have the device.
// Only the chassis manager and the functions of chmgr_api.h that say so call them; none keeps the pointer.
//
// An operation is named after its platform: plat_init is plat_sim_init in the simulation.
#pragma once

#include "chmgr_api/chmgr_block.h"

// OP(member, thing, operation), in the order of the table.
#define CHMGR_HWAPI_OPERATIONS(OP)                                                                           \
    OP(plat_init, plat, init)                                                                                \
    OP(sfp_drv_init, sfp, drv_init)                                                                          \
    OP(sfp_is_present, sfp, is_present)                                                                      \
    OP(sfp_read_status, sfp, read_status)                                                                    \
    OP(pim_read_status, pim, read_status)                                                                    \
    OP(pim_read_eeprom, pim, read_eeprom)                                                                    \
    OP(enable_poe, poe, enable)                                                                              \
    OP(status_get_poe, status, get_poe)                                                                      \
    OP(sfp_tx_enable, sfp, tx_enable)                                                                        \
    OP(sfp_read_led_cfg, sfp, read_led_cfg)                                                                  \
    OP(sfp_write_led_cfg, sfp, write_led_cfg)                                                                \
    OP(pim_read_led_cfg, pim, read_led_cfg)                                                                  \
    OP(pim_write_led_cfg, pim, write_led_cfg)                                                                \
    OP(wlan_read_led_cfg, wlan, read_led_cfg)                                                                \
    OP(wwan_read_led_cfg, wwan, read_led_cfg)                                                                \
    OP(wwan_set_connector, wwan, set_connector)                                                              \
    OP(wwan_set_power, wwan, set_power)                                                                      \
    OP(wwan_get_power, wwan, get_power)                                                                      \
    OP(system_read_led_cfg, system, read_led_cfg)                                                            \
    OP(system_write_led_cfg, system, write_led_cfg)                                                          \
    OP(status_get_led, status, get_led)                                                                      \
    OP(status_set_led, status, set_led)                                                                      \
    OP(flash_read_status, flash, read_status)                                                                \
    OP(emmc_read_status, emmc, read_status)                                                                  \
    OP(sdcard_read_status, sdcard, read_status)                                                              \
    OP(usb_read_status, usb, read_status)                                                                    \
    OP(fan_read_status, fan, read_status)                                                                    \
    OP(fan_set_status, fan, set_status)                                                                      \
    OP(tempsensor_read_status, tempsensor, read_status)                                                      \
    OP(tempsensor_set_thld, tempsensor, set_thld)                                                            \
    OP(pem_read_status, pem, read_status)                                                                    \
    OP(cpld_read_status, cpld, read_status)                                                                  \
    OP(poweroff, plat, poweroff)                                                                             \
    OP(module_power_enable, module, power_enable)                                                            \
    OP(sfp_read_raw_data, sfp, read_raw_data)                                                                \
    OP(reset_get_status, reset, get_status)                                                                  \
    OP(pci_init, pci, init)                                                                                  \
    OP(pci_cleanup, pci, cleanup)                                                                            \
    OP(pim_module_init, pim, module_init)                                                                    \
    OP(crypto_module_init, crypto, module_init)

using f_chassis_op = int (*)(t_chassis_info *p_chassis);

struct t_chassis_hwapi {
#define CHMGR_HWAPI_MEMBER(member, thing, operation) f_chassis_op member;
    CHMGR_HWAPI_OPERATIONS(CHMGR_HWAPI_MEMBER)
#undef CHMGR_HWAPI_MEMBER
};
static_assert(sizeof(t_chassis_hwapi) == 40 * sizeof(f_chassis_op));

extern const t_chassis_hwapi g_pylon_sim_hwapi;  // a present, healthy box with nothing attached
extern const t_chassis_hwapi g_pylon_pd1_hwapi;  // the large box, whose drivers this tree doesn't have
extern const t_chassis_hwapi g_pylon_pa2_hwapi;  // the small x86 boxes; likewise

extern const t_chassis_hwapi *gp_hwapi;  // null until chmgr_set_hwapi

// Chooses the table by the type of the mapped block.
void chmgr_set_hwapi();
