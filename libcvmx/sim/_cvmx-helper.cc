#include "libcvmx/sim/_cvmx-helper.h"

#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <unistd.h>

#include "chmgr_api/chmgr_api.h"
#include "libcvmx/sim/_cvmx-helper-if.h"
#include "libcvmx/sim/_cvmx-helper_private.h"
#include "libcvmx/sim/sim_log.h"

static constexpr int LOOP_MTU = 1500;
static constexpr int NO_PORT = -1;
static constexpr uint8_t NO_MAC[6] = {};
static constexpr uint8_t MAC_LOCAL_BIT = 2;

// By input number; a place without a port has ipd_port NO_PORT.
static cvmx_helper_port_t g_ports[CVMX_HELPER_MAX_PORTS];
static int g_ipd_of_pko[CVMX_HELPER_MAX_PORTS];
static bool g_has_table;

static bool is_number(int port)
{
    return port >= 0 && port < CVMX_HELPER_MAX_PORTS;
}

static bool in_table(int port)
{
    return g_has_table && is_number(port);
}

static cvmx_helper_port_t *find_port(int ipd_port)
{
    return in_table(ipd_port) && g_ports[ipd_port].ipd_port != NO_PORT ? &g_ports[ipd_port] : nullptr;
}

static bool is_loop(const cvmx_helper_port_t *p_port)
{
    return p_port->interface == CVMX_HELPER_LOOP_INTERFACE;
}

// ---- The table ----

// The numbers are the chassis manager's, and the other fields come from its block, too.
static bool can_add(const cvmx_helper_port_t &port)
{
    return is_number(port.ipd_port) && is_number(port.pko_port) &&
           g_ports[port.ipd_port].ipd_port == NO_PORT && g_ipd_of_pko[port.pko_port] == NO_PORT &&
           port.tap_name[0] != '\0';
}

static bool add_port(const cvmx_helper_port_t &port)
{
    if (!can_add(port)) {
        cvmx_sim_log("port %s: numbers %d in and %d out are too high or taken, or it has no name\n",
                     port.tap_name, port.ipd_port, port.pko_port);
        return false;
    }
    g_ports[port.ipd_port] = port;
    g_ipd_of_pko[port.pko_port] = port.ipd_port;
    return true;
}

// Copies a name of the block; empty if the kernel would cut it.
template <size_t size>
static void take_name(char (&name)[size], const char *source)
{
    if (strnlen(source, CHMGR_IFNAME_SIZE) < size)
        strcpy(name, source);
}

static cvmx_helper_port_t port_of_block(const t_port_info &info)
{
    cvmx_helper_port_t port = {};
    port.ipd_port = static_cast<int>(info.hw_ipd_port);
    port.pko_port = static_cast<int>(info.hw_pko_port);
    port.interface = static_cast<int>(info.hw_interface_id);
    port.index = static_cast<int>(info.hw_port_index);
    port.port_id = info.port_id.value;
    for (size_t i = 0; i < sizeof(port.mac); i++)
        port.mac[i] = static_cast<uint8_t>(info.default_macaddr >> (40 - 8 * i));
    chmgr_get_sim_ifname(info.port_id, port.ifname, sizeof(port.ifname));
    take_name(port.tap_name, info.kernel_name);
    take_name(port.orig_name, info.orig_ifname);
    port.tap_sock = -1;
    return port;
}

static cvmx_helper_port_t loop_port(int index)
{
    cvmx_helper_port_t port = {};
    port.ipd_port = CVMX_HELPER_LOOP_BASE_PORT + index;
    port.pko_port = port.ipd_port;
    port.interface = CVMX_HELPER_LOOP_INTERFACE;
    port.index = index;
    snprintf(port.tap_name, sizeof(port.tap_name), "loop%d", index);
    port.tap_sock = -1;
    return port;
}

int cvmx_helper_ports_init()
{
    cvmx_helper_ports_close();
    if (chmgr_get_chassis_info() == nullptr)
        return -1;
    for (cvmx_helper_port_t &port : g_ports)
        port.ipd_port = NO_PORT;
    for (int &ipd_port : g_ipd_of_pko)
        ipd_port = NO_PORT;
    int count = 0;
    for (int i = 0; i < CVMX_HELPER_NUM_LOOP_PORTS; i++)
        count += add_port(loop_port(i));
    // The walk follows the ids in the block; one that its writer left half done may lead in a circle.
    uint32_t left = CHMGR_MAX_MODULES * CHMGR_MAX_MODULE_PORTS;
    const t_port_info *p_info = chmgr_get_first_port_info();
    for (; p_info != nullptr && left > 0; p_info = chmgr_get_next_port_info(p_info->port_id), left--)
        if (chmgr_port_allowed(p_info->port_id) && p_info->hw_interface_id < CVMX_HELPER_NUM_INTERFACES)
            count += add_port(port_of_block(*p_info));
    g_has_table = true;
    return count;
}

void cvmx_helper_ports_close()
{
    if (!g_has_table)
        return;
    for (cvmx_helper_port_t &port : g_ports) {
        if (port.ipd_port == NO_PORT)
            continue;
        cvmx_ring_destroy(port.p_ring);
        if (port.tap_sock >= 0)
            close(port.tap_sock);
        port = {};
    }
    g_has_table = false;
}

// ---- The wire's interface ----

static void flip_local_bit(uint8_t mac[6])
{
    mac[0] ^= MAC_LOCAL_BIT;
}

static bool knows_mac(const cvmx_helper_port_t *p_port)
{
    return memcmp(p_port->mac, NO_MAC, sizeof(NO_MAC)) != 0;
}

// The wire's interface that already has its name has given its address to the port: what it has now is the
// flipped one.
static int learn_mac_of_sim(cvmx_helper_port_t *p_port)
{
    if (knows_mac(p_port))
        return 0;
    if (if_addr_get(p_port->ifname, p_port->mac) != 0)
        return -1;
    flip_local_bit(p_port->mac);
    return 0;
}

// Renames the interface that stands for the port under another name and takes over its address.
static int adopt_wire(cvmx_helper_port_t *p_port)
{
    const char *name = p_port->orig_name;
    if (*name == '\0' || !cvmx_ifname_exists(name))
        name = p_port->tap_sock < 0 ? p_port->tap_name : "";  // with a tap the name is the tap's
    if (!cvmx_ifname_exists(name))
        return -1;
    if (!knows_mac(p_port) && if_addr_get(name, p_port->mac) != 0)
        return -1;
    return if_rename(name, p_port->ifname);
}

// The wire must not have the port's address, or the host's stack would take the frames for it, too.
static int leave_address_to_tap(const cvmx_helper_port_t *p_port)
{
    uint8_t mac[6];
    if (if_addr_get(p_port->ifname, mac) != 0)
        return -1;
    if (memcmp(mac, p_port->mac, sizeof(mac)) != 0)
        return 0;
    flip_local_bit(mac);
    return if_addr_change(p_port->ifname, mac);
}

// What the plane can live without is reported and no failure.
static void keep_host_away(const char *ifname)
{
    if (if_flags_change(ifname, IFF_NOARP, 0) != 0)
        perror("IFF_NOARP");
    if (if_ipv6_disable(ifname) != 0)
        perror("disable_ipv6");
    if (if_offload_off(ifname) != 0)
        perror("SIOCETHTOOL");
}

static int prepare_wire(cvmx_helper_port_t *p_port)
{
    int result = cvmx_ifname_exists(p_port->ifname) ? learn_mac_of_sim(p_port) : adopt_wire(p_port);
    if (result != 0 || leave_address_to_tap(p_port) != 0) {
        perror(p_port->ifname);
        return -1;
    }
    keep_host_away(p_port->ifname);
    const t_port_info *p_info = chmgr_get_port_info({.value = p_port->port_id});
    if (p_info == nullptr || chmgr_sim_if_config(p_info) != 0) {
        cvmx_sim_log("interface %s can't be set up\n", p_port->ifname);
        return -1;
    }
    return 0;
}

static int open_ring(cvmx_helper_port_t *p_port)
{
    if (p_port->p_ring != nullptr)
        return cvmx_ring_reopen(p_port->p_ring, p_port->ifname);
    p_port->p_ring = cvmx_ring_create(p_port->ifname);
    return p_port->p_ring != nullptr ? 0 : -1;
}

int cvmx_ring_restart(int ipd_port)
{
    cvmx_helper_port_t *p_port = find_port(ipd_port);
    if (p_port == nullptr || is_loop(p_port))
        return -1;
    bool is_ready =
        prepare_wire(p_port) == 0 && open_ring(p_port) == 0 && cvmx_helper_tap_create(ipd_port) >= 0;
    return is_ready ? 0 : -1;
}

int cvmx_helper_interface_probe(int interface)
{
    if (interface < 0 || interface > CVMX_HELPER_LOOP_INTERFACE)
        return -1;
    int ready = 0;
    int port = cvmx_helper_next_port(-1);
    for (; port != -1; port = cvmx_helper_next_port(port)) {
        if (g_ports[port].interface != interface)
            continue;
        int result = is_loop(&g_ports[port]) ? cvmx_helper_tap_create(port) : cvmx_ring_restart(port);
        ready += result >= 0;
    }
    return ready;
}

// ---- Taps and loop ports ----

static int create_wire_tap(cvmx_helper_port_t *p_port)
{
    int mtu = if_mtu_get(p_port->ifname);
    if (mtu < 0 || learn_mac_of_sim(p_port) != 0) {
        perror(p_port->ifname);
        return CVMX_TAP_NO_WIRE;
    }
    return cvmx_tap_open(p_port->tap_name, p_port->mac, mtu, 0);
}

int cvmx_helper_tap_create(int ipd_port)
{
    cvmx_helper_port_t *p_port = find_port(ipd_port);
    if (p_port == nullptr)
        return CVMX_TAP_NO_PORT;
    if (p_port->tap_sock >= 0)
        return p_port->tap_sock;
    int result = is_loop(p_port) ? cvmx_tap_open(p_port->tap_name, nullptr, LOOP_MTU, IFF_NOARP)
                                 : create_wire_tap(p_port);
    if (result >= 0)
        p_port->tap_sock = result;
    return result;
}

int cvmx_helper_loop_port_create(int index)
{
    if (index < 0 || index >= CVMX_HELPER_NUM_LOOP_PORTS)
        return CVMX_TAP_NO_PORT;
    return cvmx_helper_tap_create(CVMX_HELPER_LOOP_BASE_PORT + index);
}

int cvmx_helper_loop0_cfg()
{
    int result = cvmx_helper_loop_port_create(0);
    if (result >= 0)
        result = cvmx_helper_loop_port_create(1);
    return result >= 0 ? 0 : result;
}

// ---- Looking up ----

const cvmx_helper_port_t *cvmx_helper_port(int ipd_port)
{
    return find_port(ipd_port);
}

const cvmx_helper_port_t *cvmx_helper_port_by_pko(int pko_port)
{
    return in_table(pko_port) ? find_port(g_ipd_of_pko[pko_port]) : nullptr;
}

int cvmx_helper_next_port(int ipd_port)
{
    while (in_table(++ipd_port))
        if (find_port(ipd_port) != nullptr)
            return ipd_port;
    return -1;
}

cvmx_ring_t *cvmx_helper_rx_ring(int ipd_port)
{
    const cvmx_helper_port_t *p_port = find_port(ipd_port);
    return p_port != nullptr ? p_port->p_ring : nullptr;
}

cvmx_ring_t *cvmx_helper_tx_ring(int pko_port)
{
    const cvmx_helper_port_t *p_port = cvmx_helper_port_by_pko(pko_port);
    return p_port != nullptr ? p_port->p_ring : nullptr;
}

int cvmx_helper_tap_sock(int ipd_port)
{
    const cvmx_helper_port_t *p_port = find_port(ipd_port);
    return p_port != nullptr ? p_port->tap_sock : -1;
}

int cvmx_helper_loop_partner(int ipd_port)
{
    const cvmx_helper_port_t *p_port = find_port(ipd_port);
    return p_port != nullptr && is_loop(p_port) ? CVMX_HELPER_LOOP_BASE_PORT + (p_port->index ^ 1) : -1;
}

bool cvmx_port_active(int ipd_port)
{
    const cvmx_helper_port_t *p_port = find_port(ipd_port);
    if (p_port == nullptr)
        return false;
    return is_loop(p_port) ? p_port->tap_sock >= 0 : cvmx_ring_active(p_port->p_ring);
}
