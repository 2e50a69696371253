// Filter memory as both processes see it: blocks of programs, the slots that find them, the log's settings.
//
// A filter id is the index of a slot. The daemon writes a slot; the forwarding plane reads it and sets
// `activity` on each use of the filter, which the daemon clears to learn whether a freed program is still in
// use. Blocks and slot stay untouched while record_valid is set. Native byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

struct t_tarn_filter {
    uint16_t record_valid;  // non-zero while the slot holds a program
    uint16_t activity : 1;
    uint16_t unused : 15;
    uint32_t hw_index;           // first block of the program
    uint32_t num_hw_mem_blocks;  // blocks of the program
};
static_assert(sizeof(t_tarn_filter) == 12);
static_assert(offsetof(t_tarn_filter, hw_index) == 4);
static_assert(offsetof(t_tarn_filter, num_hw_mem_blocks) == 8);
static_assert(std::is_standard_layout_v<t_tarn_filter>);

inline constexpr size_t TARN_FILTER_MEM_BLOCK_SIZE = 128;

struct t_tarn_filter_mem_block {
    uint8_t block[TARN_FILTER_MEM_BLOCK_SIZE];
};
static_assert(sizeof(t_tarn_filter_mem_block) == 128);

// Sampling of the packets that the log action reports.
struct t_fp_filter_log_config {
    uint32_t frequency;  // one of so many packets is reported; a power of two
    uint32_t packet_count;
    uint32_t outstanding[32];  // reports on their way, for each core
    uint32_t spare;
};
static_assert(sizeof(t_fp_filter_log_config) == 140);
static_assert(offsetof(t_fp_filter_log_config, packet_count) == 4);
static_assert(offsetof(t_fp_filter_log_config, outstanding) == 8);
static_assert(offsetof(t_fp_filter_log_config, spare) == 136);
static_assert(std::is_standard_layout_v<t_fp_filter_log_config>);
