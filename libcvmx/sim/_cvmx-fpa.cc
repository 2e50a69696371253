#include "libcvmx/sim/_cvmx-fpa.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/lum_util_text.h"
#include "common/mempool.h"
#include "libcvmx/sim/_cvmx-bootmem.h"
#include "libcvmx/sim/cvmx-wqe.h"
#include "libcvmx/sim/sim_log.h"

static constexpr uint64_t STATE_ALIGNMENT = 128;

namespace {
// A pool as this process sees it; mp is null until it is set up.
struct t_fpa_pool {
    mempool *mp;
    void *base;
    const char *name;
};
}  // namespace

static t_fpa_pool g_pools[CVMX_FPA_NUM_POOLS];

// Null for a number that is no pool of this process.
static const t_fpa_pool *pool_of(uint32_t pool)
{
    return pool < CVMX_FPA_NUM_POOLS && g_pools[pool].mp != nullptr ? &g_pools[pool] : nullptr;
}

// ---- Set up ----

static uint64_t state_size(uint64_t num_blocks)
{
    uint64_t size = mempool_size(static_cast<int>(num_blocks));
    return (size + STATE_ALIGNMENT - 1) / STATE_ALIGNMENT * STATE_ALIGNMENT;
}

// Asked before the block is opened, which would give it this size.
static bool block_has_size(const char *block, uint64_t size)
{
    int fd = shm_open(block, O_RDWR, S_IRUSR | S_IWUSR);
    if (fd < 0)
        return false;
    struct stat status = {};
    bool has = fstat(fd, &status) == 0 && static_cast<uint64_t>(status.st_size) == size;
    close(fd);
    return has;
}

static mempool *create_state(const char *block, void *buffer, uint64_t block_size, uint64_t num_blocks)
{
    uint64_t size = state_size(num_blocks);
    void *p_state = cvmx_bootmem_alloc_named(size, STATE_ALIGNMENT, block);
    if (p_state == nullptr)
        return nullptr;
    memset(p_state, 0, size);
    return mempool_create(static_cast<mempool *>(p_state), buffer, block_size, static_cast<int>(num_blocks));
}

static mempool *attach_state(const char *block, uint64_t block_size, uint64_t num_blocks)
{
    uint64_t size = state_size(num_blocks);
    mempool *mp = nullptr;
    if (block_has_size(block, size))
        mp = static_cast<mempool *>(cvmx_bootmem_alloc_named(size, STATE_ALIGNMENT, block));
    if (mp != nullptr && mempool_blksz(mp) == block_size && mempool_nblks(mp) == static_cast<int>(num_blocks))
        return mp;
    cvmx_sim_log("%s: no pool of %lu blocks of %lu bytes to attach to\n", block, num_blocks, block_size);
    return nullptr;
}

int cvmx_fpa_setup_pool(uint32_t pool, const char *name, void *buffer, uint64_t block_size,
                        uint64_t num_blocks)
{
    return __cvmx_fpa_setup_pool(pool, name, buffer, block_size, num_blocks, true);
}

int __cvmx_fpa_setup_pool(uint32_t pool, const char *name, void *buffer, uint64_t block_size,
                          uint64_t num_blocks, bool create)
{
    if (pool >= CVMX_FPA_NUM_POOLS || buffer == nullptr || block_size < sizeof(int32_t) ||
        num_blocks > INT_MAX)
        return -1;
    char block[16];
    snprintf(block, sizeof(block), "fpa-%d", static_cast<int>(pool));
    mempool *mp = create ? create_state(block, buffer, block_size, num_blocks)
                         : attach_state(block, block_size, num_blocks);
    if (mp == nullptr)
        return -1;
    g_pools[pool] = {.mp = mp, .base = buffer, .name = name};
    return 0;
}

// ---- Buffers ----

void *cvmx_fpa_alloc(uint32_t pool)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    return p_pool != nullptr ? mempool_alloc(p_pool->mp, p_pool->base) : nullptr;
}

int cvmx_fpa_free(void *ptr, uint32_t pool, uint64_t)
{
    if (pool == CVMX_FPA_UNKEPT_POOL) {
        memset(ptr, 0, sizeof(uint32_t));
        return 0;
    }
    const t_fpa_pool *p_pool = pool_of(pool);
    if (p_pool == nullptr)
        return -1;
    if (pool == CVMX_FPA_WQE_POOL && ptr == cvmx_wqe_current())
        cvmx_wqe_set_current(nullptr);
    mempool_free(p_pool->mp, p_pool->base, ptr);
    return 0;
}

void cvmx_fpa_async_alloc(uint64_t, uint32_t) {}

void *cvmx_fpa_async_alloc_finish(uint64_t, uint32_t pool)
{
    return cvmx_fpa_alloc(pool);
}

// ---- Questions ----

int64_t cvmx_fpa_get_block_size(uint32_t pool)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    return p_pool != nullptr ? static_cast<int64_t>(mempool_blksz(p_pool->mp)) : -1;
}

int cvmx_fpa_get_num_available_blocks(uint32_t pool)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    return p_pool != nullptr ? mempool_nfree(p_pool->mp) : -1;
}

int cvmx_fpa_validate_addr(uint32_t pool, const void *addr)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    return p_pool != nullptr ? mempool_validate_addr(p_pool->mp, p_pool->base, addr) : -1;
}

int cvmx_fpa_addr2idx(uint32_t pool, const void *addr)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    return p_pool != nullptr ? mempool_addr2idx(p_pool->mp, p_pool->base, addr) : -1;
}

void *cvmx_fpa_idx2addr(uint32_t pool, int index)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    if (p_pool == nullptr || index < 0 || index >= mempool_nblks(p_pool->mp))
        return nullptr;
    return mempool_idx2addr(p_pool->mp, p_pool->base, index);
}

int cvmx_fpa_record_use(uint32_t pool, void *addr, uint16_t line)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    if (p_pool == nullptr)
        return -1;
    mempool_record(p_pool->mp, p_pool->base, addr, line);
    return 0;
}

// ---- Dumps ----

int cvmx_fpa_pool_info_dump(uint32_t pool)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    if (p_pool == nullptr)
        return -1;
    printf("pool %u \"%s\", buffers at %p\n", pool, p_pool->name, p_pool->base);
    mempool_dump(p_pool->mp);
    return 0;
}

int cvmx_fpa_pool_dump_buffer(uint32_t pool, int index)
{
    const void *p_buffer = cvmx_fpa_idx2addr(pool, index);
    if (p_buffer == nullptr)
        return -1;
    printf("pool %u, buffer %d at %p\n", pool, index, p_buffer);
    hex_dump(stdout, p_buffer, mempool_blksz(g_pools[pool].mp));
    return 0;
}

int cvmx_fpa_pool_dump_used_entries(uint32_t pool, int max)
{
    const t_fpa_pool *p_pool = pool_of(pool);
    if (p_pool == nullptr)
        return -1;
    mempool_inuse_dump(p_pool->mp, p_pool->base, max);
    return 0;
}
