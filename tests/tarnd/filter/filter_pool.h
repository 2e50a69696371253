// Filter memory in this process's own memory, with a timer wheel on the test's clock.
//
// A FilterPool stands behind the globals of the shared tables while it lives. Mapping the block, sharing the
// cores out, sleeping and the clock rate are wrapped at link time and answered by it.
#pragma once

#include "common/timer.h"
#include "fp_api/fp_tables.h"
#include "tarnd/core/tarn.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class FilterPool {
public:
    FilterPool(int num_filters, int num_blocks);
    ~FilterPool();
    FilterPool(const FilterPool &) = delete;
    FilterPool &operator=(const FilterPool &) = delete;

    // tarn_oct_filter_init; the forwarding plane is ready.
    int init(uint8_t do_init = 1);

    // Moves the clock and runs what is due. A multiple of the wheel's tick.
    void advance_ms(int msecs);

    // The whole program memory of a slot.
    uint8_t *block(uint32_t index)
    {
        return g_fp_filter_mem_block[index].block;
    }

    t_tarn tarn = {};
    t_tarn_hw_api hwapi = {};
    std::vector<int> released;  // what filter_policy_chg was called with

    // Of the wrapped calls.
    int map_status = 0;
    bool no_heap = false;  // calloc and the wheel's allocations give nothing
    std::vector<std::string> calls;
    std::function<void()> on_sleep;

private:
    struct t_blocks_deleter {
        void operator()(t_tarn_filter_mem_block *p_blocks) const;
    };
    std::unique_ptr<t_tarn_filter_mem_block[], t_blocks_deleter> blocks;
    std::vector<t_tarn_filter> filters;
    std::unique_ptr<t_fp_global_ctrl> global_ctrl;

public:
    // The tables that a clearing start clears, each with a word behind that it must not.
    std::vector<uint32_t> family_mapping;
    std::vector<uint32_t> proto_hits;
    uint32_t dpi_enable_knob[2];
    uint32_t log_config[36];
    uint32_t flow_enable_knob[2];
};

// The forwarding plane as seen by the next tarn_oct_filter_init.
void filter_pool_set_ready(bool is_ready);
