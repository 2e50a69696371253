// Memory of the machine: named blocks that processes share, and private memory.
//
// A named block is a POSIX shared-memory object. Allocating and attaching are one operation: the first
// process creates the block, filled with zeros by the system, and the others open it. Each process maps it at
// an address of its own, so pointers into a block mean nothing to another process. Mappings and blocks stay
// until the process, or whoever unlinks the object, ends them.
#pragma once

#include <cstdint>

// Creates or opens the block and maps it for reading and writing. The block takes the size given, in bytes: a
// bigger size than it had grows it, a smaller one cuts it. alignment isn't used; the mapping begins on a
// page. Null on failure, reported with perror unless it was the mapping that failed.
void *cvmx_bootmem_alloc_named(uint64_t size, uint64_t alignment, const char *name);

// Private memory of `size` bytes, zeroed; alignment as above. Null on failure, reported with perror.
void *cvmx_bootmem_alloc(uint64_t size, uint64_t alignment);

// What the list of named blocks would hold of one block, on machines that keep such a list.
struct cvmx_bootmem_named_block_desc_t {
    uint64_t base_addr;
    uint64_t size;
    char name[128];
};

// Always null: there is no list here, a named block is opened again with cvmx_bootmem_alloc_named.
const cvmx_bootmem_named_block_desc_t *cvmx_bootmem_find_named_block(const char *name);
