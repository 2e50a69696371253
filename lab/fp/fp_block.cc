#include "lab/fp/fp_block.h"

#include "fp_api/fp_common.h"
#include "fp_api/fp_cores.h"
#include "fp_api/fp_shmem.h"
#include "fp_api/fp_tables.h"
#include "libcvmx/sim/_cvmx-clock.h"

#include <ctime>
#include <sys/mman.h>

// Byte 25, bit 2 of the control record; a bit field has no address.
static constexpr size_t ready_byte = 25;
static constexpr uint8_t ready_bit = 1 << 2;

void fp_block_set_ready(bool is_ready)
{
    void *p_record = g_fp_global_ctrl;
    uint8_t *p_byte = static_cast<uint8_t *>(p_record) + ready_byte;
    if (is_ready)
        __atomic_fetch_or(p_byte, ready_bit, __ATOMIC_RELEASE);
    else
        __atomic_fetch_and(p_byte, static_cast<uint8_t>(~ready_bit), __ATOMIC_RELEASE);
}

static int64_t time_of_day_msecs()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// With a distance of 0 the shared clock tells its own milliseconds.
static void clock_fill()
{
    g_fp_global_ctrl->clock_rate = cvmx_clock_get_rate(CVMX_CLOCK_CORE);
    g_fp_global_ctrl->epoch_delta_msecs = 0;
    g_fp_global_ctrl->epoch_delta_msecs = time_of_day_msecs() - fp_get_synchronized_time();
}

bool fp_block_create(bool recreate)
{
    if (recreate)
        shm_unlink(FP_SHMEM_BLOCK_NAME);
    if (fp_global_shmem_init(1, 1) != 0)
        return false;
    fp_block_set_ready(false);
    fp_readjust_num_cores(0, 0);
    clock_fill();
    g_fp_global_ctrl->total_no_of_cores = fp_get_total_core_num();
    fp_work_grps_init();
    fp_debug_init();
    fp_pcap_init();
    fp_policer_init();
    fp_profiler_init();
    fp_cxp_record_init();
    fp_server_appid_record_init();
    return true;
}

t_fp_pool fp_block_pool()
{
    return {{g_fp_filter, static_cast<size_t>(g_fp_scaling.num_filters)},
            {g_fp_filter_mem_block, static_cast<size_t>(g_fp_scaling.num_filter_blocks)}};
}

t_fp_zone_tables fp_block_zones()
{
    return {{g_fp_vpn_zone_record, static_cast<size_t>(g_fp_scaling.num_vpn_zone_records)},
            {g_fp_vpn_zone_hash_record, static_cast<size_t>(g_fp_scaling.num_vpn_zone_hash_records)},
            {g_fp_zbf_pair_record, static_cast<size_t>(g_fp_scaling.num_zbf_pair_records)},
            {g_fp_zbf_pair_hash_record, static_cast<size_t>(g_fp_scaling.num_zbf_pair_hash_records)},
            g_fp_global_ctrl};
}
