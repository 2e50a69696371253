// What allocator and dumps of filter memory share.
#pragma once

#include "common/dll.h"

#include <cstdint>

// One for each block of the pool; only the first block of a run carries data.
struct t_tarn_mem_node {
    t_dlnode dlnode;  // in the delete list
    uint32_t is_allocated;
    void *ptr;
    uint32_t num_hw_blocks;
    uint32_t filter_id;
};

extern t_tarn_mem_node *tarn_mem;  // num_filter_blocks nodes, or null
