#include "fp_api/fp_tables.h"

// ---- The globals ----

t_fp_shmem_info *g_fp_shmem_info;
t_fp_port_record *g_fp_port_record;
t_fp_port_stats *g_fp_port_stats;
t_fp_vrf_record *g_fp_vrf_record;
t_fp_label_record *g_fp_label_record;
t_fp_if_record *g_fp_if_record;
t_fp_if_stats *g_fp_if_stats;
uint16_t *g_fp_if_hash_record;
t_fp_tun_record *g_fp_tun_record;
uint16_t *g_fp_tun_hash_record;
t_fp_arp_record *g_fp_arp_record;
uint16_t *g_fp_arp_hash_record;
t_fp_nh_record *g_fp_nh_record;
t_fp_classifier_record *g_fp_classifier_record;
t_fp_policer *g_fp_policer;
t_fp_rewrite_record *g_fp_rewrite_record;
t_fp_fc_to_q_map *g_fp_fc_to_q_map;
t_fib_block *g_fib_block;
t_fib_large_block *g_fib_large_block;
t_fp_global_ctrl *g_fp_global_ctrl;
t_fp_global_stats *g_fp_global_stats;
t_fp_per_core_data *g_fp_per_core_data;
t_fp_inbound_sa_record *g_fp_inbound_sa_record;
t_fp_sub_inbound_sa_record *g_fp_sub_inbound_sa_record;
uint16_t *g_fp_inbound_sa_hash_record;
uint16_t *g_fp_sub_inbound_sa_hash_record;
uint16_t *g_fp_sub_inbound_rfc_sa_hash_record;
t_fp_outbound_sa_record *g_fp_outbound_sa_record;
t_fp_bfd_record *g_fp_bfd_record;
uint16_t *g_fp_bfd_hash_record;
t_tarn_filter_mem_block *g_fp_filter_mem_block;
t_tarn_filter *g_fp_filter;
t_fp_profiler *g_fp_profiler;
uint16_t *g_fp_ctrl_tun_hash_record;
t_fp_ctrl_tun_record *g_fp_ctrl_tun_record;
uint16_t *g_fp_mcast_group_hash_record;
t_fp_nat_if_record *g_fp_nat_if_record;
t_fp_nat_port_fwd_record *g_fp_nat_port_fwd_record;
t_fp_nat_map_record *g_fp_nat_map_record;
uint32_t *g_fp_nat_map_hash_record;
t_fp_nat_filter_record *g_fp_nat_filter_record;
uint32_t *g_fp_nat_filter_outbound_hash_record;
uint32_t *g_fp_nat_filter_inbound_hash_record;
t_fp_ipfrag_record *g_fp_ipfrag_record[FP_MAX_CORES];
uint32_t *g_fp_ipfrag_hash_record[FP_MAX_CORES];
t_fp_mcast_group_record *g_fp_mcast_group_record;
uint16_t *g_fp_tundb_hash_record;
t_fp_tundb_record *g_fp_tundb_record;
t_fp_mcast_stats *g_fp_mcast_stats;
t_fp_path_record *g_fp_path_record;
t_fp_path_ext_record *g_fp_path_ext_record;
t_fp_flow_record *g_fp_flow_record;
uint32_t *g_fp_flow_hash_record;
t_fib6_block *g_fib6_block;
t_fp_bridge_record *g_fp_bridge_record;
t_fp_bridge_mac_stats *g_fp_bridge_mac_stats;
t_fp_mac_record *g_fp_mac_record;
uint16_t *g_fp_bridge_id_to_record_map;
uint32_t *g_fp_bridge_mac_hash_record;
t_fp_debug_record *g_fp_debug_record;
uint8_t *g_fp_dpi_mem_block;
uint32_t *g_fp_dpi_proto_family_mapping;
uint32_t *g_fp_dpi_proto_hits;
uint32_t *g_fp_dpi_enable_knob;
t_fp_dpi_stats *g_fp_dpi_stats;
t_fp_dpi_flow_stat_node *g_fp_dpi_flow_stat_node;
t_fp_nat_pool_record *g_fp_nat_pool_record;
t_fp_filter_log_config *g_fp_filter_log_config;
uint32_t *g_fp_filter_flow_enable_knob;
t_fp_fpa_pool *g_fp_fpa_pool;
t_fp_app_tunnel_record *g_fp_app_tunnel_record;
t_fp_cxp_record *g_fp_cxp_record;
uint16_t *g_fp_cxp_hash_record;
t_fp_server_appid_record *g_fp_server_appid_record;
uint16_t *g_fp_server_appid_hash_record;
uint32_t *g_fp_tcpopt_hash_record;
uint32_t *g_fp_tcpopt_ss_hash_record;
t_fp_tcpopt_record *g_fp_tcpopt_record;
t_fp_sub_inbound_sa_record *g_fp_sub_inbound_rfc_sa_record;
t_fp_pkt_dup_rx_tbl *g_fp_pkt_dup_rx_tbl;
t_fp_fec_blockchain *g_fp_fec_blockchain;
t_fp_zbf_flow_record *g_fp_zbf_flow_record;
uint32_t *g_fp_zbf_flow_hash_record;
t_fp_ipfrag_record *g_fp_zbf_ipfrag_record[FP_MAX_CORES];
uint32_t *g_fp_zbf_ipfrag_hash_record[FP_MAX_CORES];
t_fp_zbf_pair_record *g_fp_zbf_pair_record;
uint32_t *g_fp_zbf_pair_hash_record;
t_fp_vpn_zone_record *g_fp_vpn_zone_record;
uint32_t *g_fp_vpn_zone_hash_record;
t_fp_cft_hbucket *g_fp_cft_hbucket;
t_fp_cft_sess *g_fp_cft_sess;
t_fp_cft_active_list *g_fp_cft_active_list;

// ---- The list ----

// The walk stores an address of another type through pp_rec_tbl, by its bytes.
#define TABLE(global, field, name)                                                                           \
    {                                                                                                        \
        reinterpret_cast<void **>(&(global)), sizeof(*(global)), &g_fp_scaling.field, name, false            \
    }
#define CORE_TABLE(global, field, name)                                                                      \
    {                                                                                                        \
        reinterpret_cast<void **>(&(global)[0]), sizeof(*(global)[0]), &g_fp_scaling.field, name, true       \
    }

// clang-format off
const t_fp_shmem g_shmem_tbl[] = {
    // 0
    TABLE(g_fp_shmem_info, shmem_info_tbl_size, "fp_shmem_info"),
    TABLE(g_fp_port_record, num_port_records, "fp_port_record"),
    TABLE(g_fp_port_stats, num_port_records, "fp_port_stats"),
    TABLE(g_fp_vrf_record, num_vrfs, "fp_vrf"),
    TABLE(g_fp_label_record, num_label_records, "fp_label"),
    TABLE(g_fp_if_record, num_if_records, "fp_if"),
    TABLE(g_fp_if_stats, num_if_records, "fp_if_stats"),
    TABLE(g_fp_if_hash_record, num_if_records, "fp_if_hash"),
    TABLE(g_fp_tun_record, num_tunnel_records, "fp_tun"),
    TABLE(g_fp_tun_hash_record, num_tunnel_records, "fp_tun_hash"),
    // 10
    TABLE(g_fp_arp_record, num_arp_records, "fp_arp"),
    TABLE(g_fp_arp_hash_record, num_arp_records, "fp_arp_hash"),
    TABLE(g_fp_nh_record, num_nh_records, "fp_nh"),
    TABLE(g_fp_classifier_record, num_classifiers, "fp_classifier"),
    TABLE(g_fp_policer, num_policers, "fp_policer"),
    TABLE(g_fp_rewrite_record, num_rewrites, "fp_rewrite"),
    TABLE(g_fp_fc_to_q_map, num_fc_to_q_map, "fc_to_q_map"),
    TABLE(g_fib_block, num_fib_blocks, "fib_block"),
    TABLE(g_fib_large_block, num_large_fib_blocks, "fib_large_block"),
    TABLE(g_fp_global_ctrl, num_global_ctrl, "fp-global-ctrl"),
    // 20
    TABLE(g_fp_global_stats, num_global_stats, "fp_global_stats"),
    TABLE(g_fp_per_core_data, num_per_core_data, "fp_per_core_data"),
    TABLE(g_fp_inbound_sa_record, num_inbound_sa_records, "fp_inbound_sa_records"),
    TABLE(g_fp_sub_inbound_sa_record, num_sub_inbound_sa_records, "fp_sub_inbound_sa_records"),
    TABLE(g_fp_inbound_sa_hash_record, num_inbound_sa_records, "fp_inbound_sa_hash_table"),
    TABLE(g_fp_sub_inbound_sa_hash_record, num_sub_inbound_sa_records, "fp_sub_inbound_sa_hash_table"),
    TABLE(g_fp_sub_inbound_rfc_sa_hash_record, num_sub_inbound_rfc_sa_records,
          "fp_sub_inbound_sa_hash_table"),
    TABLE(g_fp_outbound_sa_record, num_outbound_sa_records, "fp_outbound_sa_records"),
    TABLE(g_fp_bfd_record, num_bfd_records, "fp_bfd_records"),
    TABLE(g_fp_bfd_hash_record, num_bfd_records, "fp_bfd_hash_records"),
    // 30
    TABLE(g_fp_filter_mem_block, num_filter_blocks, "fp_filter_mem"),
    TABLE(g_fp_filter, num_filters, "fp_filters"),
    TABLE(g_fp_profiler, num_fp_profilers, "fp_profiler"),
    TABLE(g_fp_ctrl_tun_hash_record, num_ctrl_tunnel_records, "fp_ctrl_tun_hash"),
    TABLE(g_fp_ctrl_tun_record, num_ctrl_tunnel_records, "fp_ctrl_tun"),
    TABLE(g_fp_mcast_group_hash_record, num_mcast_hash_buckets, "fp_mcast_group_hash"),
    TABLE(g_fp_nat_if_record, num_if_records, "fp_nat_if"),
    TABLE(g_fp_nat_port_fwd_record, size_nat_port_fwd, "nat-port-fwd"),
    TABLE(g_fp_nat_map_record, num_nat_map_records, "fp_nat_map"),
    TABLE(g_fp_nat_map_hash_record, num_nat_map_hash_records, "fp_nat_map_hash"),
    // 40
    TABLE(g_fp_nat_filter_record, num_nat_filter_records, "fp_nat_filter"),
    TABLE(g_fp_nat_filter_outbound_hash_record, num_nat_filter_hash_records, "fp_nat_filter_outbound_hash"),
    TABLE(g_fp_nat_filter_inbound_hash_record, num_nat_filter_hash_records, "fp_nat_filter_outbound_hash"),
    CORE_TABLE(g_fp_ipfrag_record, num_ip_fragment_records_per_core, "fp_ipfrag"),
    CORE_TABLE(g_fp_ipfrag_hash_record, num_ip_frag_hash_records_per_core, "fp_ipfrag_hash"),
    TABLE(g_fp_mcast_group_record, num_mcast_group_records, "fp_mcast_group"),
    TABLE(g_fp_tundb_hash_record, num_tundb_hash_buckets, "fp_tundb_hash"),
    TABLE(g_fp_tundb_record, num_tundb_records, "fp_tundb"),
    TABLE(g_fp_mcast_stats, num_mcast_group_records, "fp_mcast_stats"),
    TABLE(g_fp_path_record, num_path_records, "fp_path_records"),
    // 50
    TABLE(g_fp_path_ext_record, num_path_ext_records, "fp_path_ext_records"),
    TABLE(g_fp_flow_record, num_flow_records, "fp_flow"),
    TABLE(g_fp_flow_hash_record, num_flow_hash_records, "fp_flow_hash"),
    TABLE(g_fib6_block, num_fib6_blocks, "fib6_block"),
    TABLE(g_fp_bridge_record, num_bridge_records, "fp_bridge_record"),
    TABLE(g_fp_bridge_mac_stats, num_bridge_records, "fp_bridge_mac_stats_table"),
    TABLE(g_fp_mac_record, num_mac_entries, "fp_mac_record"),
    TABLE(g_fp_bridge_id_to_record_map, num_bridges, "fp_bridge_id_to_record_map"),
    TABLE(g_fp_bridge_mac_hash_record, num_total_bridge_mac_hash_buckets, "fp_bridge_mac_hash_table"),
    TABLE(g_fp_debug_record, num_pkt_hist, "debug_records"),
    // 60
    TABLE(g_fp_dpi_mem_block, dpi_named_block_size, "fp_dpi_qosmos_mem_block"),
    TABLE(g_fp_dpi_proto_family_mapping, num_dpi_proto_family_mapping_entries, "fp_dpi_proto_family_mapping"),
    TABLE(g_fp_dpi_proto_hits, num_dpi_proto_hits, "fp_dpi_proto_hits"),
    TABLE(g_fp_dpi_enable_knob, num_dpi_enable_knob, "DPI App Visibility knob"),
    TABLE(g_fp_dpi_stats, num_dpi_stats_tbl, "DPI Stats tbl"),
    TABLE(g_fp_dpi_flow_stat_node, num_dpi_flow_nodes, "dpi_flow_stat_node"),
    TABLE(g_fp_nat_pool_record, num_nat_pools, "nat-pool"),
    TABLE(g_fp_filter_log_config, num_filter_log_counter, "Filter Log Configuration"),
    TABLE(g_fp_filter_flow_enable_knob, num_filter_flow_enable_knob, "Filter Flow visibility knob"),
    TABLE(g_fp_fpa_pool, num_fpa_pools, "FPA pool state"),
    // 70
    TABLE(g_fp_app_tunnel_record, num_tun_avls, "App id to tunnel mapping for Bitronku"),
    TABLE(g_fp_cxp_record, num_cxp_records, "VRID to App id mapping for Bitronku"),
    TABLE(g_fp_cxp_hash_record, num_cxp_records, "VRID to App id mapping for Bitronku"),
    TABLE(g_fp_server_appid_record, num_server_appids, "Server info to appid mapping"),
    TABLE(g_fp_server_appid_hash_record, num_server_appids, "Server info to appid mapping hash"),
    TABLE(g_fp_tcpopt_hash_record, num_tcpopt_hash_records, "Tcp opt flow table hash"),
    TABLE(g_fp_tcpopt_ss_hash_record, num_tcpopt_ss_hash_records, "Tcp opt server splice hash"),
    TABLE(g_fp_tcpopt_record, num_tcpopt_records, "Tcp Opt flow table"),
    TABLE(g_fp_sub_inbound_rfc_sa_record, num_sub_inbound_rfc_sa_records, "fp_sub_inbound_rfc_sa_records"),
    TABLE(g_fp_pkt_dup_rx_tbl, num_pkt_dup_rx_tables, "fp_pkt_dup_rx_tbl"),
    // 80
    TABLE(g_fp_fec_blockchain, num_fec_blockchains, "fp_fec_blockchains"),
    TABLE(g_fp_zbf_flow_record, num_zbf_flow_records, "fp_zbf_flow"),
    TABLE(g_fp_zbf_flow_hash_record, num_zbf_flow_hash_records, "fp_zbf_flow_hash"),
    CORE_TABLE(g_fp_zbf_ipfrag_record, num_ip_fragment_records_per_core, "fp_zbf_ipfrag"),
    CORE_TABLE(g_fp_zbf_ipfrag_hash_record, num_ip_frag_hash_records_per_core, "fp_zbf_ipfrag_hash"),
    TABLE(g_fp_zbf_pair_record, num_zbf_pair_records, "fp_zbf_pair_record"),
    TABLE(g_fp_zbf_pair_hash_record, num_zbf_pair_hash_records, "fp_zbf_pair_hash_table"),
    TABLE(g_fp_vpn_zone_record, num_vpn_zone_records, "fp_vpn_zone_record"),
    TABLE(g_fp_vpn_zone_hash_record, num_vpn_zone_hash_records, "fp_vpn_zone_hash_table"),
    TABLE(g_fp_cft_hbucket, num_cft_hbucket, "fp_cft_hbucket"),
    // 90
    TABLE(g_fp_cft_sess, num_cft_sess, "fp_cft_sess"),
    TABLE(g_fp_cft_active_list, num_cft_active_list, "fp_cft_active_list"),
};
// clang-format on
static_assert(sizeof(g_shmem_tbl) / sizeof(g_shmem_tbl[0]) == FP_NUM_SHMEM_TABLES);

int fp_global_shmem_size()
{
    return FP_NUM_SHMEM_TABLES;
}
