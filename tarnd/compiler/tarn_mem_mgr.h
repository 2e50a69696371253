// Where programs live: the memory manager that the compiler asks for the block of a finished program.
//
// The daemon registers filter memory, tools and tests a heap arena. An allocator leaves the slot of the
// program in g_filter_id, -1 when it failed; it is read right after the allocation and at no other time.
#pragma once

#include <cstddef>
#include <cstdint>

using t_tarn_mem_alloc = void *(*)(size_t size);
using t_tarn_mem_free = void (*)(void *p_mem);

struct t_tarn_mem_mgr {
    t_tarn_mem_alloc alloc;
    t_tarn_mem_free free;
};

extern t_tarn_mem_mgr *g_tarn_mem_mgr;  // null until a manager is registered
extern int g_filter_id;                 // slot of the last allocation, or -1

// Copies the manager's functions; null takes the manager back.
void tarn_register_mem_mgr(const t_tarn_mem_mgr *p_mgr);

// Zeroed memory of `size` bytes, or null without a manager or without memory.
void *tarn_mem_alloc(size_t size, const t_tarn_mem_mgr *p_mgr);

// The same without zeroing, for a writer that covers every byte itself.
void *tarn_mem_alloc_dirty(size_t size, const t_tarn_mem_mgr *p_mgr);

// Gives memory back; does nothing without a manager.
void tarn_mem_free(void *p_mem, const t_tarn_mem_mgr *p_mgr);
