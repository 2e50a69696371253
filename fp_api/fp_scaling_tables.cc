#include "fp_api/fp_scaling.h"

static constexpr int MIB = 1 << 20;

// One row for each field, in the record's order; one column for each model. The tiers: A4 and A3 for machines
// with more than 4 GiB, A2 and B3 above 2.5 GiB, medium and A1 above 1.5 GiB, small and A1_1GB below. B1 has
// A2's memory and medium's traffic. Sizes of hash tables are powers of two. The sum of all tables stays below
// app_named_block_size with the greatest number of cores that a machine can have.
//
// clang-format off
//           A4, A3, A2, medium, small, A1, A1_1GB, B3, B1
#define FP_SCALING_ROWS(ROW)                                                                                 \
    /* The block itself, in bytes. */                                                                        \
    ROW(shmem_info_tbl_size, 128, 128, 128, 128, 128, 128, 128, 128, 128)                                    \
    ROW(app_named_block_size, 1536 * MIB, 1536 * MIB, 512 * MIB, 176 * MIB, 100 * MIB,                       \
        176 * MIB, 100 * MIB, 512 * MIB, 512 * MIB)                                                          \
    ROW(dpi_named_block_size, 640 * MIB, 640 * MIB, 128 * MIB, 32 * MIB, 16 * MIB,                           \
        32 * MIB, 16 * MIB, 128 * MIB, 128 * MIB)                                                            \
    /* Ports, interfaces, VPNs, neighbours. Tables with 16-bit links stay below 65535 records. */            \
    ROW(num_port_records, 128, 128, 128, 64, 64, 64, 64, 128, 64)                                            \
    ROW(num_if_records, 4096, 4096, 2048, 1024, 512, 1024, 512, 2048, 1024)                                  \
    ROW(num_vrfs, 512, 512, 256, 128, 64, 128, 64, 256, 128)                                                 \
    ROW(num_label_records, 8192, 8192, 4096, 2048, 1024, 2048, 1024, 4096, 2048)                             \
    ROW(num_arp_records, 16384, 16384, 8192, 4096, 1024, 4096, 1024, 8192, 2048)                             \
    /* Tunnels; one BFD session for each. */                                                                 \
    ROW(num_tunnel_records, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                              \
    ROW(num_ctrl_tunnel_records, 64, 64, 64, 32, 32, 32, 32, 64, 32)                                         \
    ROW(num_bfd_records, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                                 \
    ROW(num_nh_records, 32768, 32768, 16384, 8192, 2048, 8192, 2048, 16384, 8192)                            \
    ROW(num_mcast_group_records, 2048, 2048, 1024, 512, 128, 512, 128, 1024, 512)                            \
    ROW(num_mcast_hash_buckets, 2048, 2048, 1024, 512, 128, 512, 128, 1024, 512)                             \
    ROW(num_tundb_records, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                               \
    ROW(num_tundb_hash_buckets, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                          \
    /* Security associations: both generations of a rekeying live side by side on the receiving end. */      \
    ROW(num_inbound_sa_records, 16384, 16384, 8192, 2048, 512, 2048, 512, 8192, 2048)                        \
    ROW(num_sub_inbound_sa_records, 16384, 16384, 8192, 2048, 512, 2048, 512, 8192, 2048)                    \
    ROW(num_sub_inbound_rfc_sa_records, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                  \
    ROW(num_outbound_sa_records, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                         \
    /* Routes and rewrites. */                                                                               \
    ROW(num_policers, 1024, 1024, 1024, 1024, 256, 1024, 256, 1024, 256)                                     \
    ROW(num_rewrites, 16384, 16384, 8192, 4096, 1024, 4096, 1024, 8192, 4096)                                \
    ROW(num_fib_blocks, 262144, 262144, 131072, 65536, 32768, 65536, 32768, 131072, 65536)                   \
    ROW(num_large_fib_blocks, 16384, 16384, 8192, 4096, 1024, 4096, 1024, 8192, 4096)                        \
    /* Filter memory, in blocks of 128 bytes, and its slots. */                                              \
    ROW(num_filter_blocks, 1048576, 1048576, 1048576, 65536, 6144, 65536, 6144, 1048576, 1048576)            \
    ROW(num_filters, 512, 512, 512, 256, 256, 256, 256, 512, 512)                                            \
    ROW(num_classifiers, 1024, 1024, 1024, 512, 256, 512, 256, 1024, 512)                                    \
    ROW(num_fc_to_q_map, 1024, 1024, 1024, 512, 512, 512, 512, 1024, 512)                                    \
    /* Single records and records of the cores. */                                                           \
    ROW(num_global_ctrl, 1, 1, 1, 1, 1, 1, 1, 1, 1)                                                          \
    ROW(num_global_stats, 1, 1, 1, 1, 1, 1, 1, 1, 1)                                                         \
    ROW(num_per_core_data, 28, 32, 4, 1, 4, 4, 4, 4, 2)                                                      \
    ROW(num_fp_profilers, 64, 64, 64, 64, 64, 64, 64, 64, 64)                                                \
    /* Paths and flows; hash tables have as many heads as records. */                                        \
    ROW(num_path_records, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                                \
    ROW(num_path_ext_records, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                            \
    ROW(num_flow_records, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)                      \
    ROW(num_flow_hash_records, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)                 \
    ROW(num_fib6_blocks, 131072, 131072, 65536, 32768, 16384, 32768, 16384, 65536, 32768)                    \
    ROW(num_pkt_hist, 4096, 4096, 4096, 2048, 1024, 2048, 1024, 4096, 2048)                                  \
    /* Address translation. */                                                                               \
    ROW(num_nat_map_records, 65536, 65536, 32768, 8192, 2048, 8192, 2048, 32768, 4096)                       \
    ROW(num_nat_map_hash_records, 65536, 65536, 32768, 8192, 2048, 8192, 2048, 32768, 4096)                  \
    ROW(num_nat_filter_records, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)                \
    ROW(num_nat_filter_hash_records, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)           \
    ROW(size_nat_port_fwd, 256, 256, 256, 128, 128, 128, 128, 256, 128)                                      \
    /* Reassembly, for each core: small, since a size board may have 255 of them. */                         \
    ROW(num_ip_fragment_records_per_core, 4096, 4096, 2048, 1024, 256, 1024, 256, 2048, 1024)                \
    ROW(num_ip_frag_hash_records_per_core, 4096, 4096, 2048, 1024, 256, 1024, 256, 2048, 1024)               \
    /* Bridging: bridge numbers are below 64. */                                                             \
    ROW(num_mac_entries, 16384, 16384, 8192, 4096, 1024, 4096, 1024, 8192, 4096)                             \
    ROW(num_bridge_mac_hash_buckets, 1024, 1024, 512, 256, 64, 256, 64, 512, 256)                            \
    ROW(num_total_bridge_mac_hash_buckets, 65536, 65536, 32768, 16384, 4096, 16384, 4096, 32768, 16384)      \
    ROW(num_bridges, 64, 64, 64, 64, 64, 64, 64, 64, 64)                                                     \
    ROW(num_bridge_records, 64, 64, 64, 64, 64, 64, 64, 64, 64)                                              \
    /* Zones. */                                                                                             \
    ROW(num_zbf_flow_records, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)                  \
    ROW(num_zbf_flow_hash_records, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)             \
    ROW(num_zbf_pair_records, 1024, 1024, 1024, 512, 256, 512, 256, 1024, 512)                               \
    ROW(num_zbf_pair_hash_records, 1024, 1024, 1024, 512, 256, 512, 256, 1024, 512)                          \
    ROW(num_vpn_zone_records, 1024, 1024, 1024, 512, 256, 512, 256, 1024, 512)                               \
    ROW(num_vpn_zone_hash_records, 1024, 1024, 1024, 512, 256, 512, 256, 1024, 512)                          \
    /* Applications: numbers below 4096, in every model. */                                                  \
    ROW(num_dpi_proto_family_mapping_entries, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096)          \
    ROW(num_dpi_proto_hits, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096)                            \
    ROW(num_dpi_enable_knob, 1, 1, 1, 1, 1, 1, 1, 1, 1)                                                      \
    ROW(num_hugepages, 4096, 512, 256, 128, 64, 128, 64, 256, 64)                                            \
    /* Cores. Where the machine decides, fp_rx_core_num may stay: core 0 is there on every machine. */       \
    ROW(num_cores, 28, 32, 4, 1, 1, 4, 4, 4, 2)                                                              \
    ROW(num_fp_dpi_cores, 26, 30, 3, 1, 1, 3, 3, 3, 1)                                                       \
    ROW(num_ctl_cores, 2, 1, 1, 1, 1, 1, 1, 1, 1)                                                            \
    ROW(min_fp_core_num, 2, 1, 1, 0, 0, 1, 1, 1, 1)                                                          \
    ROW(max_fp_core_num, 27, 31, 3, 0, 3, 3, 3, 3, 1)                                                        \
    ROW(fp_rx_core_num, 1, 0, 0, 0, 0, 0, 0, 0, 0)                                                           \
    ROW(work_grp_per_core_base, 16, 16, 6, 16, 16, 6, 6, 6, 6)                                               \
    ROW(num_per_core_work_grps, 32, 32, 8, 32, 32, 8, 8, 8, 8)                                               \
    /* Inspection. */                                                                                        \
    ROW(num_dpi_max_flows, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)                     \
    ROW(num_dpi_stats_tbl, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096)                             \
    ROW(num_dpi_flow_nodes, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)                    \
    /* Buffers of the forwarding plane. */                                                                   \
    ROW(num_timer_buffers, 65536, 65536, 32768, 8192, 2048, 8192, 2048, 32768, 4096)                         \
    ROW(num_bfd_buffers, 16384, 16384, 8192, 2048, 512, 2048, 512, 8192, 2048)                               \
    ROW(num_pmtu_buffers, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                                \
    ROW(num_small_buffers, 65536, 65536, 32768, 8192, 2048, 8192, 2048, 32768, 4096)                         \
    ROW(num_debug_buffers, 4096, 4096, 4096, 2048, 1024, 2048, 1024, 4096, 2048)                             \
    ROW(num_nat_pools, 64, 64, 64, 32, 32, 32, 32, 64, 32)                                                   \
    ROW(num_filter_log_counter, 1, 1, 1, 1, 1, 1, 1, 1, 1)                                                   \
    ROW(num_filter_flow_enable_knob, 1, 1, 1, 1, 1, 1, 1, 1, 1)                                              \
    ROW(num_fpa_pools, 8, 8, 8, 8, 8, 8, 8, 8, 8)                                                            \
    ROW(num_tun_avls, 8192, 8192, 4096, 1024, 256, 1024, 256, 4096, 1024)                                    \
    /* Derived again when the table is taken: 64 for each VPN. */                                            \
    ROW(num_cxp_records, 32768, 32768, 16384, 8192, 4096, 8192, 4096, 16384, 8192)                           \
    ROW(num_server_appids, 8192, 8192, 4096, 2048, 1024, 2048, 1024, 4096, 2048)                             \
    /* TCP optimisation: one flow of eight. */                                                               \
    ROW(num_tcpopt_hash_records, 16384, 16384, 8192, 2048, 512, 2048, 512, 8192, 1024)                       \
    ROW(num_tcpopt_ss_hash_records, 16384, 16384, 8192, 2048, 512, 2048, 512, 8192, 1024)                    \
    ROW(num_tcpopt_records, 16384, 16384, 8192, 2048, 512, 2048, 512, 8192, 1024)                            \
    /* num_fec_blockchains and num_pkt_dup_rx_tables are derived again, too: one for 32 tunnels. */          \
    ROW(num_fec_blockchains, 256, 256, 128, 32, 8, 32, 8, 128, 32)                                           \
    ROW(num_local_domains_cfg, 64, 64, 64, 32, 32, 32, 32, 64, 32)                                           \
    ROW(num_pkt_dup_rx_tables, 256, 256, 128, 32, 8, 32, 8, 128, 32)                                         \
    ROW(num_cft_hbucket, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)                       \
    ROW(num_cft_sess, 131072, 131072, 65536, 16384, 4096, 16384, 4096, 65536, 8192)                          \
    ROW(num_cft_active_list, 64, 64, 64, 64, 64, 64, 64, 64, 64)
// clang-format on

#define PICK_A4(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = a4,
#define PICK_A3(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = a3,
#define PICK_A2(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = a2,
#define PICK_MEDIUM(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = medium,
#define PICK_SMALL(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = small,
#define PICK_A1(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = a1,
#define PICK_A1_1GB(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = a1_1gb,
#define PICK_B3(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = b3,
#define PICK_B1(field, a4, a3, a2, medium, small, a1, a1_1gb, b3, b1) .field = b1,

const t_fp_scaling_params g_fp_scaling_Pylon_A4 = {FP_SCALING_ROWS(PICK_A4)};
const t_fp_scaling_params g_fp_scaling_Pylon_A3 = {FP_SCALING_ROWS(PICK_A3)};
const t_fp_scaling_params g_fp_scaling_Pylon_A2 = {FP_SCALING_ROWS(PICK_A2)};
const t_fp_scaling_params g_fp_scaling_Pylon_medium = {FP_SCALING_ROWS(PICK_MEDIUM)};
const t_fp_scaling_params g_fp_scaling_Pylon_small = {FP_SCALING_ROWS(PICK_SMALL)};
const t_fp_scaling_params g_fp_scaling_Pylon_A1 = {FP_SCALING_ROWS(PICK_A1)};
const t_fp_scaling_params g_fp_scaling_Pylon_A1_1GB = {FP_SCALING_ROWS(PICK_A1_1GB)};
const t_fp_scaling_params g_fp_scaling_mocha_B3 = {FP_SCALING_ROWS(PICK_B3)};
const t_fp_scaling_params g_fp_scaling_mocha_B1 = {FP_SCALING_ROWS(PICK_B1)};
