// The shared tables: one global for each, and the list that lays them out.
//
// Each global is this process's own address of a table in the named block, null until fp_global_shmem_init
// has run and good from then on. The tables have no lock here: each has a protocol of its own between the
// process that writes and those that read. The tables for each core are arrays by core number, filled from
// min_fp_core_num to max_fp_core_num.
#pragma once

#include <cstdint>

#include "fp_api/fp_filter.h"
#include "fp_api/fp_global_ctrl.h"
#include "fp_api/fp_policer.h"
#include "fp_api/fp_records.h"
#include "fp_api/fp_scaling.h"
#include "fp_api/fp_zbf.h"

// ---- The list ----

// A row of the list. The sizes of all tables are known once the scaling is.
struct t_fp_shmem {                // NOLINT(clang-analyzer-optin.performance.Padding): the order is fixed
    void **pp_rec_tbl;             // the global, or the first of its array
    int record_size;               // bytes
    const int *p_num_tbl_entries;  // the count, a field of g_fp_scaling
    const char *p_block_name;
    bool alloc_shmem_per_core;  // a copy for each forwarding core
};

inline constexpr int FP_NUM_SHMEM_TABLES = 92;

// In layout order.
extern const t_fp_shmem g_shmem_tbl[FP_NUM_SHMEM_TABLES];

// The number of rows.
int fp_global_shmem_size();

// ---- The globals, in layout order ----

extern t_fp_shmem_info *g_fp_shmem_info;
extern t_fp_port_record *g_fp_port_record;
extern t_fp_port_stats *g_fp_port_stats;
extern t_fp_vrf_record *g_fp_vrf_record;
extern t_fp_label_record *g_fp_label_record;
extern t_fp_if_record *g_fp_if_record;
extern t_fp_if_stats *g_fp_if_stats;
extern uint16_t *g_fp_if_hash_record;
extern t_fp_tun_record *g_fp_tun_record;
extern uint16_t *g_fp_tun_hash_record;
extern t_fp_arp_record *g_fp_arp_record;
extern uint16_t *g_fp_arp_hash_record;
extern t_fp_nh_record *g_fp_nh_record;
extern t_fp_classifier_record *g_fp_classifier_record;
extern t_fp_policer *g_fp_policer;
extern t_fp_rewrite_record *g_fp_rewrite_record;
extern t_fp_fc_to_q_map *g_fp_fc_to_q_map;
extern t_fib_block *g_fib_block;
extern t_fib_large_block *g_fib_large_block;
extern t_fp_global_ctrl *g_fp_global_ctrl;
extern t_fp_global_stats *g_fp_global_stats;
extern t_fp_per_core_data *g_fp_per_core_data;
extern t_fp_inbound_sa_record *g_fp_inbound_sa_record;
extern t_fp_sub_inbound_sa_record *g_fp_sub_inbound_sa_record;
extern uint16_t *g_fp_inbound_sa_hash_record;
extern uint16_t *g_fp_sub_inbound_sa_hash_record;
extern uint16_t *g_fp_sub_inbound_rfc_sa_hash_record;
extern t_fp_outbound_sa_record *g_fp_outbound_sa_record;
extern t_fp_bfd_record *g_fp_bfd_record;
extern uint16_t *g_fp_bfd_hash_record;
extern t_tarn_filter_mem_block *g_fp_filter_mem_block;
extern t_tarn_filter *g_fp_filter;
extern t_fp_profiler *g_fp_profiler;
extern uint16_t *g_fp_ctrl_tun_hash_record;
extern t_fp_ctrl_tun_record *g_fp_ctrl_tun_record;
extern uint16_t *g_fp_mcast_group_hash_record;
extern t_fp_nat_if_record *g_fp_nat_if_record;
extern t_fp_nat_port_fwd_record *g_fp_nat_port_fwd_record;
extern t_fp_nat_map_record *g_fp_nat_map_record;
extern uint32_t *g_fp_nat_map_hash_record;
extern t_fp_nat_filter_record *g_fp_nat_filter_record;
extern uint32_t *g_fp_nat_filter_outbound_hash_record;
extern uint32_t *g_fp_nat_filter_inbound_hash_record;
extern t_fp_ipfrag_record *g_fp_ipfrag_record[FP_MAX_CORES];
extern uint32_t *g_fp_ipfrag_hash_record[FP_MAX_CORES];
extern t_fp_mcast_group_record *g_fp_mcast_group_record;
extern uint16_t *g_fp_tundb_hash_record;
extern t_fp_tundb_record *g_fp_tundb_record;
extern t_fp_mcast_stats *g_fp_mcast_stats;
extern t_fp_path_record *g_fp_path_record;
extern t_fp_path_ext_record *g_fp_path_ext_record;
extern t_fp_flow_record *g_fp_flow_record;
extern uint32_t *g_fp_flow_hash_record;
extern t_fib6_block *g_fib6_block;
extern t_fp_bridge_record *g_fp_bridge_record;
extern t_fp_bridge_mac_stats *g_fp_bridge_mac_stats;
extern t_fp_mac_record *g_fp_mac_record;
extern uint16_t *g_fp_bridge_id_to_record_map;
extern uint32_t *g_fp_bridge_mac_hash_record;
extern t_fp_debug_record *g_fp_debug_record;
extern uint8_t *g_fp_dpi_mem_block;
extern uint32_t *g_fp_dpi_proto_family_mapping;
extern uint32_t *g_fp_dpi_proto_hits;
extern uint32_t *g_fp_dpi_enable_knob;
extern t_fp_dpi_stats *g_fp_dpi_stats;
extern t_fp_dpi_flow_stat_node *g_fp_dpi_flow_stat_node;
extern t_fp_nat_pool_record *g_fp_nat_pool_record;
extern t_fp_filter_log_config *g_fp_filter_log_config;
extern uint32_t *g_fp_filter_flow_enable_knob;
extern t_fp_fpa_pool *g_fp_fpa_pool;
extern t_fp_app_tunnel_record *g_fp_app_tunnel_record;
extern t_fp_cxp_record *g_fp_cxp_record;
extern uint16_t *g_fp_cxp_hash_record;
extern t_fp_server_appid_record *g_fp_server_appid_record;
extern uint16_t *g_fp_server_appid_hash_record;
extern uint32_t *g_fp_tcpopt_hash_record;
extern uint32_t *g_fp_tcpopt_ss_hash_record;
extern t_fp_tcpopt_record *g_fp_tcpopt_record;
extern t_fp_sub_inbound_sa_record *g_fp_sub_inbound_rfc_sa_record;
extern t_fp_pkt_dup_rx_tbl *g_fp_pkt_dup_rx_tbl;
extern t_fp_fec_blockchain *g_fp_fec_blockchain;
extern t_fp_zbf_flow_record *g_fp_zbf_flow_record;
extern uint32_t *g_fp_zbf_flow_hash_record;
extern t_fp_ipfrag_record *g_fp_zbf_ipfrag_record[FP_MAX_CORES];
extern uint32_t *g_fp_zbf_ipfrag_hash_record[FP_MAX_CORES];
extern t_fp_zbf_pair_record *g_fp_zbf_pair_record;
extern uint32_t *g_fp_zbf_pair_hash_record;
extern t_fp_vpn_zone_record *g_fp_vpn_zone_record;
extern uint32_t *g_fp_vpn_zone_hash_record;
extern t_fp_cft_hbucket *g_fp_cft_hbucket;
extern t_fp_cft_sess *g_fp_cft_sess;
extern t_fp_cft_active_list *g_fp_cft_active_list;
