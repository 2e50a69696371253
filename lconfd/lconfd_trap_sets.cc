// What traps each module has, by severity.
#include "lconfd/lconfd_trap.h"

#include <initializer_list>

using t_map = t_lconfd_trap_tag_map;

// Both ends belong to the range.
static void set_range(t_map *p_map, bool on, int first, int last)
{
    for (int trap = first; trap <= last; trap++)
        lconfd_trap_set(p_map, trap, on);
}

static void set_each(t_map *p_map, bool on, std::initializer_list<int> traps)
{
    for (int trap : traps)
        lconfd_trap_set(p_map, trap, on);
}

// ---- By module ----

static void app_route_major(t_map *p_map, bool on)
{
    lconfd_trap_set(p_map, LCONFD_TRAP_APP_ROUTE_SLA_CHANGE, on);
}

static void bfd_major(t_map *p_map, bool on)
{
    lconfd_trap_set(p_map, LCONFD_TRAP_BFD_STATE_CHANGE, on);
}

static void control_critical(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_CONTROL_NO_ACTIVE_KEELSON, LCONFD_TRAP_CONTROL_NO_ACTIVE_TOLMEN);
}

static void control_major(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_CONTROL_CONNECTION_STATE_CHANGE,
              LCONFD_TRAP_CONTROL_CONNECTION_TLOC_IP_CHANGE);
}

static void dhcp_major(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_DHCP_ADDRESS_RELEASED, LCONFD_TRAP_DHCP_SERVER_STATE_CHANGE);
}

static void dhcp_minor(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_DHCP_ADDRESS_ASSIGNED, LCONFD_TRAP_DHCP_ADDRESS_RENEWED);
}

static void hardware_major(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_HW_FLASH_FAULT, LCONFD_TRAP_HW_USB_STATE_CHANGE);
}

static void omp_major(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_OMP_NUMBER_OF_KEELSONS_CHANGE, LCONFD_TRAP_OMP_POLICY);
}

static void routing_major(t_map *p_map, bool on)
{
    lconfd_trap_set(p_map, LCONFD_TRAP_BGP_PEER_STATE_CHANGE, on);
    set_range(p_map, on, LCONFD_TRAP_PIM_NEIGHBOR_STATE_CHANGE, LCONFD_TRAP_OSPF_INTERFACE_STATE_CHANGE);
}

static void security_major(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_SECURITY_ROOT_CERT_CHAIN_UNINSTALLED,
              LCONFD_TRAP_SECURITY_KEELSON_ENTRY_REMOVED);
    set_each(p_map, on,
             {LCONFD_TRAP_SECURITY_CERTIFICATE_EXPIRED, LCONFD_TRAP_SECURITY_TOLMEN_REJECT_PYLON_CONNECTION,
              LCONFD_TRAP_SECURITY_DEVICE_TEMPLATE_MISSING,
              LCONFD_TRAP_SECURITY_DEVICE_TEMPLATE_ATTACHED_DURING_ZTP});
}

static void security_minor(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_TUNNEL_IPSEC_REKEY, LCONFD_TRAP_SECURITY_NEW_CSR_GENERATED);
    set_each(p_map, on,
             {LCONFD_TRAP_SECURITY_SERVICE_GRE_STATE_UPDATE,
              LCONFD_TRAP_SECURITY_GANTRY_CONNECTION_PREFERENCE_CHANGED});
}

static void system_critical(t_map *p_map, bool on)
{
    lconfd_trap_set(p_map, LCONFD_TRAP_SYSTEM_REBOOT_ABORTED, on);
}

static void system_major(t_map *p_map, bool on)
{
    set_each(p_map, on,
             {LCONFD_TRAP_SYSTEM_REBOOT_ISSUED, LCONFD_TRAP_SYSTEM_REBOOT_COMPLETE,
              LCONFD_TRAP_PROCESS_RESTART, LCONFD_TRAP_DISK_USAGE, LCONFD_TRAP_MEMORY_USAGE,
              LCONFD_TRAP_AAA_ADMIN_PWD_CHANGE, LCONFD_TRAP_SYSTEM_AAA_LOGIN_FAIL,
              LCONFD_TRAP_SYSTEM_PSEUDO_COMMIT_STATUS, LCONFD_TRAP_CONTROL_PYLON_LIST_REQUEST,
              LCONFD_TRAP_SYSTEM_APP_DPI_FLOW_OUT_OF_MEMORY, LCONFD_TRAP_PROCESS_DOWN});
}

static void system_minor(t_map *p_map, bool on)
{
    lconfd_trap_set(p_map, LCONFD_TRAP_SYSTEM_SOFTWARE_INSTALL_STATUS, on);
    set_range(p_map, on, LCONFD_TRAP_SITE_ID_CHANGE, LCONFD_TRAP_SYSTEM_LOGOUT_CHANGE);
    lconfd_trap_set(p_map, LCONFD_TRAP_SYSTEM_COMMIT, on);
}

// The association notifications of policies and access lists are told where they are bound, at VPNs.
static void vpn_major(t_map *p_map, bool on)
{
    set_each(p_map, on,
             {LCONFD_TRAP_INTERFACE_STATE_CHANGE, LCONFD_TRAP_VRRP_GROUP_STATE_CHANGE,
              LCONFD_TRAP_INTERFACE_PCS_FAULT_DETECTED, LCONFD_TRAP_VPN_IF_BW_UPDATE,
              LCONFD_TRAP_POLICY_DATA_POLICY_ASSOCIATION_STATUS,
              LCONFD_TRAP_POLICY_ACCESS_LIST_ASSOCIATION_STATUS,
              LCONFD_TRAP_VPN_AEROLANE_MAX_LOCAL_EXIT_EXCEEDED, LCONFD_TRAP_VPN_AEROLANE_APPLICATION_CHANGE,
              LCONFD_TRAP_VPN_AEROLANE_SCORE_CHANGE, LCONFD_TRAP_INTERFACE_ADMIN_STATE_CHANGE,
              LCONFD_TRAP_LAST_RESORT_STATE_CHANGE});
}

static void vpn_minor(t_map *p_map, bool on)
{
    set_each(p_map, on,
             {LCONFD_TRAP_ROUTE_INSTALL_FAIL, LCONFD_TRAP_TUNNEL_INSTALL_FAIL, LCONFD_TRAP_VPN_FIB_UPDATE});
}

static void bridge_minor(t_map *p_map, bool on)
{
    set_range(p_map, on, LCONFD_TRAP_BRIDGE_CREATION, LCONFD_TRAP_BRIDGE_MAX_MAC_REACHED);
}

static void policy_major(t_map *p_map, bool on)
{
    set_each(p_map, on,
             {LCONFD_TRAP_POLICY_SLA_VIOLATION_PKT_DROP, LCONFD_TRAP_POLICY_ZBF_FLOW_TABLE_FULL,
              LCONFD_TRAP_POLICY_ZBF_CLEAR_FLOW_TABLE_FULL, LCONFD_TRAP_POLICY_ZBF_HALF_OPEN_LIMIT_HIT,
              LCONFD_TRAP_POLICY_ZBF_CLEAR_HALF_OPEN_HIT, LCOND_TRAP_POLICY_SLA_CONFIG});
}

static void policy_minor(t_map *p_map, bool on)
{
    set_each(p_map, on,
             {LCONFD_TRAP_POLICY_SLA_VIOLATION, LCONFD_TRAP_POLICY_ZBF_FLOW_CREATION,
              LCONFD_TRAP_POLICY_ZBF_FLOW_DELETION, LCONFD_TRAP_POLICY_ZBF_PKT_LOG});
}

static void wwan_major(t_map *p_map, bool on)
{
    lconfd_trap_set(p_map, LCONFD_TRAP_WWAN_SIM_STATE_CHANGE, on);
    set_range(p_map, on, LCONFD_TRAP_WWAN_DOMAIN_STATE_CHANGE, LCONFD_TRAP_WWAN_BEARER_CHANGE);
    lconfd_trap_set(p_map, LCONFD_TRAP_WWAN_QOS_STATE_CHANGE, on);
}

// ---- Of all modules; the rows behind the first ----

static void all_critical(t_map *p_map, bool on)
{
    for (int module = 1; module < LCONFD_NUM_TRAP_SETS; module++)
        if (g_trap_set_table[module].critical_fp != nullptr)
            g_trap_set_table[module].critical_fp(p_map, on);
}

static void all_major(t_map *p_map, bool on)
{
    for (int module = 1; module < LCONFD_NUM_TRAP_SETS; module++)
        if (g_trap_set_table[module].major_fp != nullptr)
            g_trap_set_table[module].major_fp(p_map, on);
}

static void all_minor(t_map *p_map, bool on)
{
    for (int module = 1; module < LCONFD_NUM_TRAP_SETS; module++)
        if (g_trap_set_table[module].minor_fp != nullptr)
            g_trap_set_table[module].minor_fp(p_map, on);
}

// LCONFD_TRAP_SYSTEM_APP_DPI_FLOW_WRITE_FAILED_PYLON belongs to no module: no group gets it.
const t_lconfd_trap_set_map g_trap_set_table[LCONFD_NUM_TRAP_SETS] = {
    {.critical_fp = all_critical, .major_fp = all_major, .minor_fp = all_minor},
    {.critical_fp = nullptr, .major_fp = app_route_major, .minor_fp = nullptr},
    {.critical_fp = nullptr, .major_fp = bfd_major, .minor_fp = nullptr},
    {.critical_fp = control_critical, .major_fp = control_major, .minor_fp = nullptr},
    {.critical_fp = nullptr, .major_fp = dhcp_major, .minor_fp = dhcp_minor},
    {.critical_fp = nullptr, .major_fp = hardware_major, .minor_fp = nullptr},
    {.critical_fp = nullptr, .major_fp = omp_major, .minor_fp = nullptr},
    {.critical_fp = nullptr, .major_fp = routing_major, .minor_fp = nullptr},
    {.critical_fp = nullptr, .major_fp = security_major, .minor_fp = security_minor},
    {.critical_fp = system_critical, .major_fp = system_major, .minor_fp = system_minor},
    {.critical_fp = nullptr, .major_fp = vpn_major, .minor_fp = vpn_minor},
    {.critical_fp = nullptr, .major_fp = nullptr, .minor_fp = bridge_minor},
    {.critical_fp = nullptr, .major_fp = policy_major, .minor_fp = policy_minor},
    {.critical_fp = nullptr, .major_fp = wwan_major, .minor_fp = nullptr},
};

// ---- A group ----

static bool is_module(int module)
{
    return module >= 0 && module < LCONFD_NUM_TRAP_SETS;
}

void lconfd_trap_reset_group(t_lconfd_trap_tag_map *p_map, int module)
{
    if (!is_module(module))
        return;
    const t_lconfd_trap_set_map &sets = g_trap_set_table[module];
    for (auto set : {sets.critical_fp, sets.major_fp, sets.minor_fp})
        if (set != nullptr)
            set(p_map, false);
    lconfd_trap_bitmap_dump(p_map);
}

void lconfd_trap_set_group(t_lconfd_trap_tag_map *p_map, int module, int level)
{
    if (!is_module(module) || level < 0 || level > 2)
        return;
    const t_lconfd_trap_set_map &sets = g_trap_set_table[module];
    void (*const by_level[])(t_lconfd_trap_tag_map *, bool) = {sets.critical_fp, sets.major_fp,
                                                               sets.minor_fp};
    if (by_level[level] != nullptr)
        by_level[level](p_map, true);
}
