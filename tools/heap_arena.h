// A memory manager for programs outside the daemon: blocks from the heap.
//
// Stands where filter memory stands in the daemon, for tools, tests and benchmarks. The largest block given
// back is kept and handed out again, as a pool that exists once would. Not thread-safe.
#pragma once

#include <cstddef>

// Registers the arena with the compiler. Programs are freed with tarn_mem_free(p, g_tarn_mem_mgr).
void heap_arena_register();

// Largest number of bytes in use at once since the last call of this function.
size_t heap_arena_take_peak();

// Gives the kept block back to the system.
void heap_arena_trim();
