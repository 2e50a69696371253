// Tap devices: the host's side of a port.

#include "libcvmx/sim/_cvmx-helper_private.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "libcvmx/sim/_cvmx-helper-if.h"

static constexpr char TUN_PATH[] = "/dev/net/tun";

// A new device behind the descriptor. An existing one would do too, but then it belongs to somebody else.
static int attach(int fd, const char *name)
{
    ifreq request = {};
    snprintf(request.ifr_name, sizeof(request.ifr_name), "%s", name);
    request.ifr_flags = static_cast<short>(IFF_TAP | IFF_NO_PI | IFF_TUN_EXCL);
    return ioctl(fd, TUNSETIFF, &request);
}

// 0, or which step failed.
static int set_up(int fd, const char *name, const uint8_t *p_mac, int mtu, uint16_t flags)
{
    int on = 1;
    if (attach(fd, name) != 0)
        return CVMX_TAP_ATTACH;
    if (ioctl(fd, FIONBIO, &on) != 0)
        return CVMX_TAP_NON_BLOCKING;
    if (p_mac != nullptr && if_addr_change(name, p_mac) != 0)
        return CVMX_TAP_ADDRESS;
    if (if_mtu_change(name, mtu) != 0)
        return CVMX_TAP_MTU;
    return if_flags_change(name, IFF_UP | flags, 0) != 0 ? CVMX_TAP_UP : 0;
}

int cvmx_tap_open(const char *name, const uint8_t *p_mac, int mtu, uint16_t flags)
{
    int fd = open(TUN_PATH, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        perror(TUN_PATH);
        return CVMX_TAP_OPEN;
    }
    int result = set_up(fd, name, p_mac, mtu, flags);
    if (result == 0)
        return fd;
    perror(name);
    close(fd);
    return result;
}
