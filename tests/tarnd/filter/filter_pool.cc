#include "tests/tarnd/filter/filter_pool.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "libcvmx/sim/_cvmx-clock.h"
#include "tarnd/filter/tarn_if_octeon.h"
#include "tarnd/filter/tarn_if_octeon_private.h"
#include "tests/common/own_clock.h"

static FilterPool *g_pool;

static constexpr int num_proto_entries = 4096;
static constexpr uint32_t pattern = 0xa5a5a5a5;

// ---- The pool ----

static void *wheel_alloc(size_t size)
{
    return g_pool->no_heap ? nullptr : malloc(size);
}

static void wheel_free(void *p_mem)
{
    free(p_mem);
}

static int note_release(t_tarn *p_tarn, int freed_blocks)
{
    EXPECT_EQ(p_tarn, &g_pool->tarn);
    g_pool->released.push_back(freed_blocks);
    return 0;
}

void FilterPool::t_blocks_deleter::operator()(t_tarn_filter_mem_block *p_blocks) const
{
    free(p_blocks);
}

FilterPool::FilterPool(int num_filters, int num_blocks)
    : filters(num_filters), global_ctrl(new t_fp_global_ctrl()),
      family_mapping(num_proto_entries + 1, pattern), proto_hits(num_proto_entries + 1, pattern)
{
    g_pool = this;
    size_t size = static_cast<size_t>(num_blocks) * sizeof(t_tarn_filter_mem_block);
    blocks.reset(
        static_cast<t_tarn_filter_mem_block *>(aligned_alloc(sizeof(t_tarn_filter_mem_block), size)));
    memset(blocks.get(), 0xa5, size);
    memset(dpi_enable_knob, 0xa5, sizeof(dpi_enable_knob));
    memset(log_config, 0xa5, sizeof(log_config));
    memset(flow_enable_knob, 0xa5, sizeof(flow_enable_knob));
    g_fp_scaling = {};
    g_fp_scaling.num_filters = num_filters;
    g_fp_scaling.num_filter_blocks = num_blocks;
    g_fp_scaling.num_dpi_proto_family_mapping_entries = num_proto_entries;
    g_fp_scaling.num_dpi_proto_hits = num_proto_entries;
    g_fp_filter_mem_block = blocks.get();
    g_fp_filter = filters.data();
    g_fp_global_ctrl = global_ctrl.get();
    g_fp_dpi_proto_family_mapping = family_mapping.data();
    g_fp_dpi_proto_hits = proto_hits.data();
    g_fp_dpi_enable_knob = dpi_enable_knob;
    void *p_log_config = log_config;
    g_fp_filter_log_config = static_cast<t_fp_filter_log_config *>(p_log_config);
    g_fp_filter_flow_enable_knob = flow_enable_knob;
    filter_pool_set_ready(true);
    hwapi.filter_policy_chg = note_release;
    tarn.p_hwapi = &hwapi;
    tarn.p_timer_mgr =
        timer_mgr_create(TIMER_RESN_10MSEC, wheel_alloc, wheel_free, nullptr, TIMER_PRI_MASK_ALL);
}

FilterPool::~FilterPool()
{
    if (tarn_mem != nullptr)
        tarn_oct_filter_destroy();
    timer_mgr_destroy(tarn.p_timer_mgr);
    g_fp_scaling = {};
    g_pool = nullptr;
}

int FilterPool::init(uint8_t do_init)
{
    return tarn_oct_filter_init(&tarn, do_init);
}

void FilterPool::advance_ms(int msecs)
{
    own_clock_advance(msecs * OWN_CLOCK_MSEC);
    timer_exec(tarn.p_timer_mgr, TIMER_PRI_MASK_ALL, 100);
}

void filter_pool_set_ready(bool is_ready)
{
    g_fp_global_ctrl->is_hw_initialized = is_ready;
}

// ---- Wrapped calls ----

extern "C" {
void *__real_calloc(size_t count, size_t size);

void *__wrap_calloc(size_t count, size_t size)
{
    return g_pool != nullptr && g_pool->no_heap ? nullptr : __real_calloc(count, size);
}

unsigned __wrap_sleep(unsigned seconds)
{
    g_pool->calls.push_back("sleep " + std::to_string(seconds));
    g_pool->on_sleep();
    return 0;
}
}

// C++ names, as the linker sees them.

int wrap_shmem_init(int do_init, int do_locking) asm("__wrap__Z20fp_global_shmem_initii");
int wrap_shmem_init(int do_init, int do_locking)
{
    g_pool->calls.push_back("map " + std::to_string(do_init) + ' ' + std::to_string(do_locking));
    return g_pool->map_status;
}

int wrap_readjust(int coremask_valid, uint64_t coremask) asm("__wrap__Z21fp_readjust_num_coresim");
int wrap_readjust(int coremask_valid, uint64_t coremask)
{
    g_pool->calls.push_back("cores " + std::to_string(coremask_valid) + ' ' + std::to_string(coremask));
    return 1;
}

uint64_t wrap_clock_get_rate(cvmx_clock_t clock) asm("__wrap__Z19cvmx_clock_get_rate12cvmx_clock_t");
uint64_t wrap_clock_get_rate(cvmx_clock_t clock)
{
    return clock == CVMX_CLOCK_CORE ? 2100000000 : 0;
}
