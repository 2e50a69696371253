// Tables by module, and the region that the router shares.

#include <gtest/gtest.h>

#include "tests/lconfd/framework.h"

#include "lab/chmgrd/shared_region.h"
#include "lconfd/lconfd_private.h"

#include <cstring>
#include <fcntl.h>
#include <numeric>
#include <sys/mman.h>
#include <unistd.h>

TEST(ModuleGolden, LogIds)
{
    static constexpr uint8_t first[36] = {8,   184, 184, 184, 184, 184, 184, 184, 184, 184, 184, 184,
                                          184, 184, 184, 184, 184, 184, 0,   184, 184, 184, 184, 184,
                                          184, 184, 184, 184, 184, 184, 184, 8,   8,   8,   0,   0};
    EXPECT_EQ(memcmp(lconfd_lum_module_to_log_id.data(), first, sizeof(first)), 0);
    EXPECT_EQ(std::accumulate(lconfd_lum_module_to_log_id.begin() + sizeof(first),
                              lconfd_lum_module_to_log_id.end(), 0),
              0);
}

TEST(Module, OrderOfFirstReading)
{
    static constexpr struct {
        uint32_t module, priority, bit;
    } cases[] = {{LUM_MODULE_WLAN, 0, 1}, {LUM_MODULE_CFGMGR, 1, 2}, {LUM_MODULE_FTM, 2, 4}};
    for (const auto &c : cases) {
        EXPECT_EQ(lconfd_lum_module_get_initial_read_priority(c.module), c.priority);
        EXPECT_EQ(lconfd_get_initial_read_priority_to_lum_module(c.priority), c.module);
        EXPECT_EQ(lconfd_get_initial_read_priority_to_confd_val(c.priority), c.bit);
    }
    for (uint32_t module : {LUM_MODULE_TARN, LUM_MODULE_UNKNOWN, LUM_MODULE_MAX})
        EXPECT_EQ(lconfd_lum_module_get_initial_read_priority(module), 3u);
    EXPECT_EQ(lconfd_get_initial_read_priority_to_confd_val(3), 0u);
}

static void publish(const std::string &address, const std::string &host_name)
{
    t_shared_region_bytes bytes;
    std::string error;
    ASSERT_TRUE(shared_region_fill(address, host_name, &bytes, &error)) << error;
    ASSERT_TRUE(shared_region_publish(bytes, &error)) << error;
}

TEST(Module, TheSharedRegionIsReadAsItStandsAndRememberedWhenItIsGone)
{
    OWN_SYSTEM_OR_SKIP();
    t_ipaddr address = {};
    lconfd_setup_shm();
    EXPECT_STREQ(lconfd_get_hostname(), "");
    close(shm_open(SHARED_REGION_NAME, O_RDWR | O_CREAT, 0644));
    lconfd_setup_shm();  // its writer has not begun
    EXPECT_STREQ(lconfd_get_hostname(), "");

    publish("10.1.2.3", "branch-7");
    lconfd_setup_shm();
    EXPECT_STREQ(lconfd_get_hostname(), "branch-7");
    lconfd_get_system_ip(&address);
    EXPECT_TRUE(IPADDR_IS_V4(&address));
    EXPECT_EQ(address.u.addr4.s_addr, 0x0a010203u);

    publish("2001:db8::1", std::string(252, 'x'));
    EXPECT_EQ(lconfd_get_hostname(), std::string(252, 'x'));
    lconfd_free_shm();
    lconfd_get_system_ip(&address);
    EXPECT_EQ(address.u.addr4.s_addr, 0x0a010203u) << "as it was read last";
    EXPECT_EQ(lconfd_get_hostname(), std::string(252, 'x'));
}

TEST(SharedRegionGolden, Bytes)
{
    t_shared_region_bytes bytes;
    std::string error;
    ASSERT_TRUE(shared_region_fill("10.1.2.3", "r7", &bytes, &error));
    t_shared_region_bytes golden = {2, 0, 0, 0, 0, 0, 0, 0, 3, 2, 1, 10};
    golden[24] = 'r';
    golden[25] = '7';
    EXPECT_EQ(bytes, golden);
    ASSERT_TRUE(shared_region_fill("2001:db8::1", "", &bytes, &error));
    golden = {10, 0, 0, 0, 0, 0, 0, 0, 0x20, 0x01, 0x0d, 0xb8};
    golden[23] = 1;
    EXPECT_EQ(bytes, golden);
    EXPECT_FALSE(shared_region_fill("10.1", "", &bytes, &error));
    EXPECT_FALSE(shared_region_fill("", std::string(253, 'x'), &bytes, &error));
}
