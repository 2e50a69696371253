// Timer wheel: everything in the daemon that happens after a while.
//
// A manager is a hashed wheel per priority: 2048 buckets of one tick each, so that one revolution at 10 ms
// is 20.48 s. A timer hangs in the bucket of its expiry tick; one that is due in a later revolution is looked
// at and left there each time the wheel passes. The library owns no thread and no timer of the operating
// system. It counts ticks of the monotonic clock and runs what is due when somebody calls timer_exec: the
// daemon's base timer, and in long loops tarn_exec_priority_timers for those of high priority.
//
// A timer is created disabled and lives until timer_util_delete. A one-shot timer is disabled when its
// callback runs, which may enable it again; a cyclic one is queued again already, and its callback stops it
// by timer_disable. A callback may enable, disable, reset, create and delete any timer, itself too, and may
// run the wheels again. A manager dies only after all of its timers. There are no locks: one thread owns a
// manager.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <sys/time.h>

#include "common/dll.h"

enum e_timer_resn {
    TIMER_RESN_10MSEC = 0,
    TIMER_RESN_50MSEC = 1,
    TIMER_RESN_100MSEC = 2,
    TIMER_RESN_500MSEC = 3,
    TIMER_RESN_SEC = 4,
    TIMER_RESN_MIN = 5,
};

enum e_timer_priority {
    TIMER_PRI_MIN = 0,
    TIMER_PRI_NORMAL = 0,
    TIMER_PRI_HIGH = 1,
    NUM_TIMER_PRIORITIES = 2,
};

enum e_timer_pri_mask {
    TIMER_PRI_MASK_NORMAL = 1,
    TIMER_PRI_MASK_HIGH = 2,
    TIMER_PRI_MASK_ALL = 3,
};

enum e_timer_type {
    TIMER_TYPE_ONESHOT = 0,
    TIMER_TYPE_CYCLIC = 1,
};

enum e_timer_state {
    TIMER_STATE_DISABLED = 0,
    TIMER_STATE_ENABLED = 1,
    TIMER_STATE_DELETED = 2,  // has a name in dumps; no timer is ever in it
};

struct t_timer;
struct t_timer_mgr;

using f_timer_alloc = void *(*)(size_t size);
using f_timer_free = void (*)(void *p_mem);
using f_timer_callback = void (*)(t_timer *p_timer, void *arg1, void *arg2, void *arg3, void *arg4);
using f_timer_args_callback = void (*)(void *arg1, void *arg2, void *arg3, void *arg4);

inline constexpr uint32_t TIMER_NUM_BUCKETS = 2048;
inline constexpr uint32_t TIMER_BUCKET_MASK = TIMER_NUM_BUCKETS - 1;
inline constexpr uint16_t TIMER_BUCKET_NULL = 0xFFFF;  // in no bucket
inline constexpr size_t TIMER_NAME_SIZE = 40;          // with its terminator
inline constexpr size_t TIMER_NUM_ARGS = 4;

struct t_timer {
    t_dlnode dl_node;         // in a bucket; first, so that a bucket's node is the timer
    t_dlnode created_dlnode;  // in created_timers, from creation to deletion
    t_timer_mgr *p_mgr;       // null once deleted
    e_timer_type type : 8;
    e_timer_state state : 8;
    e_timer_priority priority : 8;  // the one in use, which may be lower than the one asked for
    unsigned walked : 1;            // seen by the pass over its bucket that is under way, and left for later
    uint16_t bucket;                // index, or TIMER_BUCKET_NULL
    uint32_t interval_ticks;
    uint64_t expire_ticks;  // absolute
    char name[TIMER_NAME_SIZE];
    f_timer_callback cb;
    void *args[TIMER_NUM_ARGS];  // the callers', never followed
};
static_assert(offsetof(t_timer, dl_node) == 0);
static_assert(std::is_standard_layout_v<t_timer>);

struct t_timer_bucket {
    t_dll dl_list;
};

// The wheel of one priority.
struct t_timer_mgr_pri {
    uint64_t next_bucket_ticks;  // absolute tick of the next bucket to walk
    t_timer_bucket buckets[TIMER_NUM_BUCKETS];
};

// The wheels follow the manager in the same allocation, in ascending priority.
struct t_timer_mgr {
    e_timer_resn resolution;
    f_timer_alloc alloc_fn;
    f_timer_free free_fn;
    void *mem_arg;      // kept for the creator, passed to nobody
    timespec cur_time;  // monotonic instant that cur_ticks stands for
    uint64_t cur_ticks;
    t_timer_mgr_pri *pri[NUM_TIMER_PRIORITIES];  // null for a priority without a wheel
    t_dll created_timers;
    uint32_t num_timers_created;
    uint32_t num_timers_deleted;
    uint32_t num_timers_active;
    uint32_t num_timers_fired;
};
static_assert(sizeof(t_timer_mgr) % alignof(t_timer_mgr_pri) == 0);

// Managers.

// Null when the allocation fails. Unless both functions are given, timer_malloc and timer_free serve.
// pri_mask says, in bits of e_timer_pri_mask, which priorities get a wheel.
[[nodiscard]] t_timer_mgr *timer_mgr_create(e_timer_resn resolution, f_timer_alloc alloc_fn,
                                            f_timer_free free_fn, void *mem_arg, uint32_t pri_mask);

// Every timer must have been deleted: otherwise dumps them all and fails an assertion.
void timer_mgr_destroy(t_timer_mgr *p_mgr);

// Also fills p_interval, if given, with the length of one tick.
e_timer_resn timer_mgr_get_resolution(const t_timer_mgr *p_mgr, timeval *p_interval);

// The heap.
void *timer_malloc(size_t size);
void timer_free(void *p_mem);

// Timers.

// A disabled timer, or null when the allocation fails or there is neither a wheel of the asked priority nor
// of a lower one. The interval is rounded to the nearest tick. The name is cut to 39 characters.
[[nodiscard]] t_timer *timer_util_create(t_timer_mgr *p_mgr, e_timer_priority priority, e_timer_type type,
                                         uint32_t interval_msecs, f_timer_callback cb, void *arg1, void *arg2,
                                         void *arg3, void *arg4, const char *p_name);

// Disables the timer and frees it. Accepts null.
void timer_util_delete(t_timer *p_timer);

// Starts the countdown, of at least one tick. A countdown that runs already is left alone.
void timer_enable(t_timer *p_timer);
void timer_disable(t_timer *p_timer);

// Sets the interval (taken as unsigned, rounded to the nearest tick) and starts the countdown anew, of an
// idle timer too.
void timer_reset(t_timer *p_timer, int msecs);

// The same, but an idle timer stays idle.
void timer_reset_interval(t_timer *p_timer, int msecs);

// Questions.

bool timer_is_active(const t_timer *p_timer);

// -1 for an inactive timer. Negative when the timer is overdue.
int timer_get_ticks_to_expiry(const t_timer *p_timer);

// -1 for an inactive timer. Counts the distance in either direction: an overdue timer gives how late it is.
int timer_get_msecs_to_expiry(const t_timer *p_timer);

// -1 for null.
int timer_get_interval_ticks(const t_timer *p_timer);
int timer_get_interval_msec(const t_timer *p_timer);

// The next timer in the same bucket, or null.
t_timer *timer_get_next(const t_timer *p_timer);

// Copies each argument whose destination is not null.
void timer_get_args(const t_timer *p_timer, void **pp_arg1, void **pp_arg2, void **pp_arg3, void **pp_arg4);

// Milliseconds to the next multiple of the interval on the monotonic clock, so that independent activities
// can keep the same beat. The interval must not be 0.
uint32_t timer_get_synchronized_time(uint32_t interval_msecs);

// Running.

// Runs what is due on the wheels in pri_mask, high priority first. Returns 0, or 11 (EAGAIN) when it stopped
// early: a pass that finds itself more than 50 ms over msecs finishes its bucket and stops. The next call
// goes on with the next bucket, and nothing is skipped. A high wheel that stops early keeps the normal one
// waiting.
int timer_exec(t_timer_mgr *p_mgr, uint32_t pri_mask, uint32_t msecs);

// Reads the clock and advances cur_ticks by the whole ticks that have passed. The rest stays for the next
// reading.
void timer_mgr_update_curtime(t_timer_mgr *p_mgr);

// Deletes all timers of the bucket that each wheel walks next; cb gets the arguments of each before. cb must
// leave the other timers of the bucket alone.
void timer_del_all_cur_bucket(t_timer_mgr *p_mgr, f_timer_args_callback cb);

// Conversions; the resolution must be one of the enumeration. roundup rounds to the nearest tick, not up: at
// 10 ms 4 gives 0 ticks and 5 gives 1. Without it the rest is cut off.
uint64_t TIMER_MSECS_TO_TICKS(e_timer_resn resn, uint64_t msecs, bool roundup);
uint64_t TIMER_TICKS_TO_MSECS(e_timer_resn resn, uint64_t ticks);

// Diagnosis; all lines go to syslog at debug priority.

// Switches the lines about each step of each timer on or off, for all managers.
void timer_debug(bool enable);
void timer_dump(const t_timer *p_timer);

// All timers, the manager's counters, and the timers in the buckets from num_buckets_to_print before the next
// one to walk to as many after it.
void timer_mgr_dump(const t_timer_mgr *p_mgr, uint32_t num_buckets_to_print);
