#include "libcvmx/sim/_cvmx-helper-if.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

// Asks the kernel; p_request's name is filled in here. 0, or -1 with errno.
static int ask(const char *ifname, unsigned long number, ifreq *p_request)
{
    size_t length = strlen(ifname);
    if (length >= sizeof(p_request->ifr_name)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(p_request->ifr_name, ifname, length + 1);
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    int result = ioctl(fd, number, p_request);
    int error = errno;
    close(fd);
    errno = error;
    return result < 0 ? -1 : 0;
}

int if_find(const char *ifname)
{
    ifreq request = {};
    return ask(ifname, SIOCGIFINDEX, &request) == 0 ? request.ifr_ifindex : -1;
}

bool cvmx_ifname_exists(const char *ifname)
{
    return if_find(ifname) >= 0;
}

int if_flags_change(const char *ifname, uint16_t set, uint16_t clear)
{
    ifreq request = {};
    if (ask(ifname, SIOCGIFFLAGS, &request) != 0)
        return -1;
    request.ifr_flags = static_cast<short>((request.ifr_flags & ~clear) | set);
    return ask(ifname, SIOCSIFFLAGS, &request);
}

int if_promiscuous_change(const char *ifname, bool promiscuous)
{
    return if_flags_change(ifname, promiscuous ? IFF_PROMISC : 0, promiscuous ? 0 : IFF_PROMISC);
}

int if_rename(const char *ifname, const char *new_name)
{
    ifreq flags = {};
    ifreq request = {};
    if (strlen(new_name) >= sizeof(request.ifr_newname)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    strcpy(request.ifr_newname, new_name);
    if (ask(ifname, SIOCGIFFLAGS, &flags) != 0 || if_flags_change(ifname, 0, IFF_UP) != 0)
        return -1;
    int result = ask(ifname, SIOCSIFNAME, &request);
    int error = errno;
    if ((flags.ifr_flags & IFF_UP) == 0)
        return result;
    int up = if_flags_change(result == 0 ? new_name : ifname, IFF_UP, 0);
    if (result == 0)
        return up;
    errno = error;
    return -1;
}

int if_addr_get(const char *ifname, uint8_t mac[6])
{
    ifreq request = {};
    if (ask(ifname, SIOCGIFHWADDR, &request) != 0)
        return -1;
    memcpy(mac, request.ifr_hwaddr.sa_data, 6);
    return 0;
}

int if_addr_change(const char *ifname, const uint8_t mac[6])
{
    ifreq request = {};
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    memcpy(request.ifr_hwaddr.sa_data, mac, 6);
    return ask(ifname, SIOCSIFHWADDR, &request);
}

int if_mtu_get(const char *ifname)
{
    ifreq request = {};
    return ask(ifname, SIOCGIFMTU, &request) == 0 ? request.ifr_mtu : -1;
}

int if_mtu_change(const char *ifname, int mtu)
{
    ifreq request = {};
    request.ifr_mtu = mtu;
    return ask(ifname, SIOCSIFMTU, &request);
}

// ---- Offloads ----

namespace {
struct t_offload {
    uint32_t get;
    uint32_t set;
};
}  // namespace

// Segmentation first, since drivers keep transmit checksums on while segmentation needs them.
static const t_offload g_offloads[] = {
    {ETHTOOL_GTSO, ETHTOOL_STSO},
    {ETHTOOL_GGSO, ETHTOOL_SGSO},
    {ETHTOOL_GGRO, ETHTOOL_SGRO},
    {ETHTOOL_GTXCSUM, ETHTOOL_STXCSUM},
};

// Sends one command; data goes in and out.
static int ask_ethtool(const char *ifname, uint32_t command, uint32_t *p_data)
{
    ethtool_value value = {command, *p_data};
    ifreq request = {};
    request.ifr_data = reinterpret_cast<char *>(&value);
    int result = ask(ifname, SIOCETHTOOL, &request);
    *p_data = value.data;
    return result;
}

int if_offload_off(const char *ifname)
{
    if (if_find(ifname) < 0)
        return -1;
    for (const t_offload &offload : g_offloads) {
        uint32_t off = 0;
        uint32_t state = 0;
        // A driver without the feature refuses the order; what counts is what is left on.
        int result = ask_ethtool(ifname, offload.set, &off);
        int error = errno;
        if (ask_ethtool(ifname, offload.get, &state) == 0 && state != 0) {
            errno = result != 0 ? error : EBUSY;
            return -1;
        }
    }
    return 0;
}

int if_ipv6_disable(const char *ifname)
{
    char path[80];
    snprintf(path, sizeof(path), "/proc/sys/net/ipv6/conf/%s/disable_ipv6", ifname);
    int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT ? 0 : -1;
    ssize_t written = write(fd, "1", 1);
    close(fd);
    return written == 1 ? 0 : -1;
}
