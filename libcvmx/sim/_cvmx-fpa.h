// Eight pools of buffers that the processes of the forwarding plane share.
//
// Each is a memory pool (common/mempool) whose state lies in the named block "fpa-%d"; the buffers themselves
// lie in memory that the caller shares, a named block of his own. One process creates a pool, then the others
// attach; each tells where it sees the buffers, and may use the pool from then on, from any thread. The
// shared memory outlives the processes, so whoever starts the plane creates the pools anew.
//
// Pool 0 is for packets, pool 1 for work entries (cvmx-wqe.h). Pool numbers above 7 and pools that this
// process hasn't set up answer -1 or null. A buffer that isn't one of the pool ends the process.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t CVMX_FPA_NUM_POOLS = 8;
inline constexpr uint32_t CVMX_FPA_UNKEPT_POOL = 7;  // see cvmx_fpa_free

// ---- Set up ----

// Creates the pool, with all of its buffers free: num_blocks of block_size bytes from `buffer` on. What an
// earlier run left in the block of its state is forgotten. block_size at least 4. 0, or -1. The name, for
// dumps, is kept by address.
int cvmx_fpa_setup_pool(uint32_t pool, const char *name, void *buffer, uint64_t block_size,
                        uint64_t num_blocks);

// The same, or with `create` false attaches to a pool that another process has created: -1 unless it has
// these sizes.
int __cvmx_fpa_setup_pool(uint32_t pool, const char *name, void *buffer, uint64_t block_size,
                          uint64_t num_blocks, bool create);

// ---- Buffers ----

// A buffer, or null when none is free.
void *cvmx_fpa_alloc(uint32_t pool);

// Gives a buffer back; 0, or -1. The number of cache lines to write back has no meaning here. Of pool 7,
// which serves buffers that somebody else takes back, only the first 32-bit word is zeroed. Freeing the
// current work entry to pool 1 leaves the thread without one.
int cvmx_fpa_free(void *ptr, uint32_t pool, uint64_t num_cache_lines);

// The two halves of an allocation that hardware does meanwhile. Here the second allocates.
void cvmx_fpa_async_alloc(uint64_t scr_addr, uint32_t pool);
void *cvmx_fpa_async_alloc_finish(uint64_t scr_addr, uint32_t pool);

// ---- Questions ----

int64_t cvmx_fpa_get_block_size(uint32_t pool);
int cvmx_fpa_get_num_available_blocks(uint32_t pool);

// The index of the buffer that starts at addr.
int cvmx_fpa_validate_addr(uint32_t pool, const void *addr);

// Conversions. An index that the pool doesn't have gives null.
int cvmx_fpa_addr2idx(uint32_t pool, const void *addr);
void *cvmx_fpa_idx2addr(uint32_t pool, int index);

// Marks a buffer in use with a line number and the caller's stack, for the dumps.
int cvmx_fpa_record_use(uint32_t pool, void *addr, uint16_t line);

// ---- Dumps, to standard output ----

// State of a pool, bytes of one buffer, who holds the used ones (`max` + 1 lines at most).
int cvmx_fpa_pool_info_dump(uint32_t pool);
int cvmx_fpa_pool_dump_buffer(uint32_t pool, int index);
int cvmx_fpa_pool_dump_used_entries(uint32_t pool, int max);
