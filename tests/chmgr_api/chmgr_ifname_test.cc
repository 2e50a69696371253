#include "tests/chmgr_api/filled_box.h"

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
        {"irb64", "!untouched"},
        {"irb", "!untouched"},
        {".20", "!untouched"},
        {"", "!untouched"},
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

// ---- The other direction ----

TEST_F(ChassisNames, KernelsNamesBecomeTheOperators)
{
    name_port(0, 2, 5);
    static constexpr struct {
        const char *kernel;
        const char *user;  // "!" in front: the result is null
        bool is_port;
    } names[] = {
        {"ge0_1", "ge0/1", true},        {"ge0_1.20", "ge0/1.20", true}, {"ge0_1.007", "ge0/1.007", true},
        {"ge0_3", "!ge0_3", false},      {"ge9_0.1", "!ge9_0.1", false}, {"ge0_2", "ge0_2", false},
        {"ge00_1.5", "ge00_1.5", false}, {"irb.7", "irb7", false},       {"irb", "irb", false},
        {"eth0", "eth0", false},         {"", "!untouched", false},      {".20", "!untouched", false},
    };
    for (const auto &name : names) {
        char buf[64] = "untouched";
        const char *p_result = chmgr_kernel_to_user_name(name.kernel, buf, sizeof(buf), &p_port);
        EXPECT_EQ((p_result == nullptr ? "!" : "") + std::string(buf), name.user) << name.kernel;
        EXPECT_EQ(p_port != nullptr, name.is_port) << name.kernel;
    }
}

TEST(ChassisTypes, EveryPortHasItsNamesInBothDirections)
{
    static constexpr int ports[MAX_CHASSIS_TYPES] = {0, 12, 12, 5, 5, 5, 8, 40, 6, 4, 10};
    for (uint32_t type = 0; type < MAX_CHASSIS_TYPES; type++) {
        FilledBox box(static_cast<e_chassis_type>(type));
        int count = 0;
        for (t_port_info *p_port = chmgr_get_first_port_info(); p_port != nullptr;
             p_port = chmgr_get_next_port_info(p_port->port_id)) {
            count++;
            std::string user = p_port->user_name;
            t_port_info *p_found = nullptr;
            char buf[64];
            EXPECT_EQ(chmgr_user_to_kernel_ifname(user.c_str(), buf, sizeof(buf), &p_found), buf)
                << type << user;
            EXPECT_STREQ(buf, p_port->kernel_name) << type;
            bool is_mgmt_port = user == "eth0";
            EXPECT_EQ(p_found, is_mgmt_port ? nullptr : p_port) << type << user;
            std::string vlan = std::string(p_port->kernel_name) + ".7";
            chmgr_kernel_to_user_name(vlan.c_str(), buf, sizeof(buf), &p_found);
            EXPECT_EQ(buf, user + ".7") << type;
            EXPECT_EQ(p_found, p_port) << type << user;
        }
        EXPECT_EQ(count, ports[type]) << type;
    }
}

// ---- Bridges, VLANs, classes ----

TEST(ChassisWords, BridgesVlansAndSubInterfaces)
{
    char buf[32];
    EXPECT_STREQ(chmgr_user_to_kernel_bridge_ifname("irb63", buf, sizeof(buf)), "irb.63");
    EXPECT_EQ(chmgr_user_to_kernel_bridge_ifname("irb64", buf, sizeof(buf)), nullptr);
    EXPECT_EQ(chmgr_user_to_kernel_bridge_ifname("ge0/1", buf, sizeof(buf)), nullptr);
    EXPECT_STREQ(chmgr_kernel_to_user_bridge_name("irb.5", buf, sizeof(buf)), "irb5");
    EXPECT_EQ(chmgr_kernel_to_user_bridge_name("ge0_1", buf, sizeof(buf)), nullptr);
    EXPECT_STREQ(chmgr_get_irb_if_name(9, buf, sizeof(buf)), "irb.9");
    EXPECT_EQ(chmgr_bridge_id_from_user_irb_ifname("irb12"), 12);
    EXPECT_EQ(chmgr_bridge_id_from_user_irb_ifname("irb.12"), 0);
    EXPECT_EQ(chmgr_bridge_id_from_kernel_irb_ifname("irb.12"), 12);
    EXPECT_EQ(chmgr_bridge_id_from_kernel_irb_ifname("ge0_1"), 0);
    static constexpr struct {
        const char *name;
        int result;
        uint32_t vlan;
        bool is_sub;
    } names[] = {
        {"ge0/1.100", 0, 100, true}, {"ge0/1", 0, 0, false},  {"ge0/1.", 0, 0, false},
        {"10ge0/1.5", 0, 0, true},   {"eth0.5", -1, 0, true}, {"", -1, 0, false},
    };
    for (const auto &name : names) {
        uint32_t vlan = 1;
        EXPECT_EQ(chmgr_vlan_id_from_user_if_name(name.name, &vlan), name.result) << name.name;
        EXPECT_EQ(vlan, name.vlan) << name.name;
        EXPECT_EQ(chmgr_is_sub_interface(name.name), name.is_sub) << name.name;
    }
}

TEST(ChassisWords, ClassesGoByTheBeginningButLoopByAnyPlace)
{
    static constexpr bool (*classes[])(const char *) = {
        chmgr_ifname_is_irb,    chmgr_ifname_is_ethernet, chmgr_ifname_is_wlan,     chmgr_ifname_is_wwan,
        chmgr_ifname_is_docker, chmgr_ifname_is_system,   chmgr_ifname_is_cellular, chmgr_ifname_is_loop};
    static constexpr struct {
        const char *name;
        int place;  // of its class above; -1: none
    } names[] = {{"irb3", 0},      {"ge0/1", 1},   {"10ge0/1", 1}, {"vap0", 2},
                 {"wwan0", 3},     {"docker0", 4}, {"system", 5},  {"cellular0", 6},
                 {"loopback0", 7}, {"my-loop", 7}, {"xge0", -1},   {"", -1}};
    for (const auto &name : names)
        for (int place = 0; place < 8; place++)
            EXPECT_EQ(classes[place](name.name), place == name.place) << name.name << place;
}
