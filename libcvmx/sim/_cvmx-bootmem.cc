#include "libcvmx/sim/_cvmx-bootmem.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

void *cvmx_bootmem_alloc_named(uint64_t size, uint64_t, const char *name)
{
    int fd = shm_open(name, O_RDWR | O_CREAT, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        perror("shm_open");
        return nullptr;
    }
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
        perror("shm_open");
        close(fd);
        return nullptr;
    }
    void *p_block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return p_block != MAP_FAILED ? p_block : nullptr;
}

void *cvmx_bootmem_alloc(uint64_t size, uint64_t)
{
    void *p_memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p_memory == MAP_FAILED) {
        perror("mmap");
        return nullptr;
    }
    return p_memory;
}

const cvmx_bootmem_named_block_desc_t *cvmx_bootmem_find_named_block(const char *)
{
    return nullptr;
}
