#include "tools/heap_arena.h"

#include "tarnd/compiler/tarn_mem_mgr.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <utility>

// Stands before every block; a multiple of the records' alignment.
struct t_block {
    size_t capacity;
    size_t size;
};
static_assert(sizeof(t_block) % 8 == 0);

static t_block *g_spare;
static size_t g_used;
static size_t g_peak;
static int g_next_id;

static t_block *block_new(size_t size)
{
    // Large blocks start on a huge page, so that writing a program does not fault page by page.
    static constexpr size_t huge_page = 2 << 20;
    size_t capacity = size + sizeof(t_block);
    if (capacity < 2 * huge_page) {
        t_block *p_small = static_cast<t_block *>(malloc(capacity));
        if (p_small != nullptr)
            p_small->capacity = size;
        return p_small;
    }
    capacity = (capacity + huge_page - 1) / huge_page * huge_page;
    t_block *p_block = static_cast<t_block *>(aligned_alloc(huge_page, capacity));
    if (p_block == nullptr)
        return nullptr;
    madvise(p_block, capacity, MADV_HUGEPAGE);
    p_block->capacity = capacity - sizeof(t_block);
    return p_block;
}

static void *arena_alloc(size_t size)
{
    g_filter_id = -1;
    t_block *p_block = nullptr;
    if (g_spare != nullptr && g_spare->capacity >= size)
        p_block = std::exchange(g_spare, nullptr);
    else
        p_block = block_new(size);
    if (p_block == nullptr)
        return nullptr;
    p_block->size = size;
    g_used += size;
    g_peak = std::max(g_peak, g_used);
    g_filter_id = g_next_id++;
    return p_block + 1;
}

static void arena_free(void *p_mem)
{
    if (p_mem == nullptr)
        return;
    t_block *p_block = static_cast<t_block *>(p_mem) - 1;
    g_used -= p_block->size;
    if (g_spare == nullptr || g_spare->capacity < p_block->capacity)
        std::swap(g_spare, p_block);
    free(p_block);
}

void heap_arena_register()
{
    t_tarn_mem_mgr mgr = {arena_alloc, arena_free};
    tarn_register_mem_mgr(&mgr);
}

size_t heap_arena_take_peak()
{
    return std::exchange(g_peak, g_used);
}

void heap_arena_trim()
{
    free(std::exchange(g_spare, nullptr));
}
