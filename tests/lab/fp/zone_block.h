// Zone tables of a test's own behind the globals through which the daemon's functions write them.
#pragma once

#include "fp_api/fp_tables.h"
#include "lab/fp/fp_zones.h"
#include "tarnd/filter/tarn_if_octeon_zbf.h"

#include <memory>
#include <vector>

// One at a time; small, so that chains are long and tables run out.
struct t_zone_block {
    static constexpr int num_records = 32;
    static constexpr int num_heads = 8;

    t_zone_block()
        : vpns(num_records), pairs(num_records), vpn_heads(num_heads), pair_heads(num_heads),
          ctrl(new t_fp_global_ctrl()), stats(new t_fp_global_stats())
    {
        g_fp_vpn_zone_record = vpns.data();
        g_fp_zbf_pair_record = pairs.data();
        g_fp_vpn_zone_hash_record = vpn_heads.data();
        g_fp_zbf_pair_hash_record = pair_heads.data();
        g_fp_global_ctrl = ctrl.get();
        g_fp_global_stats = stats.get();
        g_fp_scaling.num_vpn_zone_records = g_fp_scaling.num_zbf_pair_records = num_records;
        g_fp_scaling.num_vpn_zone_hash_records = g_fp_scaling.num_zbf_pair_hash_records = num_heads;
        fp_vpn_zone_global_init();
        fp_zbf_pair_global_init();
    }

    ~t_zone_block()
    {
        g_fp_global_ctrl = nullptr;
        g_fp_global_stats = nullptr;
    }

    t_zone_block(const t_zone_block &) = delete;
    t_zone_block &operator=(const t_zone_block &) = delete;

    t_fp_zone_tables tables() const
    {
        return {vpns, vpn_heads, pairs, pair_heads, ctrl.get()};
    }

    std::vector<t_fp_vpn_zone_record> vpns;
    std::vector<t_fp_zbf_pair_record> pairs;
    std::vector<uint32_t> vpn_heads;
    std::vector<uint32_t> pair_heads;
    std::unique_ptr<t_fp_global_ctrl> ctrl;
    std::unique_ptr<t_fp_global_stats> stats;
};
