// IP addresses that carry their family, prefixes, and the ids of TLOCs.
//
// An IPv4 address stands as a 32-bit number in host order, an IPv6 address as its 16 bytes in network order;
// a place that departs from this says so. Setting an IPv4 address leaves the other 12 bytes of the union as
// they were, so records are never compared as a whole: compare with IPADDR_CMP and TLOC_CMP.
//
// Everything here is plain functions on the caller's records, callable from any thread. The functions in
// capitals are small and sit in comparators and decoders, so they are compiled into their users.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/lum_assert.h"

// The same numbers as the address families.
enum e_ipaddr_type : uint32_t {
    IP_ADDR_UNKNOWN = 0,
    IP_ADDR_V4 = AF_INET,
    IP_ADDR_V6 = AF_INET6,
};
static_assert(IP_ADDR_V4 == 2 && IP_ADDR_V6 == 10);

struct t_ipaddr {
    e_ipaddr_type addr_type;
    union {
        struct in_addr addr4;  // host order
        uint64_t addr6[2];     // like the members below: bytes in network order
        uint8_t addr6_b[16];
        uint16_t addr16_b[8];
        uint32_t addr32_b[4];
    } u;
};
static_assert(sizeof(t_ipaddr) == 24);
static_assert(offsetof(t_ipaddr, u) == 8);

struct t_ipprefix {
    t_ipaddr addr;
    uint8_t prefixlen;  // bits
};

struct t_ipaddr_port {
    t_ipaddr addr;
    in_port_t port;  // host order, with the exception told at ipaddr_port_from_sockaddr
};

struct t_tloc_id {
    t_ipaddr addr;
    uint8_t color;  // e_vpn_tloc_color_type
    uint8_t encap;  // e_lum_tloc_encap_type
};
static_assert(sizeof(t_tloc_id) == 32);
static_assert(offsetof(t_tloc_id, color) == 24);
static_assert(offsetof(t_tloc_id, encap) == 25);

using t_tloc_index = int;

// Bytes of a longest text with its terminator: an address, and an address with its port.
constexpr size_t IP_ADDR_TEXT_SIZE = INET6_ADDRSTRLEN;
constexpr size_t IP_ADDR_PORT_TEXT_SIZE = INET6_ADDRSTRLEN + 6;

// ---- Family, value, order ----

inline bool IPADDR_IS_V4(const t_ipaddr *p_addr)
{
    return p_addr->addr_type == IP_ADDR_V4;
}

inline bool IPADDR_IS_V6(const t_ipaddr *p_addr)
{
    return p_addr->addr_type == IP_ADDR_V6;
}

inline bool IPPREFIX_IS_V4(const t_ipprefix *p_prefix)
{
    return IPADDR_IS_V4(&p_prefix->addr);
}

inline bool IPPREFIX_IS_V6(const t_ipprefix *p_prefix)
{
    return IPADDR_IS_V6(&p_prefix->addr);
}

inline void IPADDR_SET_V4(t_ipaddr *p_addr, uint32_t host_value)
{
    p_addr->addr_type = IP_ADDR_V4;
    p_addr->u.addr4.s_addr = host_value;
}

// p_bytes: 16 bytes in network order.
inline void IPADDR_SET_V6(t_ipaddr *p_addr, const void *p_bytes)
{
    p_addr->addr_type = IP_ADDR_V6;
    memcpy(p_addr->u.addr6_b, p_bytes, sizeof(p_addr->u.addr6_b));
}

// The family with an all-zero value.
inline void IPADDR_INIT(t_ipaddr *p_addr, e_ipaddr_type type)
{
    *p_addr = {};
    p_addr->addr_type = type;
}

// Copies the family and as many bytes as it has: none for an unknown one.
inline void IPADDR_COPY(t_ipaddr *p_dst, const t_ipaddr *p_src)
{
    p_dst->addr_type = p_src->addr_type;
    if (IPADDR_IS_V4(p_src))
        p_dst->u.addr4 = p_src->u.addr4;
    else if (IPADDR_IS_V6(p_src))
        memmove(p_dst->u.addr6_b, p_src->u.addr6_b, sizeof(p_dst->u.addr6_b));
}

// Reads 16 bytes into the value, whatever the family. Returns 16.
inline int IPADDR_GET_IPV6(t_ipaddr *p_addr, const void *p_bytes)
{
    memcpy(p_addr->u.addr6_b, p_bytes, sizeof(p_addr->u.addr6_b));
    return sizeof(p_addr->u.addr6_b);
}

// Reads a big-endian value of the address's family, which the caller has set. Returns the bytes read, 4 or
// 16; that many must be there.
inline int IPADDR_GET(t_ipaddr *p_addr, const void *p_bytes)
{
    if (!IPADDR_IS_V4(p_addr))
        return IPADDR_GET_IPV6(p_addr, p_bytes);
    uint32_t word;
    memcpy(&word, p_bytes, sizeof(word));
    p_addr->u.addr4.s_addr = ntohl(word);
    return sizeof(word);
}

// True for an all-zero value. An unknown family counts as zero.
inline bool IPADDR_IS_ZERO(const t_ipaddr *p_addr)
{
    if (IPADDR_IS_V4(p_addr))
        return p_addr->u.addr4.s_addr == 0;
    return !IPADDR_IS_V6(p_addr) || (p_addr->u.addr6[0] | p_addr->u.addr6[1]) == 0;
}

// -1, 0 or 1 for two numbers.
template <typename T>
constexpr int ip_util_order(T a, T b)
{
    return (a > b) - (a < b);
}

// -1, 0 or 1: by family first, so every IPv4 address stands before every IPv6 address, then IPv4 as unsigned
// numbers and IPv6 byte by byte. Two addresses of one family that is neither are an assertion.
inline int IPADDR_CMP(const t_ipaddr *p_a, const t_ipaddr *p_b)
{
    if (p_a->addr_type != p_b->addr_type)
        return ip_util_order<uint32_t>(p_a->addr_type, p_b->addr_type);
    if (IPADDR_IS_V4(p_a))
        return ip_util_order(p_a->u.addr4.s_addr, p_b->u.addr4.s_addr);
    LUM_ASSERT(IPADDR_IS_V6(p_a), "IPADDR_IS_V6(p_a)");
    return ip_util_order(memcmp(p_a->u.addr6_b, p_b->u.addr6_b, sizeof(p_a->u.addr6_b)), 0);
}

// -1, 0 or 1: by address, then color, then encapsulation.
inline int TLOC_CMP(const t_tloc_id *p_a, const t_tloc_id *p_b)
{
    if (int order = IPADDR_CMP(&p_a->addr, &p_b->addr); order != 0)
        return order;
    if (p_a->color != p_b->color)
        return ip_util_order(p_a->color, p_b->color);
    return ip_util_order(p_a->encap, p_b->encap);
}

// A mask with len high bits, in host order. The shift wraps at 32, so a length of 0 gives the all-ones mask
// like 32 does. The functions on masks and prefixes below give an empty mask for 0 instead.
constexpr uint32_t IPV4_PREFIXLEN_TO_VAL(uint32_t len)
{
    return -(uint32_t{1} << ((32 - len) & 31));
}

// ---- Printing ----
// len is the buffer's size in bytes. The text is cut to it and terminated; buf is returned.

char *ipv4_print(uint32_t host_value, char *buf, size_t len);

// A text that doesn't fit, for IPv6, and an unknown family give an empty text.
char *ipaddr_print(const t_ipaddr *p_addr, char *buf, size_t len);

// "address:port", without brackets for IPv6 too.
char *ipaddr_port_print(const t_ipaddr_port *p_addr_port, char *buf, size_t len);

// With color and encapsulation as numbers.
char *tloc_id_print(const t_tloc_id *p_tloc, char *buf, size_t len);

// With color and encapsulation by name.
char *tloc_id_print_short(const t_tloc_id *p_tloc, char *buf, size_t len);

char *macaddr_print(const uint8_t bytes[6], char *buf, size_t len);

// The hardware address of a local interface, without the colons if compact. Null on failure.
char *get_intf_macaddr(const char *name, bool compact, char *buf, size_t len);

// The local time as "Mar 05 14:07:09".
char *print_timeofday(char *buf, size_t len);

// Hex pairs with ":" between them, cut to out_size bytes with the terminator. Returns the length of the whole
// text, in_len * 3 - 1, which is -1 for no input.
int binary_to_hexstr(char *out, size_t out_size, const uint8_t *p_in, size_t in_len);

// ---- Parsing ----

// Reads an IPv4 text in the forms of inet_network ("10.1" is 0.0.10.1, "255.255.255.255" is refused), else an
// IPv6 text. Returns 1, or 0 with the record zeroed.
int str_to_ip(const char *text, t_ipaddr *p_addr);

// Reads a text of the family that the record has already, IPv4 in its full dotted form only. Returns 1, or 0
// with the record left alone.
int ipaddr_str_to_ip(t_ipaddr *p_addr, const char *text);

// Reads six hex numbers with ":" between them, of which the low bytes count. Returns bytes, or null with the
// bytes left alone.
uint8_t *str_to_macaddr(const char *text, uint8_t bytes[6]);

// Takes address and port out of a socket address. The port of an IPv6 one stays in network order. Other
// families leave the record alone.
void ipaddr_port_from_sockaddr(t_ipaddr_port *p_addr_port, const struct sockaddr *p_sockaddr);

// ---- Classes of addresses ----

bool ipaddr_is_link_local(const t_ipaddr *p_addr);    // IPv6 beginning fe80 exactly, not the whole /10
bool ipaddr_is_site_local(const t_ipaddr *p_addr);    // IPv6 in fec0::/10
bool ipaddr_is_unique_local(const t_ipaddr *p_addr);  // IPv6 in fc00::/7
bool ipaddr_is_multicast(const t_ipaddr *p_addr);
bool ipaddr_is_loopback(const t_ipaddr *p_addr);  // 127/8, ::1, and :: as well

// An address that a host may have. IPv4: outside 0/8, 127/8 and what begins with 224 and more, and with a
// last byte other than 0 and 255. IPv6: not link-local, not multicast, not zero. Unknown families count as
// unicast.
bool ipaddr_is_unicast(const t_ipaddr *p_addr);

// The same, with a last byte of 0 allowed.
bool ipaddr_is_unicast_relaxed_low_byte_check(const t_ipaddr *p_addr);

// IPv4: the first byte is not 0, not 127 and below 224. Others: true.
bool ipnexthop_is_unicast(const t_ipaddr *p_addr);

// Keeps an interface index in bytes 4 to 7 of a link-local address, in network order. Other addresses are
// left alone.
void ipaddr_link_local_embed_ifindex(t_ipaddr *p_addr, uint32_t ifindex);

// Takes it out again: the index, and the address with those bytes zero. Another address gives index 0 and
// itself. p_ifindex and p_clean may be null, and p_clean may be p_addr.
void ipaddr_link_local_extract_ifindex(const t_ipaddr *p_addr, uint32_t *p_ifindex, t_ipaddr *p_clean);

// ---- Masks ----

// Set bits of each byte value.
extern const uint8_t ip_util_bit_mask_to_len[256];

// The set bits of a mask, whatever their order.
int ipaddr_mask_to_len(const t_ipaddr *p_mask);

// A byte with len high bits set; more than 8 count as 8.
uint8_t ip_byte_len_to_val(uint32_t len);

// The mask of len bits in the family that the record has; one that is not IPv6 becomes IPv4. A length beyond
// the family's counts as all bits.
void ip_prefixlen_to_mask(uint32_t len, t_ipaddr *p_mask);

// The IPv6 mask of len bits.
void ipv6_prefixlen_to_mask(uint32_t len, t_ipaddr *p_mask);

// Does what ipv6_prefixlen_to_mask does, for callers that know it by this name. Not for IPv4 masks: those
// come from IPV4_PREFIXLEN_TO_VAL and ip_prefixlen_to_mask.
void ipv4_prefixlen_to_val(uint32_t len, t_ipaddr *p_mask);

void ipaddr_mask_invert(t_ipaddr *p_mask);

// Keeps the address's bits under the mask. Nothing happens if the families differ.
void ipaddr_mask_apply(t_ipaddr *p_addr, const t_ipaddr *p_mask);

// ---- Prefixes ----

// Whether the length suits the family; an unknown family is never valid.
bool ipprefix_is_valid(const t_ipprefix *p_prefix);

// Whether an interface may have this address in this prefix: the host part is neither zero nor all ones.
// Prefixes with at most one bit of host part pass, and so do invalid ones, which are reported elsewhere.
bool ipprefix_is_valid_interface(const t_ipprefix *p_prefix);

// The same test for IPv4; others pass.
bool ipprefix_is_valid_v4_interface(const t_ipprefix *p_prefix);

// Whether the prefix can be a pool of addresses: its host part is zero, or its length 32. Invalid ones can't.
bool ipprefix_is_valid_natpool_interface(const t_ipprefix *p_prefix);

// The network of src at len bits, or at its own length if len is 0. src and dst may be the same record. An
// unknown family, and for the last two the other family, leaves dst alone.
void ip_prefix_to_subnet(const t_ipprefix *p_src, t_ipprefix *p_dst, uint32_t len);
void ipv4_prefix_to_subnet(const t_ipprefix *p_src, t_ipprefix *p_dst, uint32_t len);
void ipv6_prefix_to_subnet(const t_ipprefix *p_src, t_ipprefix *p_dst, uint32_t len);

// Whether the address of a lies in the prefix b; the length of a isn't looked at. Families that differ give
// false. A length of b that its family can't have is an assertion.
bool ipprefix_is_contained(const t_ipprefix *p_a, const t_ipprefix *p_b);
