#include "libcvmx/sim/_cvmx-helper.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include "chmgr_api/chmgr_api.h"
#include "libcvmx/sim/_cvmx-helper-if.h"
#include "libcvmx/sim/_cvmx-helper-util.h"
#include "tests/libcvmx/own_network.h"

static unsigned long g_failing_ioctl;

extern "C" {
int __real_ioctl(int fd, unsigned long number, void *p_data);

int __wrap_ioctl(int fd, unsigned long number, void *p_data)
{
    if (number != g_failing_ioctl)
        return __real_ioctl(fd, number, p_data);
    errno = EPERM;
    return -1;
}
}

// ---- A box with three ports ----

using t_mac = std::vector<uint8_t>;

static t_mac mac_of(const char *ifname)
{
    t_mac mac(6);
    EXPECT_EQ(if_addr_get(ifname, mac.data()), 0) << ifname;
    return mac;
}

static bool has_flags(const char *ifname, int flags)
{
    ifreq request = {};
    strcpy(request.ifr_name, ifname);
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    __real_ioctl(fd, SIOCGIFFLAGS, &request);
    close(fd);
    return (request.ifr_flags & flags) == flags;
}

static t_port_info &add_port(uint16_t slot, uint16_t number, uint32_t hw_port)
{
    t_module_info &module = gp_chassis_info->modules[slot];
    module.num_ports = static_cast<uint16_t>(number + 1);
    t_port_info &port = module.ports[number];
    port = {};
    port.port_id.slot = static_cast<uint8_t>(slot);
    port.port_id.port = number;
    snprintf(port.user_name, sizeof(port.user_name), "ge%d/%d", slot, number);
    snprintf(port.kernel_name, sizeof(port.kernel_name), "ge%d_%d", slot, number);
    port.hw_interface_id = slot;
    port.hw_port_index = number;
    port.hw_ipd_port = hw_port;
    port.hw_pko_port = hw_port + 1;
    gp_chassis_info->hw_port_to_user_port[slot][number] = port.port_id;
    return port;
}

// Port 0/0 lies on "wire0", which is to be adopted, port 0/1 on an interface that already bears the kernel's
// name, port 1/0 on none.
class HelperPacketPath : public testing::Test {
protected:
    void SetUp() override
    {
        if (!own_network())
            GTEST_SKIP() << "this system allows no namespaces";
        ASSERT_EQ(chmgr_info_get(O_RDWR | O_CREAT), 0);
        gp_chassis_info->chassis_type = CHASSIS_TYPE_PYLON_CLOUD;
        gp_chassis_info->num_modules = 2;
        strcpy(add_port(0, 0, 20).orig_ifname, "wire0");
        add_port(0, 1, 10);
        add_port(1, 0, 30);
        ip_command("link add wire0 type veth peer name host0");
        ip_command("link add ge0_1 type veth peer name host1");
        host_mac = mac_of("wire0");
        EXPECT_EQ(cvmx_helper_ports_init(), 3 + CVMX_HELPER_NUM_LOOP_PORTS);
    }
    void TearDown() override
    {
        g_failing_ioctl = 0;
        cvmx_helper_ports_close();
        for (const char *name : {"host0", "host1"})
            if (cvmx_ifname_exists(name))
                ip_command(std::string("link del ") + name);
        if (gp_chassis_info != nullptr) {
            munmap(gp_chassis_info, sizeof(*gp_chassis_info));
            gp_chassis_info = nullptr;
            shm_unlink(CHMGR_BLOCK_NAME);
        }
    }
    t_mac host_mac;
    t_frame frame = t_frame(100, 0x42);
};

TEST_F(HelperPacketPath, NumbersAndPlacesOfPortsMapBothWays)
{
    static const struct {
        int interface, index, ipd_port, pko_port, partner;
        const char *ifname;
    } rows[] = {
        {0, 0, 20, 21, -1, "sim0_0"},    {0, 1, 10, 11, -1, "ge0_1"},     {1, 0, 30, 31, -1, "ge1_0"},
        {10, 0, 240, 240, 241, "loop0"}, {10, 1, 241, 241, 240, "loop1"}, {10, 2, 242, 242, 243, "loop2"},
        {10, 3, 243, 243, 242, "loop3"}, {-1, -1, -1, -1, -1, "sim1_1"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.ifname);
        EXPECT_EQ(cvmx_helper_get_ipd_port(row.interface, row.index), row.ipd_port);
        EXPECT_EQ(cvmx_helper_get_pko_port(row.interface, row.index), row.pko_port);
        EXPECT_EQ(cvmx_helper_get_interface_num(row.ipd_port), row.interface);
        EXPECT_EQ(cvmx_helper_get_interface_index_num(row.ipd_port), row.index);
        EXPECT_EQ(cvmx_helper_ipd_port_of_ifname(row.ifname), row.ipd_port);
        EXPECT_EQ(cvmx_helper_port_by_pko(row.pko_port), cvmx_helper_port(row.ipd_port));
        EXPECT_EQ(cvmx_helper_loop_partner(row.ipd_port), row.partner);
    }
    EXPECT_EQ(cvmx_helper_get_ipd_port(1, 1), -1);
    EXPECT_EQ(cvmx_helper_next_port(-1), 10);
    EXPECT_EQ(cvmx_helper_next_port(30), 240);
    EXPECT_EQ(cvmx_helper_next_port(243), -1);
    EXPECT_EQ(cvmx_helper_ports_on_interface(0), 2);
}

TEST_F(HelperPacketPath, PortsWhoseNumbersCannotBeAreLeftOut)
{
    add_port(1, 1, 20);   // taken
    add_port(1, 2, 240);  // a loop port's
    add_port(1, 3, 255);  // the output number is too high
    add_port(1, 4, 50).hw_interface_id = CVMX_HELPER_NUM_INTERFACES;
    strcpy(add_port(1, 5, 60).kernel_name, "a_name_too_long_");
    EXPECT_EQ(cvmx_helper_ports_init(), 3 + CVMX_HELPER_NUM_LOOP_PORTS);
}

TEST_F(HelperPacketPath, ProbedPortsCarryFramesOfWireAndHost)
{
    EXPECT_EQ(cvmx_helper_interface_probe(0), 2);
    EXPECT_EQ(cvmx_helper_interface_probe(1), 0);
    EXPECT_EQ(cvmx_helper_interface_probe(11), -1);
    EXPECT_TRUE(cvmx_port_active(10) && cvmx_port_active(20) && !cvmx_port_active(30));
    EXPECT_FALSE(cvmx_ifname_exists("wire0"));
    EXPECT_TRUE(has_flags("sim0_0", IFF_UP | IFF_NOARP | IFF_PROMISC));
    EXPECT_EQ(mac_of("ge0_0"), host_mac);
    host_mac[0] ^= 2;
    EXPECT_EQ(mac_of("sim0_0"), host_mac);

    cvmx_ring_t *p_wire = cvmx_ring_create("host0");
    send_frame(p_wire, frame);
    EXPECT_EQ(pull_frames(cvmx_helper_rx_ring(20), 1), t_frames{frame});
    send_frame(cvmx_helper_tx_ring(21), frame);
    EXPECT_EQ(pull_frames(p_wire, 1), t_frames{frame});
    cvmx_ring_destroy(p_wire);

    int tap = cvmx_helper_tap_sock(20);
    uint8_t buf[2048];
    EXPECT_EQ(read(tap, buf, sizeof(buf)), -1);
    EXPECT_EQ(errno, EAGAIN);
    cvmx_ring_t *p_host = cvmx_ring_create("ge0_0");
    EXPECT_EQ(write(tap, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    EXPECT_EQ(pull_frames(p_host, 1), t_frames{frame});
    send_frame(p_host, frame);
    ASSERT_TRUE(wait_readable(tap));
    ssize_t size = read(tap, buf, sizeof(buf));
    EXPECT_EQ(t_frame(buf, buf + std::max<ssize_t>(size, 0)), frame);
    cvmx_ring_destroy(p_host);
}

TEST_F(HelperPacketPath, HostAnswersThroughTheTapAndNotOnTheWire)
{
    ASSERT_EQ(cvmx_helper_interface_probe(0), 2);
    ip_command("addr add 10.9.0.1/24 dev ge0_0");
    // Who has 10.9.0.1? Tell 10.9.0.2.
    const t_frame question = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0,  2, 8, 6,
                              0,    1,    8,    0,    6,    4,    0, 1, 2, 0, 0,  0, 0, 2,
                              10,   9,    0,    2,    0,    0,    0, 0, 0, 0, 10, 9, 0, 1};
    cvmx_ring_t *p_wire = cvmx_ring_create("host0");
    send_frame(p_wire, question);
    EXPECT_EQ(pull_frames(cvmx_helper_rx_ring(20), 1), t_frames{question});
    int tap = cvmx_helper_tap_sock(20);
    EXPECT_EQ(write(tap, question.data(), question.size()), static_cast<ssize_t>(question.size()));
    uint8_t buf[2048];
    ASSERT_TRUE(wait_readable(tap));
    ASSERT_GE(read(tap, buf, sizeof(buf)), 42);
    EXPECT_EQ(t_mac(buf + 22, buf + 28), host_mac);
    // Asked again when the stack could answer: it has noticed the carrier.
    for (int i = 0; i < 200 && !has_flags("sim0_0", IFF_RUNNING); i++)
        usleep(10000);
    send_frame(p_wire, question);
    EXPECT_FALSE(wait_readable(cvmx_ring_sock(p_wire), 200));
    cvmx_ring_destroy(p_wire);
}

TEST_F(HelperPacketPath, NextProcessFindsTheRenamedInterfacesAndTheSameAddress)
{
    EXPECT_EQ(cvmx_helper_interface_probe(0), 2);
    EXPECT_EQ(cvmx_helper_ports_init(), 3 + CVMX_HELPER_NUM_LOOP_PORTS);
    EXPECT_FALSE(cvmx_ifname_exists("ge0_0"));
    EXPECT_EQ(cvmx_helper_interface_probe(0), 2);
    EXPECT_EQ(mac_of("ge0_0"), host_mac);
    cvmx_helper_ports_close();
    // With an address in the block that one is the port's, and the wire's differs anyway.
    gp_chassis_info->modules[0].ports[0].default_macaddr = 0x020102030405;
    EXPECT_EQ(cvmx_helper_ports_init(), 3 + CVMX_HELPER_NUM_LOOP_PORTS);
    EXPECT_EQ(cvmx_helper_interface_probe(0), 2);
    EXPECT_EQ(mac_of("ge0_0"), (t_mac{2, 1, 2, 3, 4, 5}));
}

TEST_F(HelperPacketPath, PortWhoseInterfaceWentAwayIsRestartedInPlace)
{
    EXPECT_EQ(cvmx_helper_interface_probe(0), 2);
    cvmx_ring_t *p_ring = cvmx_helper_rx_ring(20);
    int tap = cvmx_helper_tap_sock(20);
    ip_command("link del host0");
    EXPECT_TRUE(pull_frames(p_ring, 1).empty());
    EXPECT_FALSE(cvmx_port_active(20));
    EXPECT_EQ(cvmx_ring_restart(20), -1);
    ip_command("link add wire0 type veth peer name host0");
    EXPECT_EQ(cvmx_ring_restart(20), 0);
    EXPECT_TRUE(cvmx_port_active(20));
    EXPECT_EQ(cvmx_helper_rx_ring(20), p_ring);
    EXPECT_EQ(cvmx_helper_tap_sock(20), tap);
    cvmx_ring_t *p_wire = cvmx_ring_create("host0");
    send_frame(p_wire, frame);
    EXPECT_EQ(pull_frames(p_ring, 1), t_frames{frame});
    cvmx_ring_destroy(p_wire);
    EXPECT_EQ(cvmx_ring_restart(99), -1);
    EXPECT_EQ(cvmx_ring_restart(CVMX_HELPER_LOOP_BASE_PORT), -1);
}

TEST_F(HelperPacketPath, LoopPortsGetTheirTapsWhenAsked)
{
    EXPECT_EQ(cvmx_helper_loop0_cfg(), 0);
    EXPECT_TRUE(has_flags("loop0", IFF_UP | IFF_NOARP));
    EXPECT_TRUE(cvmx_port_active(241));
    EXPECT_FALSE(cvmx_port_active(242));
    EXPECT_EQ(cvmx_helper_loop_port_create(4), CVMX_TAP_NO_PORT);
    EXPECT_EQ(cvmx_helper_interface_probe(CVMX_HELPER_LOOP_INTERFACE), 4);
    EXPECT_TRUE(cvmx_ifname_exists("loop3"));
}

static size_t open_descriptors()
{
    std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

TEST_F(HelperPacketPath, FailingStepOfATapIsToldAndLeavesNothing)
{
    static const std::pair<unsigned long, int> rows[] = {
        {SIOCGIFMTU, CVMX_TAP_NO_WIRE},    {TUNSETIFF, CVMX_TAP_ATTACH}, {FIONBIO, CVMX_TAP_NON_BLOCKING},
        {SIOCSIFHWADDR, CVMX_TAP_ADDRESS}, {SIOCSIFMTU, CVMX_TAP_MTU},   {SIOCSIFFLAGS, CVMX_TAP_UP},
    };
    ASSERT_EQ(if_rename("wire0", "sim0_0"), 0);
    size_t descriptors = open_descriptors();
    EXPECT_EQ(cvmx_helper_tap_create(99), CVMX_TAP_NO_PORT);
    for (auto [number, want] : rows) {
        g_failing_ioctl = number;
        EXPECT_EQ(cvmx_helper_tap_create(20), want);
        g_failing_ioctl = 0;
        EXPECT_EQ(cvmx_helper_tap_sock(20), -1);
        EXPECT_EQ(open_descriptors(), descriptors) << want;
        EXPECT_FALSE(cvmx_ifname_exists("ge0_0")) << want;
    }
    ASSERT_EQ(mount("none", "/dev/net", "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(cvmx_helper_tap_create(20), CVMX_TAP_OPEN);
    ASSERT_EQ(umount("/dev/net"), 0);
    ip_command("link add ge0_0 type veth peer name other");
    EXPECT_EQ(cvmx_helper_tap_create(20), CVMX_TAP_ATTACH);
    ip_command("link del ge0_0");
    int fd = cvmx_helper_tap_create(20);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(cvmx_helper_tap_create(20), fd);
}
