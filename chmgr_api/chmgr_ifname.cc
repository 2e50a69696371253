#include "chmgr_api/chmgr_api.h"

#include "common/strlcpy.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>

static constexpr int max_bridges = 64;

namespace {

// A name taken apart at its first dot.
struct t_name_parts {
    explicit t_name_parts(const char *name)
    {
        lum_strlcpy(base, name, sizeof(base));
        char *p_dot = strchr(base, '.');
        if (p_dot == nullptr)
            return;
        *p_dot = '\0';
        vlan = p_dot + 1;
    }

    char base[CHMGR_IFNAME_SIZE];
    const char *vlan = "";  // in base
};

}  // namespace

static bool block_is_there()
{
    return gp_chassis_info != nullptr || chmgr_info_get(O_RDWR) == 0;
}

static t_port_info *find_port(unsigned int slot, unsigned int port)
{
    // The counts are the writer's; the block has room for no more than its arrays.
    if (slot >= gp_chassis_info->num_modules || slot >= CHMGR_MAX_MODULES)
        return nullptr;
    t_module_info *p_module = &gp_chassis_info->modules[slot];
    return port < p_module->num_ports && port < CHMGR_MAX_MODULE_PORTS ? &p_module->ports[port] : nullptr;
}

static bool holds_name(const char (&field)[CHMGR_IFNAME_SIZE], const char *name)
{
    return strncmp(field, name, sizeof(field)) == 0;
}

static char *bridge_to_kernel(const char *name, char *buf, size_t len)
{
    int bridge = 0;
    if (sscanf(name, "irb%d", &bridge) != 1 || bridge >= max_bridges)
        return nullptr;
    snprintf(buf, len, "irb.%d", bridge);
    return buf;
}

static char *copy_and_refuse(const char *name, char *buf, size_t len)
{
    lum_strlcpy(buf, name, len);
    return nullptr;
}

static char *ethernet_to_kernel(const char *name, const t_name_parts &parts, t_port_info *p_port, char *buf,
                                size_t len, t_port_info **pp_port)
{
    if (p_port == nullptr || !holds_name(p_port->user_name, parts.base))
        return copy_and_refuse(name, buf, len);
    int size = CHMGR_IFNAME_SIZE;
    char again[2 * CHMGR_IFNAME_SIZE];
    if (parts.vlan[0] == '\0') {
        snprintf(buf, len, "%.*s", size, p_port->kernel_name);
        snprintf(again, sizeof(again), "%s", parts.base);
    } else {
        snprintf(buf, len, "%.*s.%s", size, p_port->kernel_name, parts.vlan);
        snprintf(again, sizeof(again), "%s.%u", parts.base,
                 static_cast<unsigned int>(strtol(parts.vlan, nullptr, 10)));
    }
    if (strcmp(again, name) != 0)
        return nullptr;
    if (pp_port != nullptr)
        *pp_port = p_port;
    return buf;
}

char *chmgr_user_to_kernel_ifname(const char *user, char *buf, size_t len, t_port_info **pp_port)
{
    if (pp_port != nullptr)
        *pp_port = nullptr;
    char name[CHMGR_IFNAME_SIZE];
    lum_strlcpy(name, user, sizeof(name));
    buf[0] = '\0';
    if (strstr(name, "irb") != nullptr)
        return bridge_to_kernel(name, buf, len);
    t_name_parts parts(name);
    if (parts.base[0] == '\0')
        return nullptr;
    lum_strlcpy(buf, name, len);
    if (!block_is_there())
        return buf;
    unsigned int slot = 0;
    unsigned int port = 0;
    if (strstr(parts.base, "ge") != nullptr && sscanf(parts.base, "ge%u/%u", &slot, &port) == 2)
        return ethernet_to_kernel(name, parts, find_port(slot, port), buf, len, pp_port);
    if (gp_chassis_info->chassis_type == CHASSIS_TYPE_PYLON_A1_R2 && strcmp(name, "eth0") == 0 &&
        gp_chassis_info->has_mgmt_if != 0)
        lum_strlcpy(buf, "ge0_0", len);
    return buf;
}
