#include "chmgr_api/chmgr_api.h"

#include "chmgr_api/chmgr_private.h"
#include "common/strlcpy.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

static constexpr int max_bridges = 64;

namespace {

// The head of a name that is kept.
struct t_short_name {
    explicit t_short_name(const char *name)
    {
        lum_strlcpy(text, name, sizeof(text));
    }

    char text[CHMGR_IFNAME_SIZE];
};

// A name taken apart at its first dot.
struct t_name_parts {
    explicit t_name_parts(const t_short_name &name)
    {
        lum_strlcpy(base, name.text, sizeof(base));
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

static bool holds_name(const char (&field)[CHMGR_IFNAME_SIZE], const char *name)
{
    return strncmp(field, name, sizeof(field)) == 0;
}

// A port's name from the block, and the VLAN's text behind it.
static void write_name(const char (&field)[CHMGR_IFNAME_SIZE], const char *vlan, char *buf, size_t len)
{
    const char *dot = vlan[0] == '\0' ? "" : ".";
    snprintf(buf, len, "%.*s%s%s", static_cast<int>(sizeof(field)), field, dot, vlan);
}

static char *copy_and_refuse(const char *name, char *buf, size_t len)
{
    lum_strlcpy(buf, name, len);
    return nullptr;
}

static void set_port(t_port_info **pp_port, t_port_info *p_port)
{
    if (pp_port != nullptr)
        *pp_port = p_port;
}

// ---- The operator's to the kernel's ----

static char *bridge_to_kernel(const char *name, char *buf, size_t len)
{
    int bridge = 0;
    if (sscanf(name, "irb%d", &bridge) != 1 || bridge >= max_bridges)
        return nullptr;
    return chmgr_get_irb_if_name(bridge, buf, len);
}

// Whether the name is written as this system writes it: the VLAN as a plain number.
static bool is_plain(const t_short_name &name, const t_name_parts &parts)
{
    char again[2 * CHMGR_IFNAME_SIZE];
    if (parts.vlan[0] == '\0')
        snprintf(again, sizeof(again), "%s", parts.base);
    else
        snprintf(again, sizeof(again), "%s.%u", parts.base,
                 static_cast<unsigned int>(strtol(parts.vlan, nullptr, 10)));
    return strcmp(again, name.text) == 0;
}

static char *ethernet_to_kernel(const t_short_name &name, const t_name_parts &parts, t_port_info *p_port,
                                char *buf, size_t len, t_port_info **pp_port)
{
    if (p_port == nullptr || !holds_name(p_port->user_name, parts.base))
        return copy_and_refuse(name.text, buf, len);
    write_name(p_port->kernel_name, parts.vlan, buf, len);
    if (!is_plain(name, parts))
        return nullptr;
    set_port(pp_port, p_port);
    return buf;
}

char *chmgr_user_to_kernel_ifname(const char *user, char *buf, size_t len, t_port_info **pp_port)
{
    set_port(pp_port, nullptr);
    t_short_name name(user);
    if (strstr(name.text, "irb") != nullptr)
        return bridge_to_kernel(name.text, buf, len);
    t_name_parts parts(name);
    if (parts.base[0] == '\0')
        return nullptr;
    lum_strlcpy(buf, name.text, len);
    const t_chassis_info *p_chassis = chmgr_block();
    if (p_chassis == nullptr)
        return buf;
    unsigned int slot = 0;
    unsigned int port = 0;
    if (strstr(parts.base, "ge") != nullptr && sscanf(parts.base, "ge%u/%u", &slot, &port) == 2)
        return ethernet_to_kernel(name, parts, chmgr_find_port(slot, port), buf, len, pp_port);
    if (p_chassis->chassis_type == CHASSIS_TYPE_PYLON_A1_R2 && strcmp(name.text, "eth0") == 0 &&
        p_chassis->has_mgmt_if != 0)
        lum_strlcpy(buf, "ge0_0", len);
    return buf;
}

// ---- The kernel's to the operator's ----

static char *ethernet_to_user(const t_short_name &name, const t_name_parts &parts, t_port_info *p_port,
                              char *buf, size_t len, t_port_info **pp_port)
{
    if (p_port == nullptr)
        return copy_and_refuse(name.text, buf, len);
    lum_strlcpy(buf, name.text, len);
    if (!holds_name(p_port->kernel_name, parts.base))
        return buf;
    write_name(p_port->user_name, parts.vlan, buf, len);
    set_port(pp_port, p_port);
    return buf;
}

char *chmgr_kernel_to_user_name(const char *kernel, char *buf, size_t len, t_port_info **pp_port)
{
    set_port(pp_port, nullptr);
    t_short_name name(kernel);
    t_name_parts parts(name);
    if (parts.base[0] == '\0')
        return nullptr;
    if (strstr(parts.base, "irb") != nullptr) {
        snprintf(buf, len, "irb%s", parts.vlan);
        return buf;
    }
    lum_strlcpy(buf, name.text, len);
    unsigned int slot = 0;
    unsigned int port = 0;
    if (chmgr_block() != nullptr && sscanf(parts.base, "ge%u_%u", &slot, &port) == 2)
        return ethernet_to_user(name, parts, chmgr_find_port(slot, port), buf, len, pp_port);
    return buf;
}

// ---- Bridges ----

char *chmgr_user_to_kernel_bridge_ifname(const char *user, char *buf, size_t len)
{
    return bridge_to_kernel(t_short_name(user).text, buf, len);
}

char *chmgr_kernel_to_user_bridge_name(const char *kernel, char *buf, size_t len)
{
    t_short_name name(kernel);
    if (!chmgr_ifname_is_irb(name.text))
        return nullptr;
    snprintf(buf, len, "irb%s", t_name_parts(name).vlan);
    return buf;
}

char *chmgr_get_irb_if_name(int bridge_id, char *buf, size_t len)
{
    snprintf(buf, len, "irb.%d", bridge_id);
    return buf;
}

int chmgr_bridge_id_from_user_irb_ifname(const char *user)
{
    int bridge = 0;
    return sscanf(t_short_name(user).text, "irb%d", &bridge) == 1 ? bridge : 0;
}

int chmgr_bridge_id_from_kernel_irb_ifname(const char *kernel)
{
    int bridge = 0;
    if (sscanf(t_short_name(kernel).text, "irb.%d", &bridge) == 1)
        return bridge;
    return chmgr_bridge_id_from_user_irb_ifname(kernel);
}

// ---- Parts and classes ----

int chmgr_vlan_id_from_user_if_name(const char *user, uint32_t *p_vlan)
{
    *p_vlan = 0;
    t_short_name name(user);
    if (strstr(name.text, "ge") == nullptr)
        return -1;
    unsigned int slot = 0;
    unsigned int port = 0;
    unsigned int vlan = 0;
    if (sscanf(name.text, "ge%u/%u.%u", &slot, &port, &vlan) == 3)
        *p_vlan = vlan;
    return 0;
}

bool chmgr_is_sub_interface(const char *name)
{
    return t_name_parts(t_short_name(name)).vlan[0] != '\0';
}

static bool begins_with(const char *name, const char *head)
{
    return strncmp(name, head, strlen(head)) == 0;
}

bool chmgr_ifname_is_irb(const char *name)
{
    return begins_with(name, "irb");
}

bool chmgr_ifname_is_ethernet(const char *name)
{
    return begins_with(name, "ge") || begins_with(name, "10ge");
}

bool chmgr_ifname_is_wlan(const char *name)
{
    return begins_with(name, "vap");
}

bool chmgr_ifname_is_wwan(const char *name)
{
    return begins_with(name, "wwan");
}

bool chmgr_ifname_is_docker(const char *name)
{
    return begins_with(name, "docker");
}

bool chmgr_ifname_is_system(const char *name)
{
    return begins_with(name, "system");
}

bool chmgr_ifname_is_cellular(const char *name)
{
    return begins_with(name, "cellular");
}

bool chmgr_ifname_is_loop(const char *name)
{
    return strstr(name, "loop") != nullptr;
}
