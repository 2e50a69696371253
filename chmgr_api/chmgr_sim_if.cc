#include "chmgr_api/chmgr_api.h"

#include "common/lum_util_text.h"

#include <cerrno>
#include <cstring>
#include <linux/ipv6.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// A socket to ask the kernel with.
struct t_kernel {
    explicit t_kernel(int family) : fd(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    ~t_kernel()
    {
        if (fd >= 0)
            close(fd);
    }
    t_kernel(const t_kernel &) = delete;
    t_kernel &operator=(const t_kernel &) = delete;

    // 0 or the negative errno number.
    int ask(unsigned long request, void *p_argument) const
    {
        return fd >= 0 && ioctl(fd, request, p_argument) == 0 ? 0 : -errno;
    }

    int fd;
};

}  // namespace

// A request about the physical interface below the kernel's name. 0, or -EINVAL for another form of name.
static int name_request(const char *kernel_name, struct ifreq *p_request)
{
    *p_request = {};
    char name[CHMGR_IFNAME_SIZE];
    if (lum_util_ifname_to_sim_ifname(kernel_name, name, sizeof(name)) == nullptr || strlen(name) >= IFNAMSIZ)
        return -EINVAL;
    memcpy(p_request->ifr_name, name, strlen(name));
    return 0;
}

static int change_flags(struct ifreq *p_request, int set, int cleared)
{
    t_kernel kernel(AF_INET);
    int status = kernel.ask(SIOCGIFFLAGS, p_request);
    if (status != 0)
        return status;
    p_request->ifr_flags = static_cast<short>((p_request->ifr_flags | set) & ~cleared);
    return kernel.ask(SIOCSIFFLAGS, p_request);
}

int chmgr_sim_if_config(const t_port_info *p_port)
{
    struct ifreq request = {};
    chmgr_get_sim_ifname(p_port->port_id, request.ifr_name, sizeof(request.ifr_name));
    return change_flags(&request, IFF_UP | IFF_RUNNING | IFF_PROMISC, 0);
}

int chmgr_set_simif_promisc_mode(const char *kernel_name, bool is_promiscuous)
{
    struct ifreq request;
    int status = name_request(kernel_name, &request);
    if (status != 0)
        return status;
    return change_flags(&request, is_promiscuous ? IFF_PROMISC : 0, is_promiscuous ? 0 : IFF_PROMISC);
}

int chmgr_sim_if_maddr_add(const char *kernel_name, const uint8_t macaddr[6])
{
    struct ifreq request;
    int status = name_request(kernel_name, &request);
    if (status != 0)
        return status;
    memcpy(request.ifr_hwaddr.sa_data, macaddr, 6);
    return t_kernel(AF_INET).ask(SIOCADDMULTI, &request);
}

// ---- Addresses ----

static int set_v4(struct ifreq *p_request, const t_ipprefix *p_prefix)
{
    t_kernel kernel(AF_INET);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(p_prefix->addr.u.addr4.s_addr);
    memcpy(&p_request->ifr_addr, &address, sizeof(address));
    int status = kernel.ask(SIOCSIFADDR, p_request);
    if (status != 0)
        return status;
    address.sin_addr.s_addr = p_prefix->prefixlen == 0 ? 0 : htonl(~0u << (32 - p_prefix->prefixlen));
    memcpy(&p_request->ifr_netmask, &address, sizeof(address));
    return kernel.ask(SIOCSIFNETMASK, p_request);
}

static int add_v6(struct ifreq *p_request, const t_ipprefix *p_prefix)
{
    t_kernel kernel(AF_INET6);
    int status = kernel.ask(SIOCGIFINDEX, p_request);
    if (status != 0)
        return status;
    struct in6_ifreq address = {};
    memcpy(&address.ifr6_addr, p_prefix->addr.u.addr6_b, sizeof(address.ifr6_addr));
    address.ifr6_prefixlen = p_prefix->prefixlen;
    address.ifr6_ifindex = p_request->ifr_ifindex;
    return kernel.ask(SIOCSIFADDR, &address);
}

int chmgr_sim_ifaddr_set(const char *kernel_name, const t_ipprefix *p_prefix)
{
    struct ifreq request;
    int status = name_request(kernel_name, &request);
    if (status != 0)
        return status;
    if (IPPREFIX_IS_V4(p_prefix) && p_prefix->prefixlen <= 32)
        return set_v4(&request, p_prefix);
    return IPPREFIX_IS_V6(p_prefix) ? add_v6(&request, p_prefix) : -EINVAL;
}
