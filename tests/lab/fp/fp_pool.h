// Filter memory of a test's own, and a small compiled policy to put into it.
#pragma once

#include "lab/fp/fp_engine.h"
#include "tests/support/compile.h"

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

inline constexpr uint32_t POOL_FILTERS = 8;
inline constexpr uint32_t POOL_BLOCKS = 4096;

// What the daemon does with slots and blocks, without its allocator.
struct t_test_pool {
    t_test_pool();

    t_fp_pool spans();
    std::byte *block(uint32_t hw_index);

    // Writes a program to blocks and marks the slot. A slot or blocks in use are overwritten.
    void put(uint32_t filter_id, uint32_t hw_index, std::span<const std::byte> program);

    struct alignas(128) t_aligned_block {
        t_tarn_filter_mem_block block;
    };
    std::unique_ptr<t_aligned_block[]> memory;
    std::vector<t_tarn_filter> filters;
};

t_tarn_filter_action plain_slot(e_tarn_filter_action action);
t_tarn_filter_action counter_slot(const char *name);
// rate in clock ticks for each byte, burst in clock ticks.
t_tarn_filter_action policer_slot(const char *name, uint64_t rate, uint64_t burst,
                                  e_fp_policer_drop_action action);

using t_slots = std::vector<t_tarn_filter_action>;  // up to 12

struct t_port_rule {
    uint32_t low;
    uint32_t high;
    t_slots slots;
};

// Compiles a table that matches the destination port. The manager of t_test_memory must live.
std::vector<std::byte> ports_compile(const char *name, const std::vector<t_port_rule> &rules,
                                     const t_slots &default_slots);

// The record of an outcome, for changing what the daemon changes.
t_tarn_filter_action *outcome_slots(const t_fp_outcome &outcome);
