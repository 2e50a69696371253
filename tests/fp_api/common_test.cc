#include "fp_api/fp_common.h"

#include <gtest/gtest.h>

#include <cstring>

#include "fp_api/fp_print.h"
#include "libcvmx/sim/_cvmx-clock.h"
#include "libcvmx/sim/sim_log.h"
#include "tests/fp_api/laid_out.h"

// ---- The control record's bits ----

TEST(GlobalCtrl, FlagsRunFromTheLowestBitUp)
{
    static const struct {
        const char *name;
        void (*set)(t_fp_global_ctrl *);
        size_t byte;
        uint8_t mask;
    } cases[] = {
// A field of several bits takes all of them, shifted down to its lowest.
#define FIELD(field, at, bits, shift)                                                                        \
    {#field, [](t_fp_global_ctrl *p) { p->field = (bits) >> (shift); }, at, bits}
        FIELD(tolmen_local, 25, 0x01, 0),
        FIELD(pkt_hist_enabled, 25, 0x02, 1),
        FIELD(is_hw_initialized, 25, 0x04, 2),
        FIELD(is_cp_initialized, 25, 0x08, 3),
        FIELD(clear_fp_profile, 25, 0x10, 4),
        FIELD(global_init_complete, 25, 0x20, 5),
        FIELD(disable_dpi, 25, 0x40, 6),
        FIELD(disable_mcore_dpi, 25, 0x80, 7),
        FIELD(ip_forwarding, 26, 0x01, 0),
        FIELD(fpa_buf_checks_enabled, 26, 0x02, 1),
        FIELD(fpa_buf_checks_genid, 26, 0xfc, 2),
        FIELD(cft_enable, 27, 0x01, 0),
        FIELD(implicit_acl_logging, 27, 0x02, 1),
        FIELD(sw_pylon_cpu_load_balance, 27, 0x04, 2),
        FIELD(sw_pylon_run_slow, 27, 0x08, 3),
        FIELD(fp_shutdown, 27, 0x10, 4),
        FIELD(fp_core_hash_rr, 27, 0x20, 5),
        FIELD(dpi_disable_track_tx, 27, 0x40, 6),
        FIELD(dpi_disable_flow_visibility, 27, 0x80, 7),
        FIELD(unpin_flows, 28, 0x01, 0),
        FIELD(zbf_enabled, 28, 0x02, 1),
        FIELD(zone_no_zone_inet, 28, 0x04, 2),
        FIELD(fec_seq_sparse, 28, 0xf8, 3),
        FIELD(fec_session_id, 29, 0x03, 0),
        FIELD(timer_init_barrier, 29, 0x04, 2),
        FIELD(fec_init_done, 29, 0x08, 3),
        FIELD(pkt_dup_init_done, 29, 0x10, 4),
        FIELD(enable_anchor_wan_tunnel_pkts, 29, 0x20, 5),
        FIELD(unused, 29, 0xc0, 6),
#undef FIELD
    };
    for (const auto &c : cases) {
        t_fp_global_ctrl ctrl = {};
        c.set(&ctrl);
        uint8_t want[sizeof(ctrl)] = {};
        want[c.byte] = c.mask;
        EXPECT_EQ(memcmp(&ctrl, want, sizeof(want)), 0) << c.name;
    }
}

TEST(SharedRecords, BitsOfFiltersAndZoneRecordsStandWhereOthersLook)
{
    t_tarn_filter filter = {};
    filter.activity = 1;
    EXPECT_EQ(reinterpret_cast<uint8_t *>(&filter)[2], 1);
    t_fp_zbf_pair_record pair = {};
    pair.is_valid = 1;
    EXPECT_EQ(reinterpret_cast<uint8_t *>(&pair)[4], 1);
    t_fp_vpn_zone_record zone = {};
    zone.is_valid = 1;
    EXPECT_EQ(reinterpret_cast<uint8_t *>(&zone)[4], 1);
}

// ---- Initialisers ----

class FpCommon : public LaidOut {};

TEST_F(FpCommon, InitialisersResetTheirTableAndNoMore)
{
    memset(g_fp_policer, 0xaa, g_fp_scaling.num_policers * sizeof(t_fp_policer));
    fp_policer_init();
    EXPECT_EQ(g_fp_policer[0].record_valid | g_fp_policer[g_fp_scaling.num_policers - 1].record_valid, 0);
    EXPECT_EQ(g_fp_policer[g_fp_scaling.num_policers - 1].rate, 0u);

    t_fp_global_ctrl want = {};
    memset(&g_fp_global_ctrl->debug, 0xaa, sizeof(t_fp_debug_ctrl));
    g_fp_global_ctrl->pcap_vrid = want.pcap_vrid = 5;
    fp_debug_init();
    EXPECT_EQ(memcmp(g_fp_global_ctrl, &want, sizeof(want)), 0);

    // The capture's fields lie from pcap_vrid up to what follows pcap_proto.
    uint8_t *p_bytes = reinterpret_cast<uint8_t *>(g_fp_global_ctrl);
    memset(p_bytes + 552, 0xaa, 613 - 552);
    p_bytes[558] = p_bytes[559] = 0;
    g_fp_global_ctrl->speedtest_remote_label = 6;
    g_fp_global_ctrl->total_no_of_cores = 7;
    fp_pcap_init();
    want = {};
    want.speedtest_remote_label = 6;
    want.total_no_of_cores = 7;
    EXPECT_EQ(memcmp(g_fp_global_ctrl, &want, sizeof(want)), 0);

    memset(g_fp_profiler, 0xaa, g_fp_scaling.num_fp_profilers * sizeof(t_fp_profiler));
    fp_profiler_init();
    EXPECT_EQ(g_fp_profiler[63].max_cycles, 0u);
    EXPECT_EQ(g_fp_profiler[63].min_cycles, UINT64_MAX);
}

TEST_F(FpCommon, APoolIsSetUpOnceItHasBlocksAndTellsHowManyAreLeft)
{
    EXPECT_EQ(fp_get_fpa_status(0), FP_FPA_STATUS_NONE);
    EXPECT_EQ(fp_setup_fpa_pool(0, 2048, 160), 0);
    EXPECT_EQ(fp_get_fpa_status(0), FP_FPA_STATUS_OK);
    g_fp_fpa_pool[0].num_available = 10;
    EXPECT_EQ(fp_get_fpa_status(0), FP_FPA_STATUS_OK);
    g_fp_fpa_pool[0].num_available = 9;
    EXPECT_EQ(fp_get_fpa_status(0), FP_FPA_STATUS_SHORT);
    g_fp_fpa_pool[0].num_available = 0;
    EXPECT_EQ(fp_get_fpa_status(0), FP_FPA_STATUS_EMPTY);
    EXPECT_EQ(fp_setup_fpa_pool(7, 128, 1), 0);
    EXPECT_EQ(fp_setup_fpa_pool(8, 128, 1), -1);
    EXPECT_EQ(fp_setup_fpa_pool(-1, 128, 1), -1);
    EXPECT_EQ(fp_setup_fpa_pool(1, 0, 1), -1);
    EXPECT_EQ(fp_setup_fpa_pool(1, 128, 0), -1);
    EXPECT_EQ(fp_get_fpa_status(8), FP_FPA_STATUS_NONE);
}

// ---- Questions ----

TEST_F(FpCommon, PortsAreVirtualByTheControlRecord)
{
    g_fp_global_ctrl->loopback_base_port = 100;
    g_fp_global_ctrl->loopback_num_ports = 4;
    g_fp_global_ctrl->outbound_loopback_base_port = 200;
    g_fp_global_ctrl->outbound_loopback_num_ports = 1;
    g_fp_global_ctrl->inbound_loopback_base_port = 65535;
    g_fp_global_ctrl->inbound_loopback_num_ports = 8;
    g_fp_global_ctrl->irb_portid = 300;
    g_fp_global_ctrl->tolmen_server_port = 301;
    static const struct {
        uint16_t port;
        bool loopback;
        bool is_virtual;
    } cases[] = {
        {99, false, false},  {100, true, true},   {103, true, true},  {104, false, false},
        {200, true, true},   {201, false, false}, {300, false, true}, {301, false, true},
        {302, false, false}, {65535, true, true}, {0, false, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(is_loopback_port(c.port), c.loopback) << c.port;
        EXPECT_EQ(is_virtual_port(c.port), c.is_virtual) << c.port;
    }
}

TEST_F(FpCommon, SynchronizedTimeFollowsTheSharedClock)
{
    g_fp_global_ctrl->epoch_delta_msecs = -5;
    EXPECT_EQ(fp_get_synchronized_time(), -5) << "no rate";
    g_fp_global_ctrl->clock_rate = 1000;
    int64_t before = static_cast<int64_t>(cvmx_get_cycle());
    int64_t now = fp_get_synchronized_time();
    EXPECT_GE(now, before - 5);
    EXPECT_LE(now, static_cast<int64_t>(cvmx_get_cycle()) - 5);
}

TEST(FpGcd, OfTwoNumbers)
{
    EXPECT_EQ(gcd(48, 36), 12u);
    EXPECT_EQ(gcd(17, 5), 1u);
    EXPECT_EQ(gcd(0, 9), 9u);
    EXPECT_EQ(gcd(9, 0), 9u);
}

// ---- Printing ----

TEST(FpPrint, OneLineForEachRecord)
{
    t_fp_ipaddr v4;
    fp_ipaddr_set_v4(&v4, 0x0a000001);
    t_fp_ipaddr v6 = {.addr = {0x20, 1}, .addr_type = FP_AF_INET6};
    t_fp_nat_filter_key nat = {};
    nat.src_ip = v4, nat.dst_ip = v6, nat.src_port = 1, nat.dst_port = 2, nat.vrid = 3, nat.proto = 6;
    t_fp_zbf_flow_key zbf = {};
    zbf.src_ip = v6, zbf.dst_ip = v4, zbf.src_vrid = 4, zbf.dst_vrid = 5, zbf.proto = 17;
    t_fp_flow_record flow = {};
    flow.key.src_ip = v4, flow.key.dscp = 46, flow.pkts = 1ull << 40, flow.bytes = 7, flow.appid = 9;
    t_fp_tcpopt_record tcp = {};
    tcp.key.src_ip = v4, tcp.ss_key.src_ip = v6, tcp.state = FP_TCPOPT_STATE_OPTIMIZED;
    testing::internal::CaptureStdout();
    g_fp_sim_use_printf = 1;
    fp_nat_filter_key_print(&nat);
    fp_zbf_flow_key_print(&zbf);
    fp_flow_print(&flow);
    fp_tcpopt_print(&tcp);
    fp_tcpopt_ss_print(&tcp);
    tcp.state = static_cast<e_fp_tcpopt_state>(9);
    fp_tcpopt_print(&tcp);
    g_fp_sim_use_printf = 0;
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "nat-filter: vrid 3 10.0.0.1:1 -> 2001:::2 proto 6\n"
              "zbf-flow: vrid 4 -> 5 2001:::0 -> 10.0.0.1:0 proto 17\n"
              "flow: vrid 0 10.0.0.1:0 -> :0 proto 0 dscp 46 app 9 pkts 1099511627776 bytes 7\n"
              "tcpopt: vrid 0 10.0.0.1:0 -> :0 state optimized\n"
              "tcpopt-ss: vrid 0 2001:::0 -> :0 state optimized\n"
              "tcpopt: vrid 0 10.0.0.1:0 -> :0 state -\n");
}
