// An IP address as it stands in shared memory: 16 address bytes and the family.
//
// An IPv4 address is a 32-bit word in host order in the first four bytes; an IPv6 address is its 16 bytes in
// network order. The record is packed and may lie unaligned, so it is read through the functions below. Their
// family in capitals is that of t_ipaddr in common/ip_util.h; it sits in look-ups and is compiled into its
// users.
// Exception: the two addresses of a mirror's tunnel keep their IPv4 word in network order
// (t_tarn_mirror_info in tarnd/compiler/tarn_program_format.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "common/lum_assert.h"

enum e_fp_af_type : uint32_t {
    FP_AF_NONE = 0,
    FP_AF_INET = 1,
    FP_AF_INET6 = 2,
};

struct [[gnu::packed]] t_fp_ipaddr {
    uint8_t addr[16];
    e_fp_af_type addr_type;
};
static_assert(sizeof(t_fp_ipaddr) == 20);
static_assert(offsetof(t_fp_ipaddr, addr_type) == 16);
static_assert(std::is_standard_layout_v<t_fp_ipaddr>);

// ---- Family, value, order ----

inline bool FP_IPADDR_IS_V4(const t_fp_ipaddr *p_addr)
{
    return p_addr->addr_type == FP_AF_INET;
}

inline bool FP_IPADDR_IS_V6(const t_fp_ipaddr *p_addr)
{
    return p_addr->addr_type == FP_AF_INET6;
}

// The four bytes of an IPv4 address as one word, as they stand.
inline uint32_t fp_ipaddr_v4(const t_fp_ipaddr *p_addr)
{
    uint32_t word;
    memcpy(&word, p_addr->addr, sizeof(word));
    return word;
}

// Leaves the other 12 bytes as they were, so records are compared with FP_IPADDR_CMP only.
inline void FP_IPADDR_SET_V4(t_fp_ipaddr *p_addr, uint32_t host_value)
{
    p_addr->addr_type = FP_AF_INET;
    memcpy(p_addr->addr, &host_value, sizeof(host_value));
}

// Makes an IPv4 address of a word in host order, with the other bytes zero.
inline void fp_ipaddr_set_v4(t_fp_ipaddr *p_addr, uint32_t host_order)
{
    *p_addr = {};
    FP_IPADDR_SET_V4(p_addr, host_order);
}

// p_bytes: 16 bytes in network order.
inline void FP_IPADDR_SET_V6(t_fp_ipaddr *p_addr, const void *p_bytes)
{
    p_addr->addr_type = FP_AF_INET6;
    memcpy(p_addr->addr, p_bytes, sizeof(p_addr->addr));
}

// The family with an all-zero value.
inline void FP_IPADDR_INIT(t_fp_ipaddr *p_addr, e_fp_af_type type)
{
    *p_addr = {};
    p_addr->addr_type = type;
}

// Copies the family and as many bytes as it has: none for an unknown one.
inline void FP_IPADDR_COPY(t_fp_ipaddr *p_dst, const t_fp_ipaddr *p_src)
{
    p_dst->addr_type = p_src->addr_type;
    if (FP_IPADDR_IS_V4(p_src))
        memmove(p_dst->addr, p_src->addr, 4);
    else if (FP_IPADDR_IS_V6(p_src))
        memmove(p_dst->addr, p_src->addr, sizeof(p_dst->addr));
}

// Reads 16 bytes into the value, whatever the family. Returns 16.
inline int FP_IPADDR_GET_IPV6(t_fp_ipaddr *p_addr, const void *p_bytes)
{
    memcpy(p_addr->addr, p_bytes, sizeof(p_addr->addr));
    return sizeof(p_addr->addr);
}

// Reads a big-endian value of the address's family, which the caller has set. Returns the bytes read, 4 or
// 16; that many must be there.
inline int FP_IPADDR_GET(t_fp_ipaddr *p_addr, const void *p_bytes)
{
    if (!FP_IPADDR_IS_V4(p_addr))
        return FP_IPADDR_GET_IPV6(p_addr, p_bytes);
    uint32_t word;
    memcpy(&word, p_bytes, sizeof(word));
    FP_IPADDR_SET_V4(p_addr, __builtin_bswap32(word));
    return sizeof(word);
}

// True for an all-zero value. An unknown family counts as zero.
inline bool FP_IPADDR_IS_ZERO(const t_fp_ipaddr *p_addr)
{
    static constexpr uint8_t zero[sizeof(p_addr->addr)] = {};
    if (FP_IPADDR_IS_V4(p_addr))
        return fp_ipaddr_v4(p_addr) == 0;
    return !FP_IPADDR_IS_V6(p_addr) || memcmp(p_addr->addr, zero, sizeof(zero)) == 0;
}

// -1, 0 or 1: by family first, IPv4 before IPv6, then IPv4 as unsigned numbers and IPv6 byte by byte. Two
// addresses of one family that is neither are an assertion.
int FP_IPADDR_CMP(const t_fp_ipaddr *p_a, const t_fp_ipaddr *p_b);

// ---- Printing ----

// Writes the text form into buf: "%u.%u.%u.%u", or groups in "%x" with the first of the longest runs of zero
// groups, be it a single one, as "::". An unknown family gives an empty text. size is in bytes and at
// least 46.
void fp_ipaddr_print_to_buf(const t_fp_ipaddr *p_addr, char *buf, size_t size);

// The text form in one of eight static buffers used in turn, so that eight results may stand in one log line;
// each source unit has buffers of its own. p_len, if given, receives the text's length. Null gives null. Main
// thread only.
static inline const char *fp_ipaddr_print(const t_fp_ipaddr *p_addr, size_t *p_len)
{
    static char ring[8][128];
    static unsigned next;
    if (p_addr == nullptr)
        return nullptr;
    char *p_text = ring[next++ % 8];
    fp_ipaddr_print_to_buf(p_addr, p_text, sizeof(ring[0]));
    if (p_len != nullptr)
        *p_len = strlen(p_text);
    return p_text;
}
