// How big the shared tables are on this machine.
//
// g_fp_scaling is filled once, by fp_scaling_init, from one of the model tables: fixed boards have a table of
// their own and keep its core layout; on all others memory decides (or the size file), and the cores are
// taken from the machine. Every process that maps the block must come to the same numbers. After start-up the
// record is read-only but for fp_readjust_num_cores. num_filters used as a filter id means that no program
// could be allocated. Main thread only.
//
// A count of 0 is not allowed: every table of the block must have a size.
#pragma once

#include <cstdint>

struct t_fp_scaling_params {
    int shmem_info_tbl_size;
    int app_named_block_size;  // bytes
    int dpi_named_block_size;  // bytes
    int num_port_records;
    int num_if_records;  // a power of two
    int num_vrfs;        // a power of two
    int num_label_records;
    int num_arp_records;  // a power of two
    int num_tunnel_records;
    int num_ctrl_tunnel_records;
    int num_bfd_records;
    int num_nh_records;
    int num_mcast_group_records;
    int num_mcast_hash_buckets;
    int num_tundb_records;
    int num_tundb_hash_buckets;
    int num_inbound_sa_records;
    int num_sub_inbound_sa_records;
    int num_sub_inbound_rfc_sa_records;
    int num_outbound_sa_records;
    int num_policers;
    int num_rewrites;
    int num_fib_blocks;
    int num_large_fib_blocks;
    int num_filter_blocks;
    int num_filters;
    int num_classifiers;
    int num_fc_to_q_map;
    int num_global_ctrl;
    int num_global_stats;
    int num_per_core_data;
    int num_fp_profilers;
    int num_path_records;
    int num_path_ext_records;
    int num_flow_records;
    int num_flow_hash_records;
    int num_fib6_blocks;
    int num_pkt_hist;
    int num_nat_map_records;
    int num_nat_map_hash_records;
    int num_nat_filter_records;
    int num_nat_filter_hash_records;
    int size_nat_port_fwd;
    int num_ip_fragment_records_per_core;
    int num_ip_frag_hash_records_per_core;
    int num_mac_entries;
    int num_bridge_mac_hash_buckets;        // of one bridge
    int num_total_bridge_mac_hash_buckets;  // of all bridges
    int num_bridges;
    int num_bridge_records;
    int num_zbf_flow_records;
    int num_zbf_flow_hash_records;
    int num_zbf_pair_records;
    int num_zbf_pair_hash_records;
    int num_vpn_zone_records;
    int num_vpn_zone_hash_records;
    int num_dpi_proto_family_mapping_entries;
    int num_dpi_proto_hits;
    int num_dpi_enable_knob;
    uint32_t num_hugepages;
    uint8_t num_cores;
    uint8_t num_fp_dpi_cores;
    uint8_t num_ctl_cores;
    uint8_t min_fp_core_num;
    uint8_t max_fp_core_num;
    uint8_t fp_rx_core_num;
    uint8_t work_grp_per_core_base;
    uint8_t num_per_core_work_grps;
    int num_dpi_max_flows;
    int num_dpi_stats_tbl;
    int num_dpi_flow_nodes;
    int num_timer_buffers;
    int num_bfd_buffers;
    int num_pmtu_buffers;
    int num_small_buffers;
    int num_debug_buffers;
    int num_nat_pools;
    int num_filter_log_counter;
    int num_filter_flow_enable_knob;
    int num_fpa_pools;
    int num_tun_avls;
    int num_cxp_records;
    int num_server_appids;
    int num_tcpopt_hash_records;
    int num_tcpopt_ss_hash_records;
    int num_tcpopt_records;
    int num_fec_blockchains;
    int num_local_domains_cfg;
    int num_pkt_dup_rx_tables;
    int num_cft_hbucket;
    int num_cft_sess;
    int num_cft_active_list;
};

extern t_fp_scaling_params g_fp_scaling;

// ---- Model tables (fp_scaling_tables.cc). No board selects the two A1 tables here. ----

extern const t_fp_scaling_params g_fp_scaling_Pylon_A4;
extern const t_fp_scaling_params g_fp_scaling_Pylon_A3;
extern const t_fp_scaling_params g_fp_scaling_Pylon_A2;
extern const t_fp_scaling_params g_fp_scaling_Pylon_medium;
extern const t_fp_scaling_params g_fp_scaling_Pylon_small;
extern const t_fp_scaling_params g_fp_scaling_Pylon_A1;
extern const t_fp_scaling_params g_fp_scaling_Pylon_A1_1GB;
extern const t_fp_scaling_params g_fp_scaling_mocha_B3;
extern const t_fp_scaling_params g_fp_scaling_mocha_B1;

// ---- Set up ----

// Fills g_fp_scaling for a board type (e_cvmx_board_type) and writes the number of huge pages for the next
// boot. Does nothing while the record is filled.
void fp_scaling_init(int board_type);

// ---- The machine's size ----

enum e_fp_pylon_size {
    FP_PYLON_SIZE_SMALL = 1,
    FP_PYLON_SIZE_REGULAR = 2,
    FP_PYLON_SIZE_LARGE = 3,
    FP_PYLON_SIZE_ABOVE_4GB = 4,
};

// By "large", "regular" or "small" in /etc/default/sim_size, searched for in that order in its first 64
// bytes, else by the RAM. The file never gives FP_PYLON_SIZE_ABOVE_4GB.
e_fp_pylon_size fp_get_pylon_size();

// All RAM, in bytes.
uint64_t fp_get_ram_size();

// Huge pages, of 4 MiB each, that the RAM allows above the table's own number; 0 for the two big sizes.
uint64_t fp_get_extra_hugepage_size(e_fp_pylon_size size);

// Writes the number to /boot/hugepage.conf. A file that can't be opened is passed over.
void fp_set_pylon_hugepage_reserve(uint32_t pages);
