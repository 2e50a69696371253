#include "chmgr_api/chmgr_api.h"
#include "common/lum_util_text.h"
#include "tests/common/own_root.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sstream>
#include <sys/ioctl.h>

TEST(SimInterfaces, NamesOfTheInterfacesBelow)
{
    static constexpr struct {
        const char *kernel;
        const char *sim;  // null: none
    } names[] = {
        {"ge0_1", "sim0_1"}, {"ge2_10.20", "sim2_10.20"}, {"ge0", nullptr},
        {"ge0/1", nullptr},  {"eth0", nullptr},
    };
    for (const auto &name : names) {
        char buf[32];
        EXPECT_STREQ(lum_util_ifname_to_sim_ifname(name.kernel, buf, sizeof(buf)), name.sim) << name.kernel;
    }
}

static std::string file_text(const std::string &path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// A device "sim0_1" that lives as long as the descriptor.
static void make_device()
{
    int fd = open("/dev/net/tun", O_RDWR);
    struct ifreq request = {};
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    strcpy(request.ifr_name, "sim0_1");
    ASSERT_EQ(ioctl(fd, TUNSETIFF, &request), 0) << strerror(errno);
}

static short flags()
{
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    struct ifreq request = {};
    strcpy(request.ifr_name, "sim0_1");
    EXPECT_EQ(ioctl(fd, SIOCGIFFLAGS, &request), 0);
    close(fd);
    return request.ifr_flags;
}

static void set_up_and_look()
{
    t_port_info port = {};
    port.port_id = {{0, 0, 1}};
    EXPECT_EQ(chmgr_sim_if_config(&port), -ENODEV);
    make_device();
    EXPECT_EQ(chmgr_sim_if_config(&port), 0);
    EXPECT_EQ(flags() & (IFF_UP | IFF_PROMISC), IFF_UP | IFF_PROMISC);
    EXPECT_EQ(chmgr_set_simif_promisc_mode("ge0_1", false), 0);
    EXPECT_EQ(flags() & (IFF_UP | IFF_PROMISC), IFF_UP);
    EXPECT_EQ(chmgr_set_simif_promisc_mode("eth0", true), -EINVAL);

    const uint8_t group[6] = {0x01, 0x00, 0x5e, 0x01, 0x02, 0x03};
    EXPECT_EQ(chmgr_sim_if_maddr_add("ge0_1", group), 0);
    EXPECT_NE(file_text("/proc/net/dev_mcast").find("01005e010203"), std::string::npos);

    t_ipprefix prefix = {};
    prefix.prefixlen = 20;
    IPADDR_SET_V4(&prefix.addr, 0x0a010203);
    EXPECT_EQ(chmgr_sim_ifaddr_set("ge0_1", &prefix), 0);
    EXPECT_NE(file_text("/proc/net/fib_trie").find("10.1.2.3"), std::string::npos);
    EXPECT_NE(file_text("/proc/net/route").find("sim0_1\t0000010A\t00000000\t0001\t0\t0\t0\t00F0FFFF"),
              std::string::npos);
    uint8_t address[16] = {0x20, 0x01, 0x0d, 0xb8};
    IPADDR_SET_V6(&prefix.addr, address);
    EXPECT_EQ(chmgr_sim_ifaddr_set("ge0_1", &prefix), 0);
    EXPECT_NE(file_text("/proc/net/if_inet6").find("20010db8000000000000000000000000"), std::string::npos);
    EXPECT_EQ(chmgr_sim_ifaddr_set("ge0_2", &prefix), -ENODEV);
}

TEST(SimInterfaces, AreSetUpInTheCallersNamespace)
{
    in_own_root(set_up_and_look);
}
