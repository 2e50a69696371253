#include "libcvmx/sim/_cvmx-helper-util.h"

#include <cstring>

#include "chmgr_api/chmgr_api.h"
#include "libcvmx/sim/_cvmx-helper.h"

static const cvmx_helper_port_t *port_at(int interface, int index)
{
    for (int ipd_port = cvmx_helper_next_port(-1); ipd_port != -1;
         ipd_port = cvmx_helper_next_port(ipd_port)) {
        const cvmx_helper_port_t *p_port = cvmx_helper_port(ipd_port);
        if (p_port->interface == interface && p_port->index == index)
            return p_port;
    }
    return nullptr;
}

int cvmx_helper_get_ipd_port(int interface, int index)
{
    const cvmx_helper_port_t *p_port = port_at(interface, index);
    if (p_port == nullptr || interface == CVMX_HELPER_LOOP_INTERFACE)
        return p_port != nullptr ? p_port->ipd_port : -1;
    return chmgr_get_ipd_port(static_cast<uint32_t>(interface), static_cast<uint32_t>(index));
}

int cvmx_helper_get_pko_port(int interface, int index)
{
    const cvmx_helper_port_t *p_port = port_at(interface, index);
    if (p_port == nullptr || interface == CVMX_HELPER_LOOP_INTERFACE)
        return p_port != nullptr ? p_port->pko_port : -1;
    return chmgr_get_pko_port(static_cast<uint32_t>(interface), static_cast<uint32_t>(index));
}

int cvmx_helper_get_interface_num(int ipd_port)
{
    const cvmx_helper_port_t *p_port = cvmx_helper_port(ipd_port);
    return p_port != nullptr ? p_port->interface : -1;
}

int cvmx_helper_get_interface_index_num(int ipd_port)
{
    const cvmx_helper_port_t *p_port = cvmx_helper_port(ipd_port);
    return p_port != nullptr ? p_port->index : -1;
}

int cvmx_helper_ipd_port_of_ifname(const char *ifname)
{
    for (int ipd_port = cvmx_helper_next_port(-1); ipd_port != -1;
         ipd_port = cvmx_helper_next_port(ipd_port)) {
        const cvmx_helper_port_t *p_port = cvmx_helper_port(ipd_port);
        bool is_wire = p_port->ifname[0] != '\0' && strcmp(p_port->ifname, ifname) == 0;
        if (is_wire || strcmp(p_port->tap_name, ifname) == 0)
            return ipd_port;
    }
    return -1;
}

int cvmx_helper_get_number_of_interfaces()
{
    return CVMX_HELPER_NUM_INTERFACES + 1;
}

int cvmx_helper_ports_on_interface(int interface)
{
    int count = 0;
    for (int ipd_port = cvmx_helper_next_port(-1); ipd_port != -1; ipd_port = cvmx_helper_next_port(ipd_port))
        count += cvmx_helper_port(ipd_port)->interface == interface;
    return count;
}
