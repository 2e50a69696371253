// Records of the two zone tables: which zone a VPN lies in, and which filter a pair of zones has.
//
// A record is in a hash chain while is_valid is set; otherwise it is on its free list. The daemon writes,
// the forwarding plane looks up without a lock: is_valid is set last and cleared first. Indices and bucket
// heads are 32 bits with FP_ZBF_INDEX_NONE for none. The links of the free lists are addresses of the
// process that owns the tables and mean nothing to others. Native byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

inline constexpr uint32_t FP_ZBF_INDEX_NONE = 0xffffffff;

struct t_fp_zbf_hash_index {
    uint32_t hash;        // bucket number
    uint32_t next_index;  // next record of the chain
};

struct t_fp_zbf_pair_key {
    uint16_t src_zone_id;
    uint16_t dst_zone_id;
};

struct t_fp_zbf_pair_record {
    t_fp_zbf_pair_key key;
    uint8_t is_valid : 1;
    uint8_t spare : 7;
    uint8_t reserved0[3];
    uint32_t index;  // the record's own place in the table; kept through allocation
    uint32_t zb_pair_id;
    uint32_t zbf_filter_id;
    t_fp_zbf_hash_index hash_index;
    uint32_t reserved1;
    t_fp_zbf_pair_record *next_free_node;
};
static_assert(sizeof(t_fp_zbf_pair_record) == 40);
static_assert(offsetof(t_fp_zbf_pair_record, index) == 8);
static_assert(offsetof(t_fp_zbf_pair_record, zb_pair_id) == 12);
static_assert(offsetof(t_fp_zbf_pair_record, zbf_filter_id) == 16);
static_assert(offsetof(t_fp_zbf_pair_record, hash_index) == 20);
static_assert(offsetof(t_fp_zbf_pair_record, next_free_node) == 32);
static_assert(std::is_standard_layout_v<t_fp_zbf_pair_record>);

struct t_fp_vpn_zone_record {
    uint16_t vpn;  // low 16 bits of the configured number
    uint16_t zone_id;
    uint8_t is_valid : 1;
    uint8_t spare : 7;
    uint8_t reserved0[3];
    uint32_t index;
    t_fp_zbf_hash_index hash_index;
    uint32_t reserved1;
    t_fp_vpn_zone_record *next_free_node;
};
static_assert(sizeof(t_fp_vpn_zone_record) == 32);
static_assert(offsetof(t_fp_vpn_zone_record, zone_id) == 2);
static_assert(offsetof(t_fp_vpn_zone_record, index) == 8);
static_assert(offsetof(t_fp_vpn_zone_record, hash_index) == 12);
static_assert(offsetof(t_fp_vpn_zone_record, next_free_node) == 24);
static_assert(std::is_standard_layout_v<t_fp_vpn_zone_record>);
