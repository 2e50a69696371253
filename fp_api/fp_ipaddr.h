// An IP address as it stands in shared memory: 16 address bytes and the family.
//
// An IPv4 address is a 32-bit word in host order in the first four bytes; an IPv6 address is its 16 bytes in
// network order. The record is packed and may lie unaligned, so it is read through the functions below.
// Exception: the two addresses of a mirror's tunnel keep their IPv4 word in network order
// (t_tarn_mirror_info in tarnd/compiler/tarn_program_format.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

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

// The four bytes of an IPv4 address as one word, as they stand.
uint32_t fp_ipaddr_v4(const t_fp_ipaddr *p_addr);

// Makes an IPv4 address of a word in host order.
void fp_ipaddr_set_v4(t_fp_ipaddr *p_addr, uint32_t host_order);

// Writes the text form into buf: "%u.%u.%u.%u", or groups in "%x" with the first of the longest runs of zero
// groups as "::". An unknown family gives an empty text. size is in bytes and at least 46.
void fp_ipaddr_print_to_buf(const t_fp_ipaddr *p_addr, char *buf, size_t size);
