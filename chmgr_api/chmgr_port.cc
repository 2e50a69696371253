#include "chmgr_api/chmgr_api.h"

#include "chmgr_api/chmgr_private.h"
#include "common/lum_assert.h"

#include <algorithm>
#include <cstdio>

// The counts are the writer's; the block has room for no more than its arrays.
static uint32_t module_count(const t_chassis_info *p_chassis)
{
    return std::min(p_chassis->num_modules, CHMGR_MAX_MODULES);
}

static uint32_t port_count(const t_module_info *p_module)
{
    return std::min<uint32_t>(p_module->num_ports, CHMGR_MAX_MODULE_PORTS);
}

t_port_info *chmgr_find_port(uint32_t slot, uint32_t port)
{
    if (slot >= module_count(gp_chassis_info))
        return nullptr;
    t_module_info *p_module = &gp_chassis_info->modules[slot];
    return port < port_count(p_module) ? &p_module->ports[port] : nullptr;
}

t_port_info *chmgr_get_port_info(t_portid port_id)
{
    return chmgr_block() == nullptr ? nullptr : chmgr_find_port(port_id.slot, port_id.port);
}

// ---- Walking ----

// The first port at this place or behind it.
static t_port_info *port_from(uint32_t slot, uint32_t port)
{
    t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return nullptr;
    for (; slot < module_count(p_chassis); slot++, port = 0)
        if (port < port_count(&p_chassis->modules[slot]))
            return &p_chassis->modules[slot].ports[port];
    return nullptr;
}

t_port_info *chmgr_get_first_port_info()
{
    return port_from(0, 0);
}

t_port_info *chmgr_get_next_port_info(t_portid port_id)
{
    return port_from(port_id.slot, port_id.port + 1u);
}

// ---- The hardware's numbers ----

t_portid chmgr_hw_port_to_user_port(uint32_t interface, uint32_t index)
{
    const t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr || interface >= CHMGR_MAX_HW_INTERFACES || index >= CHMGR_MAX_HW_INDEXES)
        return {};
    return p_chassis->hw_port_to_user_port[interface][index];
}

static const t_port_info *port_of_hardware(uint32_t interface, uint32_t index)
{
    const t_port_info *p_port = chmgr_get_port_info(chmgr_hw_port_to_user_port(interface, index));
    LUM_ASSERT(p_port != nullptr, "p_port != NULL");
    return p_port;
}

int chmgr_get_ipd_port(uint32_t interface, uint32_t index)
{
    return static_cast<int>(port_of_hardware(interface, index)->hw_ipd_port);
}

int chmgr_get_pko_port(uint32_t interface, uint32_t index)
{
    return static_cast<int>(port_of_hardware(interface, index)->hw_pko_port);
}

bool chmgr_port_allowed(t_portid port_id)
{
    bool is_mgmt_port = chmgr_has_mgmt_if() && port_id.slot == 0 && port_id.port == 0;
    return chmgr_get_port_info(port_id) != nullptr && !is_mgmt_port;
}

char *chmgr_get_sim_ifname(t_portid port_id, char *buf, size_t len)
{
    snprintf(buf, len, "sim%d_%d", port_id.slot, port_id.port);
    return buf;
}

int chmgr_if_get_default_macaddr(const char *kernel_name, uint8_t macaddr[6])
{
    char user_name[CHMGR_IFNAME_SIZE];
    t_port_info *p_port = nullptr;
    chmgr_kernel_to_user_name(kernel_name, user_name, sizeof(user_name), &p_port);
    if (p_port == nullptr)
        return CHMGR_ABSENT;
    for (int i = 0; i < 6; i++)
        macaddr[i] = static_cast<uint8_t>(p_port->default_macaddr >> (8 * (5 - i)));
    return 0;
}
