#include "libcvmx/sim/cvmx-ownerlock.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include "libcvmx/sim/sim_log.h"

static constexpr uint32_t SPINS = 100;           // looks at the word before the processor is given away
static constexpr uint32_t TURNS_TO_LOOK = 1000;  // turns between two looks at the owner, about a millisecond
static constexpr uint64_t START_VALUES = (1u << (32 - CVMX_OWNER_PID_BITS)) - 1;

// The word of this process; 0: not made yet.
static std::atomic<uint32_t> g_own_word;

namespace {
// What /proc says of a process.
struct t_process {
    char state;
    long threads;
    unsigned long long start_time;  // clock ticks after the machine's start
};
}  // namespace

static bool read_process(pid_t pid, t_process *p_process)
{
    char path[32];
    char text[1024];
    snprintf(path, sizeof(path), "/proc/%d/stat", pid);
    FILE *p_file = fopen(path, "re");
    if (p_file == nullptr)
        return false;
    bool got = fgets(text, sizeof(text), p_file) != nullptr;
    fclose(p_file);
    // The program's name, in parentheses, may hold anything.
    const char *p_rest = got ? strrchr(text, ')') : nullptr;
    return p_rest != nullptr &&
           sscanf(p_rest + 1,
                  " %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %ld %*s %llu",
                  &p_process->state, &p_process->threads, &p_process->start_time) == 3;
}

// The starting time as the word has it, never 0, which stands for an unknown one.
static uint32_t start_bits(const t_process &process)
{
    return static_cast<uint32_t>(process.start_time % START_VALUES) + 1;
}

static uint32_t own_word()
{
    uint32_t word = g_own_word.load(std::memory_order_relaxed);
    if (word != 0)
        return word;
    static const int registered = pthread_atfork(nullptr, nullptr, [] { g_own_word = 0; });
    static_cast<void>(registered);
    t_process self = {};
    pid_t pid = getpid();
    uint32_t start = read_process(pid, &self) ? start_bits(self) : 0;
    word = start << CVMX_OWNER_PID_BITS | static_cast<uint32_t>(pid);
    g_own_word.store(word, std::memory_order_relaxed);
    return word;
}

// Unsure means alive. A killed process that nobody has waited for yet is dead when its last thread is.
static bool owner_lives(uint32_t word)
{
    pid_t pid = cvmx_ownerlock_pid(word);
    uint32_t start = word >> CVMX_OWNER_PID_BITS;
    t_process process = {};
    if (!read_process(pid, &process))
        return kill(pid, 0) == 0 || errno != ESRCH;
    if (start != 0 && start != start_bits(process))
        return false;
    bool over = process.state == 'Z' || process.state == 'X';
    return !over || process.threads > 1;
}

static void wait_for_change(const uint32_t *p_word, uint32_t owner)
{
    for (uint32_t i = 0; i < SPINS; i++) {
        if (__atomic_load_n(p_word, __ATOMIC_RELAXED) != owner)
            return;
        __builtin_ia32_pause();
    }
    sched_yield();
}

static bool take(uint32_t *p_word, uint32_t *p_expected)
{
    return __atomic_compare_exchange_n(p_word, p_expected, own_word(), false, __ATOMIC_ACQUIRE,
                                       __ATOMIC_RELAXED);
}

bool cvmx_ownerlock_lock(uint32_t *p_word, const char *what, int number)
{
    for (uint32_t turn = 1;; turn++) {
        uint32_t owner = 0;
        if (take(p_word, &owner))
            return false;
        wait_for_change(p_word, owner);
        if (turn % TURNS_TO_LOOK != 0 || owner_lives(owner))
            continue;
        uint32_t dead = owner;
        if (take(p_word, &dead)) {
            cvmx_sim_log("%s %d: process %d died holding the lock, it is taken over\n", what, number,
                         cvmx_ownerlock_pid(owner));
            return true;
        }
    }
}

void cvmx_ownerlock_unlock(uint32_t *p_word)
{
    __atomic_store_n(p_word, 0, __ATOMIC_RELEASE);
}
