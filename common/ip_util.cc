#include "common/ip_util.h"

#include <algorithm>

// ---- Classes of addresses ----

static bool v6_begins(const t_ipaddr *p_addr, uint8_t first, uint8_t mask)
{
    return IPADDR_IS_V6(p_addr) && (p_addr->u.addr6_b[0] & mask) == first;
}

static uint32_t v4_first_byte(const t_ipaddr *p_addr)
{
    return p_addr->u.addr4.s_addr >> 24;
}

bool ipaddr_is_link_local(const t_ipaddr *p_addr)
{
    return v6_begins(p_addr, 0xfe, 0xff) && p_addr->u.addr6_b[1] == 0x80;
}

bool ipaddr_is_site_local(const t_ipaddr *p_addr)
{
    return v6_begins(p_addr, 0xfe, 0xff) && (p_addr->u.addr6_b[1] & 0xc0) == 0xc0;
}

bool ipaddr_is_unique_local(const t_ipaddr *p_addr)
{
    return v6_begins(p_addr, 0xfc, 0xfe);
}

bool ipaddr_is_multicast(const t_ipaddr *p_addr)
{
    if (IPADDR_IS_V4(p_addr))
        return v4_first_byte(p_addr) >> 4 == 14;
    return v6_begins(p_addr, 0xff, 0xff);
}

bool ipaddr_is_loopback(const t_ipaddr *p_addr)
{
    if (IPADDR_IS_V4(p_addr))
        return v4_first_byte(p_addr) == 127;
    if (!IPADDR_IS_V6(p_addr))
        return false;
    const uint8_t *p_last = p_addr->u.addr6_b + 15;
    return *p_last <= 1 && std::all_of(p_addr->u.addr6_b, p_last, [](uint8_t byte) { return byte == 0; });
}

bool ipaddr_is_unicast_relaxed_low_byte_check(const t_ipaddr *p_addr)
{
    if (IPADDR_IS_V4(p_addr))
        return ipnexthop_is_unicast(p_addr) && (p_addr->u.addr4.s_addr & 255) != 255;
    if (IPADDR_IS_V6(p_addr))
        return !ipaddr_is_link_local(p_addr) && !ipaddr_is_multicast(p_addr) && !IPADDR_IS_ZERO(p_addr);
    return true;
}

bool ipaddr_is_unicast(const t_ipaddr *p_addr)
{
    if (IPADDR_IS_V4(p_addr) && (p_addr->u.addr4.s_addr & 255) == 0)
        return false;
    return ipaddr_is_unicast_relaxed_low_byte_check(p_addr);
}

bool ipnexthop_is_unicast(const t_ipaddr *p_addr)
{
    if (!IPADDR_IS_V4(p_addr))
        return true;
    uint32_t first = v4_first_byte(p_addr);
    return first != 0 && first != 127 && first < 224;
}

void ipaddr_link_local_embed_ifindex(t_ipaddr *p_addr, uint32_t ifindex)
{
    if (ipaddr_is_link_local(p_addr))
        p_addr->u.addr32_b[1] = htonl(ifindex);
}

void ipaddr_link_local_extract_ifindex(const t_ipaddr *p_addr, uint32_t *p_ifindex, t_ipaddr *p_clean)
{
    bool has_index = ipaddr_is_link_local(p_addr);
    if (p_ifindex != nullptr)
        *p_ifindex = has_index ? ntohl(p_addr->u.addr32_b[1]) : 0;
    if (p_clean == nullptr)
        return;
    IPADDR_COPY(p_clean, p_addr);
    if (has_index)
        p_clean->u.addr32_b[1] = 0;
}

// ---- Masks ----

#define BITS_2(n) n, n + 1, n + 1, n + 2
#define BITS_4(n) BITS_2(n), BITS_2(n + 1), BITS_2(n + 1), BITS_2(n + 2)
#define BITS_6(n) BITS_4(n), BITS_4(n + 1), BITS_4(n + 1), BITS_4(n + 2)

const uint8_t ip_util_bit_mask_to_len[256] = {BITS_6(0), BITS_6(1), BITS_6(1), BITS_6(2)};

// Bytes of an address's value: 0 for an unknown family.
static size_t value_size(const t_ipaddr *p_addr)
{
    if (IPADDR_IS_V4(p_addr))
        return 4;
    return IPADDR_IS_V6(p_addr) ? 16 : 0;
}

int ipaddr_mask_to_len(const t_ipaddr *p_mask)
{
    int count = 0;
    for (size_t i = 0; i < value_size(p_mask); i++)
        count += ip_util_bit_mask_to_len[p_mask->u.addr6_b[i]];
    return count;
}

uint8_t ip_byte_len_to_val(uint32_t len)
{
    return static_cast<uint8_t>(0xff00 >> std::min(len, 8u));
}

void ip_prefixlen_to_mask(uint32_t len, t_ipaddr *p_mask)
{
    if (IPADDR_IS_V6(p_mask))
        ipv6_prefixlen_to_mask(len, p_mask);
    else
        IPADDR_SET_V4(p_mask, len == 0 ? 0 : IPV4_PREFIXLEN_TO_VAL(std::min(len, 32u)));
}

void ipv6_prefixlen_to_mask(uint32_t len, t_ipaddr *p_mask)
{
    p_mask->addr_type = IP_ADDR_V6;
    for (uint32_t i = 0; i < 16; i++)
        p_mask->u.addr6_b[i] = ip_byte_len_to_val(len > 8 * i ? len - 8 * i : 0);
}

void ipv4_prefixlen_to_val(uint32_t len, t_ipaddr *p_mask)
{
    ipv6_prefixlen_to_mask(len, p_mask);
}

void ipaddr_mask_invert(t_ipaddr *p_mask)
{
    for (size_t i = 0; i < value_size(p_mask); i++)
        p_mask->u.addr6_b[i] = static_cast<uint8_t>(~p_mask->u.addr6_b[i]);
}

void ipaddr_mask_apply(t_ipaddr *p_addr, const t_ipaddr *p_mask)
{
    if (p_addr->addr_type != p_mask->addr_type)
        return;
    for (size_t i = 0; i < value_size(p_addr); i++)
        p_addr->u.addr6_b[i] &= p_mask->u.addr6_b[i];
}

// ---- Prefixes ----

static uint32_t family_bits(const t_ipprefix *p_prefix)
{
    return static_cast<uint32_t>(8 * value_size(&p_prefix->addr));
}

// What stands behind the prefix's length. Of an empty host part both are true.
struct t_host_part {
    bool is_zero;
    bool is_ones;
};

static t_host_part host_part(const t_ipprefix *p_prefix)
{
    t_ipaddr mask = {p_prefix->addr.addr_type, {}};
    ip_prefixlen_to_mask(p_prefix->prefixlen, &mask);
    ipaddr_mask_invert(&mask);
    t_ipaddr host = p_prefix->addr;
    ipaddr_mask_apply(&host, &mask);
    return {IPADDR_IS_ZERO(&host), IPADDR_CMP(&host, &mask) == 0};
}

bool ipprefix_is_valid(const t_ipprefix *p_prefix)
{
    uint32_t bits = family_bits(p_prefix);
    return bits != 0 && p_prefix->prefixlen <= bits;
}

bool ipprefix_is_valid_interface(const t_ipprefix *p_prefix)
{
    if (!ipprefix_is_valid(p_prefix) || p_prefix->prefixlen + 1u >= family_bits(p_prefix))
        return true;
    t_host_part host = host_part(p_prefix);
    return !host.is_zero && !host.is_ones;
}

bool ipprefix_is_valid_v4_interface(const t_ipprefix *p_prefix)
{
    return !IPPREFIX_IS_V4(p_prefix) || ipprefix_is_valid_interface(p_prefix);
}

bool ipprefix_is_valid_natpool_interface(const t_ipprefix *p_prefix)
{
    if (!ipprefix_is_valid(p_prefix))
        return false;
    return p_prefix->prefixlen == 32 || host_part(p_prefix).is_zero;
}

void ip_prefix_to_subnet(const t_ipprefix *p_src, t_ipprefix *p_dst, uint32_t len)
{
    if (family_bits(p_src) == 0)
        return;
    if (len == 0)
        len = p_src->prefixlen;
    len = std::min(len, family_bits(p_src));
    t_ipaddr mask = {p_src->addr.addr_type, {}};
    ip_prefixlen_to_mask(len, &mask);
    IPADDR_COPY(&p_dst->addr, &p_src->addr);
    ipaddr_mask_apply(&p_dst->addr, &mask);
    p_dst->prefixlen = static_cast<uint8_t>(len);
}

void ipv4_prefix_to_subnet(const t_ipprefix *p_src, t_ipprefix *p_dst, uint32_t len)
{
    if (IPPREFIX_IS_V4(p_src))
        ip_prefix_to_subnet(p_src, p_dst, len);
}

void ipv6_prefix_to_subnet(const t_ipprefix *p_src, t_ipprefix *p_dst, uint32_t len)
{
    if (IPPREFIX_IS_V6(p_src))
        ip_prefix_to_subnet(p_src, p_dst, len);
}

bool ipprefix_is_contained(const t_ipprefix *p_a, const t_ipprefix *p_b)
{
    if (p_a->addr.addr_type != p_b->addr.addr_type)
        return false;
    LUM_ASSERT(ipprefix_is_valid(p_b), "ipprefix_is_valid(p_b)");
    t_ipaddr mask = {p_b->addr.addr_type, {}};
    ip_prefixlen_to_mask(p_b->prefixlen, &mask);
    t_ipaddr network_a = p_a->addr;
    t_ipaddr network_b = p_b->addr;
    ipaddr_mask_apply(&network_a, &mask);
    ipaddr_mask_apply(&network_b, &mask);
    return IPADDR_CMP(&network_a, &network_b) == 0;
}
