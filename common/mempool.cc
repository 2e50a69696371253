#include "common/mempool.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <execinfo.h>
#include <unistd.h>
#include <vector>

#include "common/lum_assert.h"
#include "common/lum_log.h"

static t_mempool_hdr *records_of(mempool *mp)
{
    return reinterpret_cast<t_mempool_hdr *>(mp + 1);
}

static const t_mempool_hdr *records_of(const mempool *mp)
{
    return reinterpret_cast<const t_mempool_hdr *>(mp + 1);
}

// The link of a free block: the index of the next one, -1 at the end.
static int link_of(const mempool *mp, void *base, int index)
{
    int32_t next;
    memcpy(&next, mempool_idx2addr(mp, base, index), sizeof(next));
    return next;
}

static void put_on_list(mempool *mp, void *base, int index)
{
    memcpy(mempool_idx2addr(mp, base, index), &mp->mp_next, sizeof(mp->mp_next));
    // A holder may die at any point: the block's link stands before the list leads to it.
    __atomic_store_n(&mp->mp_next, index, __ATOMIC_RELEASE);
}

static void store_backtrace(t_mempool_hdr *p_meta)
{
    int frames = backtrace(p_meta->backtrace, MP_BACKTRACE_SIZE);
    for (int i = frames; i < MP_BACKTRACE_SIZE; i++)
        p_meta->backtrace[i] = nullptr;
}

// ---- The lock ----

// Walks the list, which must lead once through free blocks, and says which.
static std::vector<bool> checked_list(const mempool *mp, void *base)
{
    std::vector<bool> on_list(static_cast<size_t>(mp->mp_nblks));
    for (int index = mp->mp_next; index != -1; index = link_of(mp, base, index)) {
        LUM_ASSERT(index >= 0 && index < mp->mp_nblks,
                   "mempool: list of a dead holder leads out of the pool");
        LUM_ASSERT(!on_list[static_cast<size_t>(index)], "mempool: list of a dead holder runs in a circle");
        LUM_ASSERT(records_of(mp)[index].mp_magic == MP_MAGIC_FREE,
                   "mempool: list of a dead holder leads to a block in use");
        on_list[static_cast<size_t>(index)] = true;
    }
    return on_list;
}

// Called with the lock of a holder who died. A block that is free and on no list is the one that he was
// taking or freeing; there can't be two.
static void recover(mempool *mp, void *base)
{
    LUM_LOG(LUM_LOG_ERROR, "mempool %p: process %d died holding the lock, checking the free list",
            static_cast<void *>(mp), mp->mp_owner);
    std::vector<bool> on_list = checked_list(mp, base);
    int lost = -1;
    for (int index = 0; index < mp->mp_nblks; index++) {
        uint32_t magic = records_of(mp)[index].mp_magic;
        LUM_ASSERT(magic == MP_MAGIC_FREE || magic == MP_MAGIC_INUSE,
                   "mempool: record of a dead holder is overwritten");
        if (magic != MP_MAGIC_FREE || on_list[static_cast<size_t>(index)])
            continue;
        LUM_ASSERT(lost == -1, "mempool: a dead holder left more than one free block out of the list");
        lost = index;
    }
    if (lost != -1)
        put_on_list(mp, base, lost);
    LUM_LOG(LUM_LOG_ERROR, "mempool %p: the free list is sound, block %d was put back (-1: none)",
            static_cast<void *>(mp), lost);
}

namespace {
// Holds the pool's lock.
class PoolGuard {
public:
    PoolGuard(mempool *p_pool, void *base) : mp(p_pool)
    {
        int result = pthread_mutex_lock(&mp->mp_mutex);
        LUM_ASSERT(result == 0 || result == EOWNERDEAD, "mempool: lock");
        if (result == EOWNERDEAD) {
            recover(mp, base);
            pthread_mutex_consistent(&mp->mp_mutex);
        }
        mp->mp_owner = getpid();
    }
    ~PoolGuard()
    {
        mp->mp_owner = 0;
        pthread_mutex_unlock(&mp->mp_mutex);
    }
    PoolGuard(const PoolGuard &) = delete;
    PoolGuard &operator=(const PoolGuard &) = delete;

private:
    mempool *mp;
};
}  // namespace

static bool make_mutex(pthread_mutex_t *p_mutex)
{
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0)
        return false;
    bool made = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                pthread_mutex_init(p_mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return made;
}

// ---- Set up ----

size_t mempool_size(int nblks)
{
    return static_cast<size_t>(nblks) * sizeof(t_mempool_hdr) + sizeof(mempool);
}

mempool *mempool_create(mempool *mp, void *base, size_t blksz, int nblks)
{
    mp->mp_blksz = blksz;
    mp->mp_nblks = nblks;
    mp->mp_next = -1;
    if (!make_mutex(&mp->mp_mutex))
        return nullptr;
    // All as if in use, so that the list is built in one way only. A robust lock never meets a dead owner
    // here.
    for (int index = 0; index < nblks; index++) {
        records_of(mp)[index].mp_magic = MP_MAGIC_INUSE;
        mempool_free(mp, base, mempool_idx2addr(mp, base, index));
    }
    return mp;
}

void mempool_destroy(mempool *mp)
{
    LUM_ASSERT(mempool_nfree(mp) == mp->mp_nblks, "mp->mp_nfree == mp->mp_nblks");
    pthread_mutex_destroy(&mp->mp_mutex);
}

// ---- Blocks ----

// Takes the first free block out of the list; -1 when there is none.
static int take_first(mempool *mp, void *base)
{
    PoolGuard guard(mp, base);
    int block_index = mp->mp_next;
    LUM_ASSERT(block_index < mp->mp_nblks, "(block_index < mp->mp_nblks)");
    if (block_index < 0)
        return -1;
    t_mempool_hdr *p_meta = &records_of(mp)[block_index];
    __atomic_store_n(&mp->mp_next, link_of(mp, base, block_index), __ATOMIC_RELEASE);
    LUM_ASSERT(p_meta->mp_magic == MP_MAGIC_FREE, "p_meta->mp_magic == MP_MAGIC_FREE");
    __atomic_store_n(&p_meta->mp_magic, MP_MAGIC_INUSE, __ATOMIC_RELEASE);
    store_backtrace(p_meta);
    return block_index;
}

void *mempool_alloc(mempool *mp, void *base)
{
    int block_index = take_first(mp, base);
    if (block_index < 0)
        return nullptr;
    __atomic_sub_fetch(&mp->mp_nfree, 1, __ATOMIC_RELAXED);
    return mempool_idx2addr(mp, base, block_index);
}

static void put_back(mempool *mp, void *base, int block_index)
{
    PoolGuard guard(mp, base);
    t_mempool_hdr *p_meta = &records_of(mp)[block_index];
    LUM_ASSERT(p_meta->mp_magic == MP_MAGIC_INUSE, "p_meta->mp_magic == MP_MAGIC_INUSE");
    __atomic_store_n(&p_meta->mp_magic, MP_MAGIC_FREE, __ATOMIC_RELEASE);
    store_backtrace(p_meta);
    put_on_list(mp, base, block_index);
}

void mempool_free(mempool *mp, void *base, void *addr)
{
    int block_index = mempool_validate_addr(mp, base, addr);
    LUM_ASSERT((block_index >= 0) && (block_index < mp->mp_nblks),
               "(block_index >= 0) && (block_index < mp->mp_nblks)");
    put_back(mp, base, block_index);
    __atomic_add_fetch(&mp->mp_nfree, 1, __ATOMIC_RELAXED);
}

void mempool_record(mempool *mp, void *base, void *addr, uint16_t line)
{
    t_mempool_hdr *p_meta = &records_of(mp)[mempool_validate_addr(mp, base, addr)];
    PoolGuard guard(mp, base);
    LUM_ASSERT(p_meta->mp_magic == MP_MAGIC_INUSE, "p_meta->mp_magic == MP_MAGIC_INUSE");
    p_meta->line_num = line;
    store_backtrace(p_meta);
}

// ---- Questions ----

bool mempool_is_free(mempool *mp, void *base, int index)
{
    const t_mempool_hdr *meta_tbl = records_of(mp);
    PoolGuard guard(mp, base);
    for (int cur_idx = mp->mp_next; cur_idx >= 0; cur_idx = link_of(mp, base, cur_idx)) {
        LUM_ASSERT(meta_tbl[cur_idx].mp_magic == MP_MAGIC_FREE,
                   "meta_tbl[cur_idx].mp_magic == MP_MAGIC_FREE");
        if (cur_idx == index)
            return true;
    }
    return false;
}

void *mempool_idx2addr(const mempool *mp, void *base, int index)
{
    return static_cast<uint8_t *>(base) +
           static_cast<ptrdiff_t>(index) * static_cast<ptrdiff_t>(mp->mp_blksz);
}

int mempool_addr2idx(const mempool *mp, const void *base, const void *addr)
{
    // By number: the address may be any.
    auto distance =
        static_cast<intptr_t>(reinterpret_cast<uintptr_t>(addr) - reinterpret_cast<uintptr_t>(base));
    return static_cast<int>(distance / static_cast<intptr_t>(mp->mp_blksz));
}

int mempool_validate_addr(const mempool *mp, void *base, const void *addr)
{
    int idx = mempool_addr2idx(mp, base, addr);
    LUM_ASSERT(idx >= 0 && idx < mp->mp_nblks, "idx >= 0 && idx < mp->mp_nblks");
    const void *addr2 = mempool_idx2addr(mp, base, idx);
    LUM_ASSERT(addr == addr2, "addr == addr2");
    return idx;
}

int mempool_nfree(const mempool *mp)
{
    return __atomic_load_n(&mp->mp_nfree, __ATOMIC_RELAXED);
}

int mempool_nused(const mempool *mp)
{
    return mp->mp_nblks - mempool_nfree(mp);
}

size_t mempool_blksz(const mempool *mp)
{
    return mp->mp_blksz;
}

int mempool_nblks(const mempool *mp)
{
    return mp->mp_nblks;
}

int mempool_next(const mempool *mp)
{
    return __atomic_load_n(&mp->mp_next, __ATOMIC_RELAXED);
}

// ---- Dumps ----

void mempool_inuse_dump(const mempool *mp, void *base, int max)
{
    int lines = 0;
    for (int index = 0; index < mp->mp_nblks && lines <= max; index++) {
        const t_mempool_hdr *p_meta = &records_of(mp)[index];
        if (__atomic_load_n(&p_meta->mp_magic, __ATOMIC_RELAXED) != MP_MAGIC_INUSE)
            continue;
        printf("%p: ", mempool_idx2addr(mp, base, index));
        for (void *p_frame : p_meta->backtrace)
            printf("%p <- ", p_frame);
        printf("\n");
        lines++;
    }
}

void mempool_dump(const mempool *mp)
{
    printf("============================================================\n");
    printf("mempool %p stats:\n", static_cast<const void *>(mp));
    printf("block size:\t\t%lu\n", mp->mp_blksz);
    printf("number of blocks:\t%d\n", mp->mp_nblks);
    printf("number of free blocks:\t%d\n", mempool_nfree(mp));
    printf("first free block:\t%d\n", mempool_next(mp));
    printf("\n");
}
