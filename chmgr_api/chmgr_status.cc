#include "chmgr_api/chmgr_api.h"

#include "chmgr_api/chmgr_hwapi.h"
#include "chmgr_api/chmgr_private.h"
#include "common/strlcpy.h"

#include <span>

// ---- Environment ----

// Copies one device's record out. A null source stands for a device that isn't there.
template <typename T>
static int copy_out(const T *p_source, T *p_info)
{
    if (p_source == nullptr)
        return CHMGR_ABSENT;
    *p_info = *p_source;
    return 0;
}

// One of count devices, if the array has as many.
template <typename T>
static const T *device(std::span<const T> devices, uint32_t count, uint32_t index)
{
    return index < count && index < devices.size() ? &devices[index] : nullptr;
}

static int storage_info(t_storage_info t_chassis_info::*p_member, t_storage_info *p_info)
{
    const t_chassis_info *p_chassis = chmgr_block();
    return p_chassis == nullptr ? CHMGR_ABSENT : copy_out(&(p_chassis->*p_member), p_info);
}

int chmgr_get_flash_info(t_storage_info *p_info)
{
    return storage_info(&t_chassis_info::flash, p_info);
}

int chmgr_get_emmc_info(t_storage_info *p_info)
{
    return storage_info(&t_chassis_info::emmc, p_info);
}

int chmgr_get_sdcard_info(t_storage_info *p_info)
{
    return storage_info(&t_chassis_info::sdcard, p_info);
}

int chmgr_get_usb_info(uint32_t index, t_storage_info *p_info)
{
    const t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return CHMGR_ABSENT;
    return copy_out(device<t_storage_info>(p_chassis->usb, p_chassis->num_usb, index), p_info);
}

static const t_fantray_info *fan_tray(uint32_t tray)
{
    const t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return nullptr;
    return device<t_fantray_info>(p_chassis->fan_trays, p_chassis->num_fan_trays, tray);
}

int chmgr_get_fantray_info(uint32_t tray, t_fantray_info *p_info)
{
    return copy_out(fan_tray(tray), p_info);
}

int chmgr_get_fan_info(uint32_t tray, uint32_t fan, t_fan_info *p_info)
{
    const t_fantray_info *p_tray = fan_tray(tray);
    if (p_tray == nullptr)
        return CHMGR_ABSENT;
    return copy_out(device<t_fan_info>(p_tray->fans, p_tray->num_fans, fan), p_info);
}

static const t_tempsensor_module_info *sensor_module(uint32_t module)
{
    const t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return nullptr;
    return device<t_tempsensor_module_info>(p_chassis->sensor_modules, p_chassis->num_sensor_modules, module);
}

int chmgr_get_tempsensor_module_info(uint32_t module, t_tempsensor_module_info *p_info)
{
    return copy_out(sensor_module(module), p_info);
}

int chmgr_get_tempsensor_info(uint32_t module, uint32_t sensor, t_tempsensor_info *p_info)
{
    const t_tempsensor_module_info *p_module = sensor_module(module);
    if (p_module == nullptr)
        return CHMGR_ABSENT;
    return copy_out(device<t_tempsensor_info>(p_module->sensors, p_module->num_sensors, sensor), p_info);
}

int chmgr_get_pem_info(uint32_t pem, t_pem_info *p_info)
{
    const t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return CHMGR_ABSENT;
    return copy_out(device<t_pem_info>(p_chassis->pems, p_chassis->num_pems, pem), p_info);
}

// ---- Operations ----

static int call(f_chassis_op t_chassis_hwapi::*p_operation)
{
    if (gp_hwapi == nullptr)
        chmgr_set_hwapi();
    return (gp_hwapi->*p_operation)(gp_chassis_info);
}

// Where a light's setting stands in the block. Null without it, or without the port or module.

static t_led_cfg *port_led(t_portid port_id)
{
    t_port_info *p_port = chmgr_get_port_info(port_id);
    return p_port == nullptr ? nullptr : &p_port->led;
}

static t_led_cfg *module_led(uint32_t slot)
{
    t_chassis_info *p_chassis = chmgr_block();
    bool is_there = p_chassis != nullptr && slot < p_chassis->num_modules && slot < CHMGR_MAX_MODULES;
    return is_there ? &p_chassis->modules[slot].led : nullptr;
}

static t_led_cfg *box_led(t_led_cfg t_chassis_info::*p_member)
{
    t_chassis_info *p_chassis = chmgr_block();
    return p_chassis == nullptr ? nullptr : &(p_chassis->*p_member);
}

static int read_led(f_chassis_op t_chassis_hwapi::*p_operation, const t_led_cfg *p_field, t_led_cfg *p_led)
{
    if (p_field == nullptr)
        return CHMGR_ABSENT;
    int status = call(p_operation);
    if (status == 0)
        *p_led = *p_field;
    return status;
}

static int write_led(f_chassis_op t_chassis_hwapi::*p_operation, t_led_cfg *p_field, const t_led_cfg *p_led)
{
    if (p_field == nullptr)
        return CHMGR_ABSENT;
    *p_field = *p_led;
    return call(p_operation);
}

int chmgr_sfp_read_led_cfg(t_portid port_id, t_led_cfg *p_led)
{
    return read_led(&t_chassis_hwapi::sfp_read_led_cfg, port_led(port_id), p_led);
}

int chmgr_sfp_write_led_cfg(t_portid port_id, const t_led_cfg *p_led)
{
    return write_led(&t_chassis_hwapi::sfp_write_led_cfg, port_led(port_id), p_led);
}

int chmgr_pim_read_led_cfg(uint32_t slot, t_led_cfg *p_led)
{
    return read_led(&t_chassis_hwapi::pim_read_led_cfg, module_led(slot), p_led);
}

int chmgr_pim_write_led_cfg(uint32_t slot, const t_led_cfg *p_led)
{
    return write_led(&t_chassis_hwapi::pim_write_led_cfg, module_led(slot), p_led);
}

int chmgr_system_read_led_cfg(t_led_cfg *p_led)
{
    return read_led(&t_chassis_hwapi::system_read_led_cfg, box_led(&t_chassis_info::system_led), p_led);
}

int chmgr_system_write_led_cfg(const t_led_cfg *p_led)
{
    return write_led(&t_chassis_hwapi::system_write_led_cfg, box_led(&t_chassis_info::system_led), p_led);
}

int chmgr_status_get_led(t_led_cfg *p_led)
{
    return read_led(&t_chassis_hwapi::status_get_led, box_led(&t_chassis_info::status_led), p_led);
}

int chmgr_status_set_led(const t_led_cfg *p_led)
{
    return write_led(&t_chassis_hwapi::status_set_led, box_led(&t_chassis_info::status_led), p_led);
}

int chmgr_wlan_read_led_cfg(t_led_cfg *p_led)
{
    return read_led(&t_chassis_hwapi::wlan_read_led_cfg, box_led(&t_chassis_info::wlan_led), p_led);
}

int chmgr_wwan_read_led_cfg(t_led_cfg *p_led)
{
    return read_led(&t_chassis_hwapi::wwan_read_led_cfg, box_led(&t_chassis_info::wwan_led), p_led);
}

int chmgr_get_reset_status(e_reset_reason *p_reason)
{
    const t_chassis_info *p_chassis = chmgr_block();
    int status = p_chassis == nullptr ? CHMGR_ABSENT : call(&t_chassis_hwapi::reset_get_status);
    if (status == 0)
        *p_reason = p_chassis->reset_status;
    return status;
}

int chmgr_poweroff()
{
    return chmgr_block() == nullptr ? CHMGR_ABSENT : call(&t_chassis_hwapi::poweroff);
}

// ---- The box ----

t_chassis_info *chmgr_get_chassis_info()
{
    return chmgr_block();
}

e_chassis_type chmgr_get_chassis_type()
{
    const t_chassis_info *p_chassis = chmgr_block();
    return p_chassis == nullptr ? CHASSIS_TYPE_UNKNOWN : p_chassis->chassis_type;
}

static uint8_t number(uint8_t t_chassis_info::*p_member)
{
    const t_chassis_info *p_chassis = chmgr_block();
    return p_chassis == nullptr ? uint8_t{0} : p_chassis->*p_member;
}

uint8_t chmgr_get_num_fp_cores()
{
    return number(&t_chassis_info::num_fp_cores);
}

uint8_t chmgr_get_num_cp_cores()
{
    return number(&t_chassis_info::num_cp_cores);
}

uint8_t chmgr_get_num_total_cores()
{
    return number(&t_chassis_info::num_cores);
}

bool chmgr_has_mgmt_if()
{
    return number(&t_chassis_info::has_mgmt_if) != 0;
}

int chmgr_set_hostname(const char *hostname)
{
    t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return CHMGR_ABSENT;
    lum_strlcpy(p_chassis->hostname, hostname, sizeof(p_chassis->hostname));
    return 0;
}

int chmgr_get_hostname(char *buf, size_t len)
{
    const t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return CHMGR_ABSENT;
    lum_strlcpy(buf, p_chassis->hostname, len);
    return 0;
}

int chmgr_set_system_ip(const t_ipaddr *p_addr)
{
    t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return CHMGR_ABSENT;
    p_chassis->system_ip = *p_addr;
    return 0;
}

int chmgr_get_system_ip(t_ipaddr *p_addr)
{
    const t_chassis_info *p_chassis = chmgr_block();
    return p_chassis == nullptr ? CHMGR_ABSENT : copy_out(&p_chassis->system_ip, p_addr);
}
