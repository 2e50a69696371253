#include "fp_api/fp_common.h"

#include <cstring>
#include <numeric>

#include "libcvmx/sim/_cvmx-clock.h"

static constexpr uint32_t FPA_WATERMARK_DIVISOR = 16;

// ---- Initialisers ----

void fp_policer_init()
{
    memset(g_fp_policer, 0, g_fp_scaling.num_policers * sizeof(*g_fp_policer));
}

void fp_debug_init()
{
    g_fp_global_ctrl->debug = {};
}

void fp_pcap_init()
{
    t_fp_global_ctrl *p_ctrl = g_fp_global_ctrl;
    p_ctrl->pcap_vrid = 0;
    p_ctrl->pcap_fwd_vrid = 0;
    p_ctrl->pcap_flags = 0;
    p_ctrl->pcap_iff = 0;
    p_ctrl->pcap_pcount = 0;
    p_ctrl->pcap_srcip = {};
    p_ctrl->pcap_dstip = {};
    p_ctrl->pcap_sport = 0;
    p_ctrl->pcap_dport = 0;
    p_ctrl->pcap_proto = 0;
}

void fp_profiler_init()
{
    for (int i = 0; i < g_fp_scaling.num_fp_profilers; i++) {
        g_fp_profiler[i] = {};
        g_fp_profiler[i].min_cycles = UINT64_MAX;
    }
}

static void empty_heads(uint16_t *p_heads, int count)
{
    for (int i = 0; i < count; i++)
        p_heads[i] = FP_HASH_EMPTY;
}

void fp_cxp_record_init()
{
    empty_heads(g_fp_cxp_hash_record, g_fp_scaling.num_cxp_records);
    for (int i = 0; i < g_fp_scaling.num_cxp_records; i++) {
        g_fp_cxp_record[i] = {};
        g_fp_cxp_record[i].next_index = FP_HASH_EMPTY;
    }
}

void fp_server_appid_record_init()
{
    empty_heads(g_fp_server_appid_hash_record, g_fp_scaling.num_server_appids);
    for (int i = 0; i < g_fp_scaling.num_server_appids; i++) {
        g_fp_server_appid_record[i] = {};
        g_fp_server_appid_record[i].next_index = FP_HASH_EMPTY;
    }
}

int fp_setup_fpa_pool(int pool, uint32_t block_size, uint32_t num_blocks)
{
    if (pool < 0 || pool >= g_fp_scaling.num_fpa_pools || block_size == 0 || num_blocks == 0)
        return -1;
    t_fp_fpa_pool *p_pool = &g_fp_fpa_pool[pool];
    *p_pool = {};
    p_pool->block_size = block_size;
    p_pool->num_blocks = num_blocks;
    p_pool->num_available = num_blocks;
    p_pool->low_watermark = num_blocks / FPA_WATERMARK_DIVISOR;
    return 0;
}

// ---- Questions ----

e_fp_fpa_status fp_get_fpa_status(int pool)
{
    if (pool < 0 || pool >= g_fp_scaling.num_fpa_pools || g_fp_fpa_pool[pool].block_size == 0)
        return FP_FPA_STATUS_NONE;
    const t_fp_fpa_pool *p_pool = &g_fp_fpa_pool[pool];
    if (p_pool->num_available == 0)
        return FP_FPA_STATUS_EMPTY;
    return p_pool->num_available < p_pool->low_watermark ? FP_FPA_STATUS_SHORT : FP_FPA_STATUS_OK;
}

static bool in_range(uint16_t port, uint16_t base, uint16_t count)
{
    return port >= base && port - base < count;
}

bool is_loopback_port(uint16_t port)
{
    const t_fp_global_ctrl *p_ctrl = g_fp_global_ctrl;
    return in_range(port, p_ctrl->loopback_base_port, p_ctrl->loopback_num_ports) ||
           in_range(port, p_ctrl->outbound_loopback_base_port, p_ctrl->outbound_loopback_num_ports) ||
           in_range(port, p_ctrl->inbound_loopback_base_port, p_ctrl->inbound_loopback_num_ports);
}

bool is_virtual_port(uint16_t port)
{
    return is_loopback_port(port) || port == g_fp_global_ctrl->irb_portid ||
           port == g_fp_global_ctrl->tolmen_server_port;
}

int64_t fp_get_synchronized_time()
{
    uint64_t rate = g_fp_global_ctrl->clock_rate;
    if (rate == 0)
        return g_fp_global_ctrl->epoch_delta_msecs;
    // Seconds and remainder apart: ticks times 1000 would overflow after some weeks.
    uint64_t ticks = cvmx_clock_get_count(CVMX_CLOCK_CORE);
    uint64_t msecs = ticks / rate * 1000 + ticks % rate * 1000 / rate;
    return static_cast<int64_t>(msecs) + g_fp_global_ctrl->epoch_delta_msecs;
}

uint64_t gcd(uint64_t a, uint64_t b)
{
    return std::gcd(a, b);
}
