// Memory pool: blocks of one size, in memory that threads and processes may share.
//
// The processes map the memory at addresses of their own, so the pool holds no pointer to a block: the free
// list is made of block indices, kept in the first 4 bytes of each free block, and every call is given the
// base, the address of block 0 as the calling process sees it. A record per block stands outside the blocks,
// behind the pool's header: a magic word, by which a block freed twice or written into the list by accident
// is found, and the call stack of the last who took, freed or marked it. The caller supplies both areas,
// header with records and blocks, and they live as long as he says.
//
// An exhausted pool answers null. A foreign address, a block freed twice and a list that isn't one are
// faults of a program and end the process.
//
// The lock survives its holder. Whoever finds that a process died with it logs the pool and the process,
// walks the list under the lock and goes on when list and records agree; a block that was on its way into or
// out of the list goes back into it. What doesn't agree ends the process. Blocks that the dead held stay in
// use, and the count of free blocks, which is changed outside the lock, may be off by one for each that died.
#pragma once

#include <cstddef>
#include <cstdint>
#include <pthread.h>
#include <sys/types.h>
#include <type_traits>

inline constexpr uint32_t MP_MAGIC_FREE = 0xDEADDEAD;
inline constexpr uint32_t MP_MAGIC_INUSE = 0xBEEFBEEF;
inline constexpr int MP_BACKTRACE_SIZE = 16;  // frames

// What is known of one block. The frames are addresses in the process that stored them.
struct t_mempool_hdr {
    uint32_t mp_magic;  // MP_MAGIC_FREE or MP_MAGIC_INUSE
    uint16_t line_num;  // the mark of mempool_record
    uint16_t reserved0;
    void *backtrace[MP_BACKTRACE_SIZE];  // of the last alloc, free or record; null behind the last frame
};
static_assert(sizeof(t_mempool_hdr) == 136);
static_assert(offsetof(t_mempool_hdr, line_num) == 4);
static_assert(offsetof(t_mempool_hdr, backtrace) == 8);
static_assert(std::is_standard_layout_v<t_mempool_hdr>);

// The pool; mp_nblks records follow it directly.
struct mempool {
    int32_t mp_next;  // index of the first free block, -1: none
    uint32_t reserved0;
    size_t mp_blksz;  // bytes, at least 4
    int32_t mp_nblks;
    int32_t mp_nfree;          // changed atomically, outside the lock
    pthread_mutex_t mp_mutex;  // process-shared and robust; guards the list and the records
    pid_t mp_owner;            // process that holds the mutex, 0: none
    uint32_t reserved1;
};
static_assert(sizeof(mempool) == 72);
static_assert(offsetof(mempool, mp_blksz) == 8);
static_assert(offsetof(mempool, mp_nfree) == 20);
static_assert(offsetof(mempool, mp_mutex) == 24);
static_assert(offsetof(mempool, mp_owner) == 64);
static_assert(std::is_standard_layout_v<mempool>);

// ---- Set up ----

// Bytes of the header and the records of so many blocks.
size_t mempool_size(int nblks);

// Makes a pool of zeroed memory (mempool_size bytes at mp, nblks times blksz at base). Each block is put in
// by mempool_free, in ascending order: the last block is the first to be given out. Gives mp, or null when
// the mutex can't be made.
mempool *mempool_create(mempool *mp, void *base, size_t blksz, int nblks);

// Every block must have come back.
void mempool_destroy(mempool *mp);

// ---- Blocks ----

// A block, whose contents are left as they were behind the first 4 bytes; null when all are in use.
void *mempool_alloc(mempool *mp, void *base);

// addr must be the start of a block in use.
void mempool_free(mempool *mp, void *base, void *addr);

// Marks a block in use: stores the line and the caller's stack.
void mempool_record(mempool *mp, void *base, void *addr, uint16_t line);

// ---- Questions ----

// Whether the block is on the free list. Walks the list under the lock.
bool mempool_is_free(mempool *mp, void *base, int index);

// Conversions, unchecked.
void *mempool_idx2addr(const mempool *mp, void *base, int index);
int mempool_addr2idx(const mempool *mp, const void *base, const void *addr);

// The index of the block that starts at addr; any other address ends the process.
int mempool_validate_addr(const mempool *mp, void *base, const void *addr);

int mempool_nfree(const mempool *mp);
int mempool_nused(const mempool *mp);
size_t mempool_blksz(const mempool *mp);
int mempool_nblks(const mempool *mp);
int mempool_next(const mempool *mp);

// ---- Dumps, to standard output ----

// A line for each block in use, its address and the frames of its stack; stops after more than max lines, so
// max + 1 are the most.
void mempool_inuse_dump(const mempool *mp, void *base, int max);

void mempool_dump(const mempool *mp);
