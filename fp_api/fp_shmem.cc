#include "fp_api/fp_shmem.h"

#include <cstring>
#include <unistd.h>

#include "common/lum_assert.h"
#include "fp_api/fp_tables.h"
#include "libcvmx/sim/_cvmx-bootmem.h"
#include "libcvmx/sim/_cvmx-sysinfo.h"
#include "libcvmx/sim/cvmx-spinlock.h"
#include "libcvmx/sim/sim_log.h"

static constexpr int CLEARED_TABLE = 1;  // the one that a new layout clears, with a pause
static constexpr useconds_t CLEAR_PAUSE_US = 5000;

uint8_t *g_fp_shmem_alloc_ptr;
uint64_t g_fp_shmem_avail_mem;

namespace {

// The walk over one mapping of the block.
struct t_walk {
    uint8_t *p_block;
    uint8_t *p_cursor;
    uint64_t total_size;  // of the tables, not rounded
    bool do_init;
    bool do_locking;
};

}  // namespace

static cvmx_spinlock_t *block_lock(const t_walk *p_walk)
{
    return reinterpret_cast<cvmx_spinlock_t *>(p_walk->p_block);
}

static t_fp_shmem_info *block_info(const t_walk *p_walk)
{
    return reinterpret_cast<t_fp_shmem_info *>(p_walk->p_block + FP_SHMEM_TABLES_OFFSET);
}

static void release_lock(const t_walk *p_walk)
{
    if (p_walk->do_locking)
        cvmx_spinlock_unlock(block_lock(p_walk));
}

// Allocating is attaching, so the look-up by name only ever confirms that the block can't be had.
static uint8_t *map_block()
{
    uint32_t size = static_cast<uint32_t>(g_fp_scaling.app_named_block_size);
    void *p_block = cvmx_bootmem_alloc_named(size, FP_SHMEM_ALIGNMENT, FP_SHMEM_BLOCK_NAME);
    if (p_block == nullptr) {
        const cvmx_bootmem_named_block_desc_t *p_found = cvmx_bootmem_find_named_block(FP_SHMEM_BLOCK_NAME);
        if (p_found != nullptr)
            p_block = reinterpret_cast<void *>(p_found->base_addr);
    }
    if (p_block == nullptr)
        cvmx_sim_log("fp: named-block %s size %u\n", FP_SHMEM_BLOCK_NAME, size);
    return static_cast<uint8_t *>(p_block);
}

// Sets one global of the table, or one element of its array. The globals are pointers of many types, so the
// address goes in by its bytes.
static void set_global(const t_fp_shmem *p_row, int element, const uint8_t *p_table)
{
    memcpy(p_row->pp_rec_tbl + element, &p_table, sizeof(p_table));
}

// Lays out all copies of table i at the cursor. Returns their bytes.
static uint64_t lay_out(t_walk *p_walk, int i)
{
    const t_fp_shmem *p_row = &g_shmem_tbl[i];
    uint64_t size =
        static_cast<uint64_t>(*p_row->p_num_tbl_entries) * static_cast<uint64_t>(p_row->record_size);
    int first = p_row->alloc_shmem_per_core ? g_fp_scaling.min_fp_core_num : 0;
    int last = p_row->alloc_shmem_per_core ? g_fp_scaling.max_fp_core_num : 0;
    uint64_t table_size = 0;
    for (int element = first; element <= last; element++) {
        set_global(p_row, element, p_walk->p_cursor);
        if (size == 0)
            cvmx_sim_log("invalid fp_scaling table entry %i %s. size = 0\n", i, p_row->p_block_name);
        LUM_ASSERT_TRAP(size != 0, "tbl_size != 0");
        if (p_walk->do_init && i == CLEARED_TABLE) {
            memset(p_walk->p_cursor, 0, size);
            usleep(CLEAR_PAUSE_US);
        }
        table_size += size;
        p_walk->p_cursor += (size + FP_SHMEM_ALIGNMENT - 1) & ~(FP_SHMEM_ALIGNMENT - 1);
    }
    return table_size;
}

// Leaves what was laid out in the block, or compares with what is there.
static void prove_compatible(const t_walk *p_walk, int i, uint64_t table_size)
{
    t_fp_shmem_info *p_info = &block_info(p_walk)[i];
    uint32_t size = static_cast<uint32_t>(table_size);
    uint32_t offset = static_cast<uint32_t>(p_walk->p_cursor - (p_walk->p_block + FP_SHMEM_TABLES_OFFSET));
    if (p_info->size == 0 && p_info->offset == 0) {
        *p_info = {.offset = offset, .size = size};
        return;
    }
    if (p_info->size == size && p_info->offset == offset)
        return;
    cvmx_sim_log(
        "fp and ftmd images not compatible! tbl-num %d Expected size %u actual-size %u Expected offset %u "
        "actual-offset %u\n",
        i, p_info->size, size, p_info->offset, offset);
    release_lock(p_walk);
    LUM_ASSERT_TRAP(false, "0");
}

static void walk_tables(t_walk *p_walk)
{
    if (p_walk->do_init)
        memset(block_info(p_walk), 0, g_fp_scaling.shmem_info_tbl_size * sizeof(t_fp_shmem_info));
    LUM_ASSERT_TRAP(g_fp_scaling.shmem_info_tbl_size >= fp_global_shmem_size(),
                    "g_fp_scaling.shmem_info_tbl_size >= (int)NELEMENTS(g_shmem_tbl)");
    for (int i = 0; i < fp_global_shmem_size(); i++) {
        uint64_t table_size = lay_out(p_walk, i);
        p_walk->total_size += table_size;
        prove_compatible(p_walk, i, table_size);
    }
}

int fp_global_shmem_init(int do_init, int do_locking)
{
    fp_scaling_init(cvmx_sysinfo_get()->board_type);
    t_walk walk = {};
    walk.p_block = map_block();
    if (walk.p_block == nullptr)
        return -1;
    walk.p_cursor = walk.p_block + FP_SHMEM_TABLES_OFFSET;
    walk.do_init = do_init != 0;
    walk.do_locking = do_locking != 0;
    if (walk.do_locking)
        cvmx_spinlock_lock(block_lock(&walk));
    walk_tables(&walk);

    uint64_t block_size = static_cast<uint64_t>(g_fp_scaling.app_named_block_size);
    g_fp_shmem_alloc_ptr = walk.p_cursor;
    g_fp_shmem_avail_mem = block_size - walk.total_size;
    if (block_size <= walk.total_size || g_fp_scaling.shmem_info_tbl_size < fp_global_shmem_size()) {
        release_lock(&walk);
        LUM_ASSERT_TRAP(false, "0");
    }
    release_lock(&walk);
    return 0;
}
