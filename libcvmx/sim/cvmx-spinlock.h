// Spin lock: one word, 0 free and 1 held, that may lie in shared memory.
//
// Taken with an atomic exchange; a waiter loops on plain reads, so that it doesn't pull the cache line away
// from the holder. Not fair, not recursive, and a process that dies while it holds a lock leaves it held.
// Hold it for a few stores only. A zeroed word is a free lock.
#pragma once

#include <cstdint>
#include <type_traits>

struct cvmx_spinlock_t {
    uint32_t value;
};
static_assert(sizeof(cvmx_spinlock_t) == 4);
static_assert(std::is_standard_layout_v<cvmx_spinlock_t>);

inline void cvmx_spinlock_init(cvmx_spinlock_t *p_lock)
{
    __atomic_store_n(&p_lock->value, 0, __ATOMIC_RELAXED);
}

inline void cvmx_spinlock_lock(cvmx_spinlock_t *p_lock)
{
    while (__atomic_exchange_n(&p_lock->value, 1, __ATOMIC_ACQUIRE) != 0) {
        while (__atomic_load_n(&p_lock->value, __ATOMIC_RELAXED) != 0)
            __builtin_ia32_pause();
    }
}

inline void cvmx_spinlock_unlock(cvmx_spinlock_t *p_lock)
{
    __atomic_store_n(&p_lock->value, 0, __ATOMIC_RELEASE);
}
