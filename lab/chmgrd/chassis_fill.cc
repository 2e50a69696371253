#include "lab/chmgrd/chassis_fill.h"

#include "chmgr_api/chmgr_hwapi.h"
#include "common/strlcpy.h"

#include <algorithm>
#include <cstdio>

// ---- Names of types ----

static constexpr const char *type_names[MAX_CHASSIS_TYPES] = {
    "unknown",     "pylon-a2-r1", "pylon-a3-r1", "pylon-a1-r1", "pylon-a1-r2", "pylon-a1-r3",
    "pylon-cloud", "pylon-a4",    "pylon-e2-r1", "pylon-e1-r1", "pylon-e3-r1",
};

bool chassis_type_find(const std::string &name, e_chassis_type *p_type)
{
    const auto *p_name = std::ranges::find(type_names, name);
    if (p_name == std::end(type_names))
        return false;
    *p_type = static_cast<e_chassis_type>(p_name - type_names);
    return true;
}

const char *chassis_type_name(e_chassis_type type)
{
    return type_names[type];
}

// ---- Ports ----

static constexpr uint32_t queues_of_a_port = 8;
static constexpr uint32_t numbers_of_an_interface = 16;

static void name_port(t_port_info *p_port, uint32_t slot, uint32_t number)
{
    snprintf(p_port->user_name, sizeof(p_port->user_name), "ge%u/%u", slot, number);
    snprintf(p_port->kernel_name, sizeof(p_port->kernel_name), "ge%u_%u", slot, number);
}

static void fill_port(t_port_info *p_port, uint32_t slot, uint32_t number, uint32_t running_number)
{
    p_port->port_id = {{.slot = static_cast<uint8_t>(slot), .mda = 0, .port = static_cast<uint16_t>(number)}};
    p_port->fp_port = static_cast<uint16_t>(running_number);
    p_port->admin_state = 1;
    p_port->link_state = HW_STATE_OK;
    name_port(p_port, slot, number);
    p_port->hw_interface_id = slot;
    p_port->hw_port_index = number;
    p_port->hw_ipd_port = numbers_of_an_interface * slot + number;
    p_port->hw_pko_port = p_port->hw_ipd_port;
    p_port->pko_queue_base = queues_of_a_port * p_port->hw_pko_port;
    p_port->pko_num_queues = queues_of_a_port;
    p_port->hw_max_macs = 8;
    p_port->link_speed = 1000;
}

// Returns the running number behind the module's last port.
static uint32_t fill_module(t_chassis_info *p_chassis, uint32_t slot, uint32_t running_number)
{
    t_module_info *p_module = &p_chassis->modules[slot];
    p_module->module_id = slot;
    p_module->num_ports = g_chassis_descr[p_chassis->chassis_type].num_ports[slot];
    p_module->max_ports = CHMGR_MAX_MODULE_PORTS;
    p_module->module_type = p_module->num_ports == 0 ? 0 : slot + 1;
    p_module->expected_module_type = p_module->module_type;
    for (uint32_t number = 0; number < p_module->num_ports; number++) {
        t_port_info *p_port = &p_module->ports[number];
        fill_port(p_port, slot, number, running_number);
        p_port->default_macaddr = p_chassis->macaddr_base + running_number++;
        p_chassis->hw_port_to_user_port[p_port->hw_interface_id][p_port->hw_port_index] = p_port->port_id;
    }
    return running_number;
}

static void fill_modules(t_chassis_info *p_chassis)
{
    const t_chassis_descr &descr = g_chassis_descr[p_chassis->chassis_type];
    p_chassis->num_modules = descr.num_modules;
    p_chassis->has_mgmt_if = descr.has_mgmt_if;
    p_chassis->num_wan_intf = descr.num_wan_intf;
    uint32_t running_number = 0;
    for (uint32_t slot = 0; slot < descr.num_modules; slot++)
        running_number = fill_module(p_chassis, slot, running_number);
    // The operator knows the management port by the kernel's other name for it.
    if (descr.has_mgmt_if != 0)
        lum_strlcpy(p_chassis->modules[0].ports[0].user_name, "eth0", CHMGR_IFNAME_SIZE);
}

// ---- The box ----

static void fill_cores(t_chassis_info *p_chassis, uint8_t num_cores)
{
    p_chassis->num_cores = num_cores;
    p_chassis->num_cp_cores = 1;
    p_chassis->num_fp_cores = static_cast<uint8_t>(std::max(num_cores - 1, 1));
    p_chassis->min_fp_cores = 1;
    p_chassis->max_fp_cores = p_chassis->num_fp_cores;
    p_chassis->num_fp_rx_cores = 1;
}

static uint64_t macaddr_base(const t_ipaddr &system_ip)
{
    uint64_t middle = IPADDR_IS_V4(&system_ip) ? system_ip.u.addr4.s_addr : 0;
    return uint64_t{0x02} << 40 | middle << 8;
}

// A box of every model, also of those whose drivers aren't in this tree: in the lab all are simulated.
static void fill_environment(t_chassis_info *p_chassis)
{
    static constexpr f_chassis_op t_chassis_hwapi::*readers[] = {
        &t_chassis_hwapi::plat_init,          &t_chassis_hwapi::sfp_is_present,
        &t_chassis_hwapi::pim_read_status,    &t_chassis_hwapi::pim_read_eeprom,
        &t_chassis_hwapi::status_get_poe,     &t_chassis_hwapi::wwan_get_power,
        &t_chassis_hwapi::flash_read_status,  &t_chassis_hwapi::emmc_read_status,
        &t_chassis_hwapi::sdcard_read_status, &t_chassis_hwapi::usb_read_status,
        &t_chassis_hwapi::fan_read_status,    &t_chassis_hwapi::tempsensor_read_status,
        &t_chassis_hwapi::pem_read_status,    &t_chassis_hwapi::cpld_read_status,
        &t_chassis_hwapi::reset_get_status,
    };
    for (f_chassis_op t_chassis_hwapi::*p_reader : readers)
        (g_pylon_sim_hwapi.*p_reader)(p_chassis);
}

std::unique_ptr<t_chassis_info> chassis_fill(const t_chassis_options &options)
{
    auto chassis = std::make_unique<t_chassis_info>();
    chmgr_chassis_set_type(chassis.get(), options.type);
    chassis->macaddr_base = macaddr_base(options.system_ip);
    chassis->macaddr_count = 256;
    fill_cores(chassis.get(), options.num_cores);
    fill_modules(chassis.get());
    fill_environment(chassis.get());
    lum_strlcpy(chassis->hostname, options.host_name.c_str(), sizeof(chassis->hostname));
    lum_strlcpy(chassis->board_serial_number, options.serial_number.c_str(),
                sizeof(chassis->board_serial_number));
    chassis->system_ip = options.system_ip;
    return chassis;
}
