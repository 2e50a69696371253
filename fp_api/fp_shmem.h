// The named block: laying it out, and proving that two images lay it out alike.
//
// Every process walks the list of tables over its own mapping and so learns their addresses. The first one
// leaves size and end of each table in the block; each later one compares, and stops at the first table that
// differs: an image with a differently sized record or with another model table never runs against a foreign
// layout. Only sizes and offsets are compared; the contents carry no version.
//
// Offset 0 of the block holds a lock word, offset 128 begins the table area; the first table is the array
// of what was laid out. The lock is held during the walk alone, between processes that start together; one
// that dies there leaves it held.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr char FP_SHMEM_BLOCK_NAME[] = "almushtarika";
inline constexpr size_t FP_SHMEM_TABLES_OFFSET = 128;
inline constexpr size_t FP_SHMEM_ALIGNMENT = 128;

// What the tables leave of the block: its address, and the block's size less the sum of the tables' sizes.
extern uint8_t *g_fp_shmem_alloc_ptr;
extern uint64_t g_fp_shmem_avail_mem;

// Maps the block and sets the globals of fp_tables.h; initialises the scaling unless that is done. The
// process that creates the layout passes do_init: what an earlier layout left to compare with is cleared, and
// so are the port records. do_locking takes the block's lock for the walk. 0, or -1 if the block can't be
// had. A layout that differs, a table without a size and a block that is too small stop the process.
[[nodiscard]] int fp_global_shmem_init(int do_init, int do_locking);
