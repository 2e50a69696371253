// Spin lock in shared memory that knows its owner and outlives him.
//
// One word: 0 is free, otherwise the process that holds it, by its id and the low bits of its starting time,
// so that a later process of the same id isn't taken for it. A waiter spins a little, then gives the
// processor away, and looks now and then whether the owner still lives; a dead one's lock goes to the first
// waiter that sees it. All users live in one process id namespace and see /proc. Not fair, not recursive; the
// threads of a process are one owner. What the lock guards must make sense after every single store.
#pragma once

#include <cstdint>
#include <sys/types.h>

inline constexpr int CVMX_OWNER_PID_BITS =
    22;  // the kernel's ids go to 2^22 - 1; the starting time has the rest

// True when the lock was taken from an owner who died; `what` with `number` names it in the log line then.
bool cvmx_ownerlock_lock(uint32_t *p_word, const char *what, int number);
void cvmx_ownerlock_unlock(uint32_t *p_word);

// The process that a word names.
inline pid_t cvmx_ownerlock_pid(uint32_t word)
{
    return static_cast<pid_t>(word & ((1u << CVMX_OWNER_PID_BITS) - 1));
}
