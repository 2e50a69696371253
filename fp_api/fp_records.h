// Records of the shared tables whose layout is this tree's own.
//
// The sizes below decide where the tables stand, and nothing else is agreed about these records: every other
// process that maps the block must be built from this header, and the walk that lays the block out stops a
// process that was not. Records that this tree never looks into are words of the chosen size. The 16-bit
// heads and links hold FP_HASH_EMPTY for none. Native byte order; pointers and locks of the forwarding plane
// lie inside the opaque words.
//
// Layouts that other programs fix stand elsewhere: fp_global_ctrl.h, fp_filter.h, fp_zbf.h, fp_policer.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "fp_api/fp_ipaddr.h"
#include "fp_api/fp_types.h"

// ---- The layout's own record ----

// One item for each table: what the process that came first laid out, for the others to compare with.
struct t_fp_shmem_info {
    uint32_t offset;  // end of the table, rounded up, in bytes behind the start of the table area
    uint32_t size;    // bytes of the table, all copies, not rounded
};
static_assert(sizeof(t_fp_shmem_info) == 8);
static_assert(offsetof(t_fp_shmem_info, size) == 4);

// ---- Interfaces, neighbours, next hops ----

struct t_fp_if_key {
    uint16_t port_id;
    uint16_t vlan_id;
    uint16_t hw_iftype;
    uint16_t zero;
};
static_assert(sizeof(t_fp_if_key) == 8);

struct t_fp_if_record {
    t_fp_if_key key;
    uint16_t next_index;
    t_vrid vrid;
    uint8_t record_valid;
    uint8_t reserved0[3];
    uint64_t opaque[53];
};
static_assert(sizeof(t_fp_if_record) == 440);

struct t_fp_if_stats {
    uint64_t rx_pkts;
    uint64_t rx_bytes;
    uint64_t tx_pkts;
    uint64_t tx_bytes;
    uint64_t opaque[28];
};
static_assert(sizeof(t_fp_if_stats) == 256);

struct t_fp_arp_key {
    t_fp_ipaddr ipaddr;
    t_hw_ifindex ifindex;
    uint16_t zero;
};
static_assert(sizeof(t_fp_arp_key) == 24);

struct t_fp_arp_record {
    t_fp_arp_key key;
    uint16_t next_index;
    uint8_t mac[6];
    uint64_t opaque[4];
};
static_assert(sizeof(t_fp_arp_record) == 64);

struct t_fp_nh_record {
    uint64_t opaque[26];
};
static_assert(sizeof(t_fp_nh_record) == 208);

// ---- Applications ----

struct t_fp_cxp_key {
    t_vrid vrid;
    uint16_t appid;
};
static_assert(sizeof(t_fp_cxp_key) == 4);

struct t_fp_cxp_record {
    t_fp_cxp_key key;
    uint16_t next_index;
    uint8_t record_valid;
    uint8_t reserved0;
    uint32_t tunnel_index;
    uint32_t reserved1;
    uint64_t opaque[2];
};
static_assert(sizeof(t_fp_cxp_record) == 32);

struct [[gnu::packed]] t_fp_server_appid_key {
    t_vrid vrid;
    t_fp_ipaddr ipaddr;
    uint16_t portid;
    uint8_t proto;
    uint8_t zero;
};
static_assert(sizeof(t_fp_server_appid_key) == 26);

struct t_fp_server_appid_record {
    t_fp_server_appid_key key;
    uint16_t next_index;
    uint16_t appid;
    uint8_t record_valid;
    uint8_t reserved0;
    uint64_t opaque[4];
};
static_assert(sizeof(t_fp_server_appid_record) == 64);

// ---- Flows ----

struct t_fp_flow_key {
    t_fp_ipaddr src_ip;
    t_fp_ipaddr dst_ip;
    uint16_t src_port;
    uint16_t dst_port;
    t_vrid vrid;
    uint8_t proto;
    uint8_t dscp;
};
static_assert(sizeof(t_fp_flow_key) == 48);

struct t_fp_flow_record {
    t_fp_flow_key key;
    uint64_t pkts;
    uint64_t bytes;
    uint32_t appid;
    uint32_t next_index;
    uint64_t opaque[23];
};
static_assert(sizeof(t_fp_flow_record) == 256);

struct t_fp_nat_filter_key {
    t_fp_ipaddr src_ip;
    t_fp_ipaddr dst_ip;
    uint16_t src_port;
    uint16_t dst_port;
    t_vrid vrid;
    uint8_t proto;
    uint8_t reserved0;
};
static_assert(sizeof(t_fp_nat_filter_key) == 48);

struct t_fp_nat_filter_record {
    t_fp_nat_filter_key key;
    uint64_t opaque[14];
};
static_assert(sizeof(t_fp_nat_filter_record) == 160);

struct t_fp_zbf_flow_key {
    t_fp_ipaddr src_ip;
    t_fp_ipaddr dst_ip;
    uint16_t src_port;
    uint16_t dst_port;
    t_vrid src_vrid;
    t_vrid dst_vrid;
    uint8_t proto;
    uint8_t reserved0[7];
};
static_assert(sizeof(t_fp_zbf_flow_key) == 56);

struct t_fp_zbf_flow_record {
    t_fp_zbf_flow_key key;
    uint64_t opaque[17];
};
static_assert(sizeof(t_fp_zbf_flow_record) == 192);

enum e_fp_tcpopt_state : uint8_t {
    FP_TCPOPT_STATE_FREE = 0,
    FP_TCPOPT_STATE_INIT = 1,
    FP_TCPOPT_STATE_OPTIMIZED = 2,
    FP_TCPOPT_STATE_PASS_THROUGH = 3,
    FP_TCPOPT_STATE_EXPIRED = 4,
};

struct t_fp_tcpopt_key {
    t_fp_ipaddr src_ip;
    t_fp_ipaddr dst_ip;
    uint16_t src_port;
    uint16_t dst_port;
    t_vrid vrid;
    uint16_t reserved0;
};
static_assert(sizeof(t_fp_tcpopt_key) == 48);

// One optimised connection, found by its client side (key) and by the proxy's server side (ss_key).
struct t_fp_tcpopt_record {
    t_fp_tcpopt_key key;
    t_fp_tcpopt_key ss_key;
    e_fp_tcpopt_state state;
    uint8_t reserved0[7];
    uint64_t opaque[19];
};
static_assert(sizeof(t_fp_tcpopt_record) == 256);

// ---- Statistics, cores, buffers ----

// Collisions of the hash tables: insertions that found the bucket taken.
struct t_fp_hash_stats {
    uint64_t if_hash_collision;
    uint64_t arp_hash_collision;
    uint64_t flow_hash_collision;
    uint64_t nat_map_hash_collision;
    uint64_t nat_filter_hash_collision;
    uint64_t zbf_flow_hash_collision;
    uint64_t zbf_zone_pair_hash_collision;
    uint64_t zbf_vpn_zone_hash_collision;
};

struct t_fp_stats {
    t_fp_hash_stats hash;
    uint64_t rx_pkts;
    uint64_t tx_pkts;
    uint64_t filter_pkts;       // packets that went through a program
    uint64_t filter_drop_pkts;  // of those, dropped by its verdict
    uint64_t policer_drop_pkts;
    uint64_t malformed_pkts;
    uint64_t opaque[114];
};
static_assert(sizeof(t_fp_stats) == 1024);

// Double-buffered like all counters: writers count into stats[version], a reader flips version and then
// clears the other element.
struct t_fp_global_stats {
    uint8_t version;
    uint8_t reserved0[7];
    t_fp_stats stats[2];
};
static_assert(sizeof(t_fp_global_stats) == 2056);

struct t_fp_per_core_data {
    uint64_t grp_mask;  // work groups of the core; 0 until fp_get_core_grp_mask has built it
    uint64_t opaque[57];
};
static_assert(sizeof(t_fp_per_core_data) == 464);

struct t_fp_profiler {
    uint64_t count;
    uint64_t total_cycles;
    uint64_t min_cycles;  // all ones before the first sample
    uint64_t max_cycles;
    uint64_t opaque[4];
};
static_assert(sizeof(t_fp_profiler) == 64);

// One pool of packet or work buffers.
struct t_fp_fpa_pool {
    uint32_t block_size;  // bytes; 0 while the pool isn't set up
    uint32_t num_blocks;
    uint32_t num_available;
    uint32_t low_watermark;  // fewer free blocks than this count as short
    uint64_t num_alloc_failures;
    uint64_t opaque[5];
};
static_assert(sizeof(t_fp_fpa_pool) == 64);

struct t_fp_dpi_stats {
    uint64_t pkts;
    uint64_t bytes;
    uint64_t opaque[6];
};
static_assert(sizeof(t_fp_dpi_stats) == 64);

// ---- Records of the forwarding plane alone ----

struct t_fp_port_record {
    uint64_t opaque[32];
};
struct t_fp_port_stats {
    uint64_t opaque[64];
};
struct t_fp_vrf_record {
    uint64_t opaque[16];
};
struct t_fp_label_record {
    uint64_t opaque[4];
};
struct t_fp_tun_record {
    uint64_t opaque[48];
};
struct t_fp_ctrl_tun_record {
    uint64_t opaque[48];
};
struct t_fp_classifier_record {
    uint64_t opaque[8];
};
struct t_fp_rewrite_record {
    uint64_t opaque[16];
};
struct t_fp_fc_to_q_map {
    uint64_t opaque[2];
};
struct t_fib_block {
    uint64_t opaque[8];
};
struct t_fib_large_block {
    uint64_t opaque[128];
};
struct t_fib6_block {
    uint64_t opaque[8];
};
struct t_fp_inbound_sa_record {
    uint64_t opaque[32];
};
struct t_fp_sub_inbound_sa_record {
    uint64_t opaque[32];
};
struct t_fp_outbound_sa_record {
    uint64_t opaque[32];
};
struct t_fp_bfd_record {
    uint64_t opaque[24];
};
struct t_fp_nat_if_record {
    uint64_t opaque[8];
};
struct t_fp_nat_port_fwd_record {
    uint64_t opaque[4];
};
struct t_fp_nat_map_record {
    uint64_t opaque[12];
};
struct t_fp_nat_pool_record {
    uint64_t opaque[8];
};
struct t_fp_ipfrag_record {
    uint64_t opaque[8];
};
struct t_fp_mcast_group_record {
    uint64_t opaque[32];
};
struct t_fp_mcast_stats {
    uint64_t opaque[8];
};
struct t_fp_tundb_record {
    uint64_t opaque[16];
};
struct t_fp_path_record {
    uint64_t opaque[32];
};
struct t_fp_path_ext_record {
    uint64_t opaque[16];
};
struct t_fp_bridge_record {
    uint64_t opaque[16];
};
struct t_fp_bridge_mac_stats {
    uint64_t opaque[8];
};
struct t_fp_mac_record {
    uint64_t opaque[6];
};
struct t_fp_debug_record {
    uint64_t opaque[16];
};
struct t_fp_dpi_flow_stat_node {
    uint64_t opaque[4];
};
struct t_fp_app_tunnel_record {
    uint64_t opaque[8];
};
struct t_fp_pkt_dup_rx_tbl {
    uint64_t opaque[128];
};
struct t_fp_fec_blockchain {
    uint64_t opaque[256];
};
struct t_fp_cft_hbucket {
    uint64_t opaque[8];
};
struct t_fp_cft_sess {
    uint64_t opaque[32];
};
struct t_fp_cft_active_list {
    uint64_t opaque[8];
};
