// The one record of "fp-global-ctrl": flags, maps, limits and list heads of the forwarding plane.
//
// The forwarding plane owns nearly all of it. The daemon waits on is_hw_initialized (byte 25, bit 2; re-read
// it through a volatile pointer), reads the work-group maps, keeps the heads of the zone tables' free lists
// and the flags zbf_enabled and zone_no_zone_inet, and counts fp_cft_policy_gen_num up. Flags of one byte are
// written by read and write of the byte, so two processes must not write flags of one byte at one time.
// Pointers are addresses of the process that wrote them. All offsets are binding; bit fields run from the
// lowest bit up; native byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "common/dll.h"
#include "fp_api/fp_ipaddr.h"
#include "fp_api/fp_types.h"
#include "libcvmx/sim/cvmx-spinlock.h"

struct t_fp_nat_filter_record;
struct t_fp_tcpopt_record;
struct t_fp_fec_blockchain;
struct t_fp_pkt_dup_rx_tbl;
struct t_fp_zbf_flow_record;
struct t_fp_zbf_pair_record;
struct t_fp_vpn_zone_record;
struct t_ftm_policer_instance;
struct qmdpi_engine;
struct qmdpi_worker;
struct qmdpi_bundle;

inline constexpr size_t FP_DEBUG_TOPICS = 22;
inline constexpr size_t FP_MAX_ADDED_PORTS = 72;

// Which packets the forwarding plane traces, and how much it says. A zero field is no condition. Only the
// size is agreed with other processes; the fields are this tree's own.
struct t_fp_debug_ctrl {
    uint32_t topics;  // bit mask
    uint32_t level;
    t_hw_ifindex ifindex;
    t_vrid vrid;
    t_fp_ipaddr src_ip;
    t_fp_ipaddr dst_ip;
    uint16_t src_port;
    uint16_t dst_port;
    uint8_t proto;
    uint8_t direction;
    uint16_t reserved0;
    uint32_t packet_limit;  // stop after so many packets
    uint32_t packet_count;
    uint32_t topic_level[FP_DEBUG_TOPICS];
};
static_assert(sizeof(t_fp_debug_ctrl) == 156);
static_assert(std::is_standard_layout_v<t_fp_debug_ctrl>);

struct t_fp_global_ctrl {
    uint16_t loopback_base_port;
    uint16_t loopback_num_ports;
    uint16_t outbound_loopback_base_port;
    uint16_t outbound_loopback_num_ports;
    uint16_t inbound_loopback_base_port;
    uint16_t inbound_loopback_num_ports;
    uint16_t loopback_base_ipd_port;
    uint16_t irb_portid;
    uint16_t tolmen_server_port;
    uint16_t fp_cft_policy_gen_num;  // generation number of policy
    uint16_t cft_policy_cache_disable;
    uint16_t cft_policy_dscp_disable;
    uint8_t mbox_hi_pri_ctrl_pkt_enqd;

    uint8_t tolmen_local : 1;  // byte 25
    uint8_t pkt_hist_enabled : 1;
    uint8_t is_hw_initialized : 1;
    uint8_t is_cp_initialized : 1;
    uint8_t clear_fp_profile : 1;
    uint8_t global_init_complete : 1;
    uint8_t disable_dpi : 1;
    uint8_t disable_mcore_dpi : 1;

    uint8_t ip_forwarding : 1;  // byte 26
    uint8_t fpa_buf_checks_enabled : 1;
    uint8_t fpa_buf_checks_genid : 6;

    uint8_t cft_enable : 1;  // byte 27
    uint8_t implicit_acl_logging : 1;
    uint8_t sw_pylon_cpu_load_balance : 1;
    uint8_t sw_pylon_run_slow : 1;
    uint8_t fp_shutdown : 1;
    uint8_t fp_core_hash_rr : 1;
    uint8_t dpi_disable_track_tx : 1;
    uint8_t dpi_disable_flow_visibility : 1;

    uint8_t unpin_flows : 1;  // byte 28
    uint8_t zbf_enabled : 1;
    uint8_t zone_no_zone_inet : 1;
    uint8_t fec_seq_sparse : 5;

    uint8_t fec_session_id : 2;  // byte 29
    uint8_t timer_init_barrier : 1;
    uint8_t fec_init_done : 1;
    uint8_t pkt_dup_init_done : 1;
    uint8_t enable_anchor_wan_tunnel_pkts : 1;
    uint8_t unused : 2;

    uint8_t fec_introduce_loss;
    uint8_t fec_seq_sparse_pow;
    uint8_t cft_sess_free_bunch;
    uint8_t reserved0[3];
    int policer_spinlock;
    t_hw_ifindex host_nat_ifindex;
    t_fp_ipaddr host_nat_ipaddr;
    t_hw_ifindex host_vit_ifindex;
    uint32_t replay_window_size;
    int32_t max_mcast_pkts_in_pipeline;
    int32_t num_mcast_pkts_in_pipeline;
    int32_t flood_pkt_threshold;
    int32_t fp_qos_interval;
    int32_t fp_qos_weight_percent_factor;
    int32_t fp_qos_scaled_min_llq_bw;
    int32_t num_flows_active;
    int32_t num_tcpopt_opt_limit;
    int32_t num_tcpopt_purge_wait;
    int32_t num_tcpopt_expired;
    int32_t num_tcpopt_init;
    int32_t num_tcpopt_opt;
    int32_t num_tcpopt_pt;
    uint32_t tcpopt_purge_wait_intvl;
    uint32_t tcpopt_state_intvl;
    uint32_t tcpopt_inactive_intvl;
    uint32_t tcpopt_init_limit;
    uint32_t flow_sampling_frequency;
    uint32_t flow_rx_pkts;
    uint8_t work_grp_to_core[FP_MAX_WORK_GRPS];
    uint8_t work_grp_from_core[FP_MAX_GRP_CORES];
    int64_t epoch_delta_msecs;  // what turns the clock's milliseconds into those since 1970
    uint64_t clock_rate;        // ticks of a second
    int32_t zbf_tcp_synflood_limit;
    int32_t zbf_tcp_synflood_count;
    int32_t zbf_synflood_alerted;
    cvmx_spinlock_t zbf_flow_lock;
    t_dll nat_map_free_list;
    t_dll nat_map_delete_list;
    cvmx_spinlock_t nat_map_lock;
    uint32_t reserved1;
    t_fp_nat_filter_record *nat_filter_free_list;
    t_fp_tcpopt_record *tcpopt_free_list;
    t_fp_fec_blockchain *fec_blockchain_free_list;
    t_fp_pkt_dup_rx_tbl *pkt_dup_tbl_free_list;
    t_fp_zbf_flow_record *zbf_flow_free_list;
    t_fp_zbf_pair_record *zbf_pair_free_list;
    t_fp_vpn_zone_record *vpn_zone_free_list;
    t_fp_debug_ctrl debug;
    bool x86_qos_enabled;
    bool x86_qos_service_side;
    bool x86_qat_enabled;
    uint8_t reserved2;
    t_vrid speedtest_vrid;
    uint16_t speedtest_local_color;
    uint16_t speedtest_remote_tloc;
    uint16_t speedtest_remote_label;
    t_vrid pcap_vrid;
    t_vrid pcap_fwd_vrid;
    uint16_t pcap_flags;
    uint16_t reserved3;
    uint32_t pcap_iff;
    uint32_t pcap_pcount;
    t_fp_ipaddr pcap_srcip;
    t_fp_ipaddr pcap_dstip;
    uint16_t pcap_sport;
    uint16_t pcap_dport;
    uint8_t pcap_proto;
    uint8_t reserved4[3];
    int total_no_of_cores;
    uint32_t pool0_cur_available;
    uint32_t pkt_drop_pool_thr;
    uint32_t fp_port_bp_threshold;
    uint32_t added_ports[FP_MAX_ADDED_PORTS];
    uint16_t num_added_ports;
    uint8_t qos_drop_level;
    uint8_t sw_red_drop_qos_level;
    uint32_t reserved5;
    t_ftm_policer_instance *tcpopt_syn_policer;
    uint32_t tcpopt_syn_policer_id;
    uint32_t reserved6;
    t_ftm_policer_instance *tcpopt_data_policer;
    uint32_t tcpopt_data_policer_id;
    uint32_t num_tcpopt_tcp_ctrl_pkt_limit;
    uint32_t num_tcpopt_tcp_data_tput_limit;
    uint8_t tcpd_debug_level;
    uint8_t max_ixeng_pkts;
    uint16_t reserved7;
    qmdpi_engine *engine;
    qmdpi_worker *worker[FP_MAX_GRP_CORES];
    qmdpi_bundle *bundle;
};
static_assert(sizeof(t_fp_global_ctrl) == 1240);
static_assert(std::is_standard_layout_v<t_fp_global_ctrl>);
static_assert(offsetof(t_fp_global_ctrl, loopback_base_port) == 0);
static_assert(offsetof(t_fp_global_ctrl, loopback_num_ports) == 2);
static_assert(offsetof(t_fp_global_ctrl, outbound_loopback_base_port) == 4);
static_assert(offsetof(t_fp_global_ctrl, outbound_loopback_num_ports) == 6);
static_assert(offsetof(t_fp_global_ctrl, inbound_loopback_base_port) == 8);
static_assert(offsetof(t_fp_global_ctrl, inbound_loopback_num_ports) == 10);
static_assert(offsetof(t_fp_global_ctrl, loopback_base_ipd_port) == 12);
static_assert(offsetof(t_fp_global_ctrl, irb_portid) == 14);
static_assert(offsetof(t_fp_global_ctrl, tolmen_server_port) == 16);
static_assert(offsetof(t_fp_global_ctrl, fp_cft_policy_gen_num) == 18);
static_assert(offsetof(t_fp_global_ctrl, cft_policy_cache_disable) == 20);
static_assert(offsetof(t_fp_global_ctrl, cft_policy_dscp_disable) == 22);
static_assert(offsetof(t_fp_global_ctrl, mbox_hi_pri_ctrl_pkt_enqd) == 24);
static_assert(offsetof(t_fp_global_ctrl, fec_introduce_loss) == 30);
static_assert(offsetof(t_fp_global_ctrl, fec_seq_sparse_pow) == 31);
static_assert(offsetof(t_fp_global_ctrl, cft_sess_free_bunch) == 32);
static_assert(offsetof(t_fp_global_ctrl, policer_spinlock) == 36);
static_assert(offsetof(t_fp_global_ctrl, host_nat_ifindex) == 40);
static_assert(offsetof(t_fp_global_ctrl, host_nat_ipaddr) == 42);
static_assert(offsetof(t_fp_global_ctrl, host_vit_ifindex) == 62);
static_assert(offsetof(t_fp_global_ctrl, replay_window_size) == 64);
static_assert(offsetof(t_fp_global_ctrl, max_mcast_pkts_in_pipeline) == 68);
static_assert(offsetof(t_fp_global_ctrl, num_mcast_pkts_in_pipeline) == 72);
static_assert(offsetof(t_fp_global_ctrl, flood_pkt_threshold) == 76);
static_assert(offsetof(t_fp_global_ctrl, fp_qos_interval) == 80);
static_assert(offsetof(t_fp_global_ctrl, fp_qos_weight_percent_factor) == 84);
static_assert(offsetof(t_fp_global_ctrl, fp_qos_scaled_min_llq_bw) == 88);
static_assert(offsetof(t_fp_global_ctrl, num_flows_active) == 92);
static_assert(offsetof(t_fp_global_ctrl, num_tcpopt_opt_limit) == 96);
static_assert(offsetof(t_fp_global_ctrl, num_tcpopt_purge_wait) == 100);
static_assert(offsetof(t_fp_global_ctrl, num_tcpopt_expired) == 104);
static_assert(offsetof(t_fp_global_ctrl, num_tcpopt_init) == 108);
static_assert(offsetof(t_fp_global_ctrl, num_tcpopt_opt) == 112);
static_assert(offsetof(t_fp_global_ctrl, num_tcpopt_pt) == 116);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_purge_wait_intvl) == 120);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_state_intvl) == 124);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_inactive_intvl) == 128);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_init_limit) == 132);
static_assert(offsetof(t_fp_global_ctrl, flow_sampling_frequency) == 136);
static_assert(offsetof(t_fp_global_ctrl, flow_rx_pkts) == 140);
static_assert(offsetof(t_fp_global_ctrl, work_grp_to_core) == 144);
static_assert(offsetof(t_fp_global_ctrl, work_grp_from_core) == 208);
static_assert(offsetof(t_fp_global_ctrl, epoch_delta_msecs) == 240);
static_assert(offsetof(t_fp_global_ctrl, clock_rate) == 248);
static_assert(offsetof(t_fp_global_ctrl, zbf_tcp_synflood_limit) == 256);
static_assert(offsetof(t_fp_global_ctrl, zbf_tcp_synflood_count) == 260);
static_assert(offsetof(t_fp_global_ctrl, zbf_synflood_alerted) == 264);
static_assert(offsetof(t_fp_global_ctrl, zbf_flow_lock) == 268);
static_assert(offsetof(t_fp_global_ctrl, nat_map_free_list) == 272);
static_assert(offsetof(t_fp_global_ctrl, nat_map_delete_list) == 296);
static_assert(offsetof(t_fp_global_ctrl, nat_map_lock) == 320);
static_assert(offsetof(t_fp_global_ctrl, nat_filter_free_list) == 328);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_free_list) == 336);
static_assert(offsetof(t_fp_global_ctrl, fec_blockchain_free_list) == 344);
static_assert(offsetof(t_fp_global_ctrl, pkt_dup_tbl_free_list) == 352);
static_assert(offsetof(t_fp_global_ctrl, zbf_flow_free_list) == 360);
static_assert(offsetof(t_fp_global_ctrl, zbf_pair_free_list) == 368);
static_assert(offsetof(t_fp_global_ctrl, vpn_zone_free_list) == 376);
static_assert(offsetof(t_fp_global_ctrl, debug) == 384);
static_assert(offsetof(t_fp_global_ctrl, x86_qos_enabled) == 540);
static_assert(offsetof(t_fp_global_ctrl, x86_qos_service_side) == 541);
static_assert(offsetof(t_fp_global_ctrl, x86_qat_enabled) == 542);
static_assert(offsetof(t_fp_global_ctrl, speedtest_vrid) == 544);
static_assert(offsetof(t_fp_global_ctrl, speedtest_local_color) == 546);
static_assert(offsetof(t_fp_global_ctrl, speedtest_remote_tloc) == 548);
static_assert(offsetof(t_fp_global_ctrl, speedtest_remote_label) == 550);
static_assert(offsetof(t_fp_global_ctrl, pcap_vrid) == 552);
static_assert(offsetof(t_fp_global_ctrl, pcap_fwd_vrid) == 554);
static_assert(offsetof(t_fp_global_ctrl, pcap_flags) == 556);
static_assert(offsetof(t_fp_global_ctrl, pcap_iff) == 560);
static_assert(offsetof(t_fp_global_ctrl, pcap_pcount) == 564);
static_assert(offsetof(t_fp_global_ctrl, pcap_srcip) == 568);
static_assert(offsetof(t_fp_global_ctrl, pcap_dstip) == 588);
static_assert(offsetof(t_fp_global_ctrl, pcap_sport) == 608);
static_assert(offsetof(t_fp_global_ctrl, pcap_dport) == 610);
static_assert(offsetof(t_fp_global_ctrl, pcap_proto) == 612);
static_assert(offsetof(t_fp_global_ctrl, total_no_of_cores) == 616);
static_assert(offsetof(t_fp_global_ctrl, pool0_cur_available) == 620);
static_assert(offsetof(t_fp_global_ctrl, pkt_drop_pool_thr) == 624);
static_assert(offsetof(t_fp_global_ctrl, fp_port_bp_threshold) == 628);
static_assert(offsetof(t_fp_global_ctrl, added_ports) == 632);
static_assert(offsetof(t_fp_global_ctrl, num_added_ports) == 920);
static_assert(offsetof(t_fp_global_ctrl, qos_drop_level) == 922);
static_assert(offsetof(t_fp_global_ctrl, sw_red_drop_qos_level) == 923);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_syn_policer) == 928);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_syn_policer_id) == 936);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_data_policer) == 944);
static_assert(offsetof(t_fp_global_ctrl, tcpopt_data_policer_id) == 952);
static_assert(offsetof(t_fp_global_ctrl, num_tcpopt_tcp_ctrl_pkt_limit) == 956);
static_assert(offsetof(t_fp_global_ctrl, num_tcpopt_tcp_data_tput_limit) == 960);
static_assert(offsetof(t_fp_global_ctrl, tcpd_debug_level) == 964);
static_assert(offsetof(t_fp_global_ctrl, max_ixeng_pkts) == 965);
static_assert(offsetof(t_fp_global_ctrl, engine) == 968);
static_assert(offsetof(t_fp_global_ctrl, worker) == 976);
static_assert(offsetof(t_fp_global_ctrl, bundle) == 1232);
