// Texts of addresses, prefixes, colors and the other names. What parses prints and parses again to the same
// value, and the functions on prefixes agree with each other.
#include "common/ip_util.h"
#include "common/lum_util.h"

#include <cstdlib>
#include <string>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void check_text(const t_ipaddr &addr)
{
    char text[IP_ADDR_TEXT_SIZE];
    ipaddr_print(&addr, text, sizeof(text));
    t_ipaddr again = addr;
    require(ipaddr_str_to_ip(&again, text) == 1 && IPADDR_CMP(&again, &addr) == 0);
    char cut[7];
    require(strlen(ipaddr_print(&addr, cut, sizeof(cut))) < sizeof(cut));
}

static void check_prefix(const t_ipprefix &prefix)
{
    t_ipprefix subnet = {};
    ip_prefix_to_subnet(&prefix, &subnet, 0);
    require(ipprefix_is_valid(&subnet));
    require(ipprefix_is_contained(&prefix, &subnet) && ipprefix_is_contained(&subnet, &subnet));
    require(ipprefix_is_valid_natpool_interface(&subnet));
    bool is_pool = ipprefix_is_valid(&prefix) && IPADDR_CMP(&subnet.addr, &prefix.addr) == 0;
    require(ipprefix_is_valid_natpool_interface(&prefix) || !is_pool);
    t_ipaddr mask = prefix.addr;
    ip_prefixlen_to_mask(subnet.prefixlen, &mask);
    require(ipaddr_mask_to_len(&mask) == subnet.prefixlen);
    t_ipaddr masked = prefix.addr;
    ipaddr_mask_apply(&masked, &mask);
    require(IPADDR_CMP(&masked, &subnet.addr) == 0);
}

static void check_classes(const t_ipaddr &addr)
{
    require(!ipaddr_is_unicast(&addr) || ipaddr_is_unicast_relaxed_low_byte_check(&addr));
    require(!ipaddr_is_unicast(&addr) || !(ipaddr_is_multicast(&addr) || IPADDR_IS_ZERO(&addr)));
    t_ipaddr carrier = addr;
    uint32_t ifindex = 0;
    ipaddr_link_local_embed_ifindex(&carrier, 0x01020304);
    ipaddr_link_local_extract_ifindex(&carrier, &ifindex, &carrier);
    require((ifindex == 0x01020304) == ipaddr_is_link_local(&addr));
}

static void check_names(const std::string &text)
{
    uint32_t color = lum_util_color_str2enum(text.c_str());
    std::string name = lum_util_tloc_color_name(color);
    require(lum_util_color_str2enum(name.c_str()) == color);
    require(color == LUM_TLOC_COLOR_INVALID || text.front() == name.front());
    uint32_t encap = lum_util_encap_str2enum(text.c_str());
    require(encap == LUM_TLOC_ENCAP_INVALID || text.starts_with(lum_util_tloc_encap_name(encap)));
    require(lum_util_svc_name_to_id(text.c_str()) < VPN_SVC_MAX);
    require(lum_util_module_name_to_id(text.c_str()) < LUM_MODULE_MAX);
    require(lum_util_rtmsg_app_name_to_id(text.c_str()) < LUM_RTMSG_APP_MAX);
    uint8_t mac[6];
    if (str_to_macaddr(text.c_str(), mac) == nullptr)
        return;
    char printed[18];
    uint8_t again[6];
    require(str_to_macaddr(macaddr_print(mac, printed, sizeof(printed)), again) != nullptr);
    require(memcmp(mac, again, sizeof(mac)) == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::string text(p_data, p_data + size);
    check_names(text);
    size_t slash = text.find('/');
    t_ipprefix prefix = {};
    if (str_to_ip(text.substr(0, slash).c_str(), &prefix.addr) == 0) {
        require(prefix.addr.addr_type == IP_ADDR_UNKNOWN);
        return 0;
    }
    if (slash != std::string::npos)
        prefix.prefixlen = static_cast<uint8_t>(atoi(text.c_str() + slash + 1));
    check_text(prefix.addr);
    check_classes(prefix.addr);
    check_prefix(prefix);
    return 0;
}
