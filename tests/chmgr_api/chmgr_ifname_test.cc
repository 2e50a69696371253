#include "chmgr_api/chmgr_api.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

// A box in this process' memory: two modules, three ports in the first, one in the second.
class ChassisNames : public testing::Test {
protected:
    ChassisNames() : block(std::make_unique<t_chassis_info>())
    {
        block->num_modules = 2;
        block->modules[0].num_ports = 3;
        block->modules[1].num_ports = 1;
        for (unsigned int slot = 0; slot < 2; slot++)
            for (unsigned int port = 0; port < block->modules[slot].num_ports; port++)
                name_port(slot, port, port);
        gp_chassis_info = block.get();
    }
    ~ChassisNames() override
    {
        gp_chassis_info = nullptr;
    }

    void name_port(unsigned int slot, unsigned int port, unsigned int number)
    {
        t_port_info *p_named = &block->modules[slot].ports[port];
        snprintf(p_named->user_name, sizeof(p_named->user_name), "ge%u/%u", slot, number);
        snprintf(p_named->kernel_name, sizeof(p_named->kernel_name), "ge%u_%u", slot, number);
    }

    // What the name becomes, with "!" in front where the result is null.
    std::string kernel(const char *user)
    {
        char buf[64] = "untouched";
        const char *p_result = chmgr_user_to_kernel_ifname(user, buf, sizeof(buf), &p_port);
        EXPECT_TRUE(p_result == nullptr || p_result == buf);
        return (p_result == nullptr ? "!" : "") + std::string(buf);
    }

    std::unique_ptr<t_chassis_info> block;
    t_port_info *p_port = nullptr;
};

}  // namespace

TEST_F(ChassisNames, OperatorsNamesBecomeTheKernels)
{
    static constexpr struct {
        const char *user;
        const char *kernel;
    } names[] = {
        {"ge0/1", "ge0_1"},
        {"ge1/0", "ge1_0"},
        {"ge0/2.20", "ge0_2.20"},
        {"ge0/1.007", "!ge0_1.007"},
        {"ge0/1.x", "!ge0_1.x"},
        {"ge0/3", "!ge0/3"},
        {"ge9/0", "!ge9/0"},
        {"ge00/1", "!ge00/1"},
        {"ge0/1x", "!ge0/1x"},
        {"irb7", "irb.7"},
        {"irb64", "!"},
        {"irb", "!"},
        {".20", "!"},
        {"", "!"},
        {"loopback0", "loopback0"},
        {"eth0", "eth0"},
        {"a-name-of-more-than-31-characters-", "a-name-of-more-than-31-characte"},
        {"1234567890123456789012345678901irb", "1234567890123456789012345678901"},
    };
    for (const auto &name : names) {
        EXPECT_EQ(kernel(name.user), name.kernel) << name.user;
        bool is_port = strncmp(name.kernel, "ge", 2) == 0;
        EXPECT_EQ(p_port != nullptr, is_port) << name.user;
    }
}

TEST_F(ChassisNames, PortsAreComparedByName)
{
    name_port(0, 1, 5);
    EXPECT_EQ(kernel("ge0/1"), "!ge0/1");
}

TEST_F(ChassisNames, ManagementPortOfOneChassis)
{
    block->chassis_type = CHASSIS_TYPE_PYLON_A1_R2;
    EXPECT_EQ(kernel("eth0"), "eth0");
    block->has_mgmt_if = 1;
    EXPECT_EQ(kernel("eth0"), "ge0_0");
    EXPECT_EQ(kernel("eth1"), "eth1");
    block->chassis_type = CHASSIS_TYPE_PYLON_A1_R1;
    EXPECT_EQ(kernel("eth0"), "eth0");
}

TEST(ChassisBlock, CountsOfTheWriterDoNotLeadOutOfTheBlock)
{
    auto block = std::make_unique<t_chassis_info>();
    block->num_modules = UINT32_MAX;
    block->modules[4].num_ports = UINT16_MAX;
    gp_chassis_info = block.get();
    char buf[32];
    for (const char *user : {"ge5/0", "ge4/8", "ge4294967295/0"})
        EXPECT_EQ(chmgr_user_to_kernel_ifname(user, buf, sizeof(buf), nullptr), nullptr) << user;
    gp_chassis_info = nullptr;
}
