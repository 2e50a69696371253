// Names of interfaces, the operator's and the kernel's, on the box that the first byte chooses. What is
// translated to a port translates back, and no name leads out of its buffer, whose size the second byte
// tells.
#include "chmgr_api/chmgr_hwapi.h"
#include "lab/chmgrd/chassis_fill.h"

#include <cstdlib>
#include <cstring>
#include <vector>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void choose_box(e_chassis_type type)
{
    static std::unique_ptr<t_chassis_info> boxes[MAX_CHASSIS_TYPES];
    if (boxes[type] == nullptr)
        boxes[type] = chassis_fill({type, "fuzz", {}, 2, "sim"});
    gp_chassis_info = boxes[type].get();
    chmgr_set_hwapi();
}

static void check_both_ways(const char *name)
{
    char kernel[64];
    char user[64];
    t_port_info *p_port = nullptr;
    t_port_info *p_again = nullptr;
    const char *p_result = chmgr_user_to_kernel_ifname(name, kernel, sizeof(kernel), &p_port);
    require(p_result == nullptr || p_result == kernel);
    require(p_port == nullptr || p_result != nullptr);
    if (p_port == nullptr)
        return;
    require(chmgr_kernel_to_user_name(kernel, user, sizeof(user), &p_again) == user);
    require(p_again == p_port && strncmp(user, name, CHMGR_IFNAME_SIZE - 1) == 0);
    uint32_t vlan = 0;
    require(chmgr_vlan_id_from_user_if_name(user, &vlan) == 0);
    require((vlan != 0) <= chmgr_is_sub_interface(user));
}

static void check_buffers(const char *name, size_t len)
{
    std::vector<char> buf(len);
    auto is_terminated = [&] { return memchr(buf.data(), '\0', len) != nullptr; };
    chmgr_user_to_kernel_ifname(name, buf.data(), len, nullptr);
    require(is_terminated());
    chmgr_kernel_to_user_name(name, buf.data(), len, nullptr);
    require(is_terminated());
    chmgr_user_to_kernel_bridge_ifname(name, buf.data(), len);
    require(is_terminated());
    chmgr_kernel_to_user_bridge_name(name, buf.data(), len);
    require(is_terminated());
}

static void check_bridge(const char *name)
{
    char kernel[64];
    if (chmgr_user_to_kernel_bridge_ifname(name, kernel, sizeof(kernel)) == nullptr)
        return;
    int bridge = chmgr_bridge_id_from_user_irb_ifname(name);
    require(bridge < 64 && chmgr_bridge_id_from_kernel_irb_ifname(kernel) == bridge);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    if (size < 2)
        return 0;
    choose_box(static_cast<e_chassis_type>(p_data[0] % MAX_CHASSIS_TYPES));
    std::string name(p_data + 2, p_data + size);
    check_both_ways(name.c_str());
    check_buffers(name.c_str(), p_data[1] % 64u + 1);
    check_bridge(name.c_str());
    return 0;
}
