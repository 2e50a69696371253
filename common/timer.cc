#include "common/timer.h"

#include "common/timer_private.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

bool g_timer_debug;

// How far a pass may go over its budget before it stops.
static constexpr uint32_t budget_slack_ms = 50;

// A single timer that takes longer is named in the log. The limit can be lowered down to the floor.
static constexpr uint32_t slow_timer_floor_ms = 250;
static constexpr uint32_t slow_timer_limit_ms = std::max(5000u, slow_timer_floor_ms);

static constexpr long nsecs_per_sec = 1'000'000'000;
static constexpr long nsecs_per_msec = 1'000'000;

// Length of one tick in milliseconds, by e_timer_resn.
static constexpr uint32_t tick_msecs[] = {10, 50, 100, 500, 1000, 60000};

static uint32_t resolution_msecs(e_timer_resn resn)
{
    LUM_ASSERT(static_cast<uint32_t>(resn) <= TIMER_RESN_MIN, "resn <= TIMER_RESN_MIN");
    return tick_msecs[resn];
}

uint64_t TIMER_MSECS_TO_TICKS(e_timer_resn resn, uint64_t msecs, bool roundup)
{
    uint32_t tick = resolution_msecs(resn);
    return (msecs + (roundup ? tick / 2 : 0)) / tick;
}

uint64_t TIMER_TICKS_TO_MSECS(e_timer_resn resn, uint64_t ticks)
{
    return ticks * resolution_msecs(resn);
}

// Seconds and nanoseconds are taken apart, and the nanoseconds' difference is cut towards zero.
static int64_t msecs_between(const timespec &from, const timespec &to)
{
    return (to.tv_sec - from.tv_sec) * 1000 + (to.tv_nsec - from.tv_nsec) / nsecs_per_msec;
}

static uint32_t interval_to_ticks(const t_timer_mgr *p_mgr, uint32_t msecs)
{
    return static_cast<uint32_t>(TIMER_MSECS_TO_TICKS(p_mgr->resolution, msecs, true));
}

static t_timer_mgr_pri *wheel_of(const t_timer *p_timer)
{
    return p_timer->p_mgr->pri[p_timer->priority];
}

static t_timer *head_of(const t_dll *p_list)
{
    return p_list->p_head != nullptr ? DLL_RECORD(p_list->p_head, t_timer, dl_node) : nullptr;
}

static t_dll *bucket_list(t_timer_mgr_pri *p_pri, uint64_t ticks)
{
    return &p_pri->buckets[ticks & TIMER_BUCKET_MASK].dl_list;
}

void timer_debug(bool enable)
{
    g_timer_debug = enable;
}

void *timer_malloc(size_t size)
{
    return malloc(size);
}

void timer_free(void *p_mem)
{
    free(p_mem);
}

t_timer_mgr *timer_mgr_create(e_timer_resn resolution, f_timer_alloc alloc_fn, f_timer_free free_fn,
                              void *mem_arg, uint32_t pri_mask)
{
    if (alloc_fn == nullptr || free_fn == nullptr) {
        alloc_fn = timer_malloc;
        free_fn = timer_free;
    }
    size_t wheels = static_cast<size_t>(std::popcount(pri_mask & TIMER_PRI_MASK_ALL));
    size_t size = sizeof(t_timer_mgr) + wheels * sizeof(t_timer_mgr_pri);
    t_timer_mgr *p_mgr = static_cast<t_timer_mgr *>(alloc_fn(size));
    if (p_mgr == nullptr)
        return nullptr;
    memset(static_cast<void *>(p_mgr), 0, size);
    p_mgr->resolution = resolution;
    p_mgr->alloc_fn = alloc_fn;
    p_mgr->free_fn = free_fn;
    p_mgr->mem_arg = mem_arg;
    p_mgr->cur_time = timer_clock_read();
    t_timer_mgr_pri *p_next = reinterpret_cast<t_timer_mgr_pri *>(p_mgr + 1);
    for (uint32_t priority = TIMER_PRI_MIN; priority < NUM_TIMER_PRIORITIES; priority++) {
        if (pri_mask & (1u << priority))
            p_mgr->pri[priority] = p_next++;
    }
    return p_mgr;
}

void timer_mgr_destroy(t_timer_mgr *p_mgr)
{
    bool all_deleted =
        p_mgr->num_timers_created == p_mgr->num_timers_deleted && p_mgr->num_timers_active == 0;
    if (!all_deleted)
        timer_mgr_dump(p_mgr, 1024);
    LUM_ASSERT(all_deleted, "(p_mgr->num_timers_created == p_mgr->num_timers_deleted) && "
                            "(p_mgr->num_timers_active == 0)");
    p_mgr->free_fn(p_mgr);
}

e_timer_resn timer_mgr_get_resolution(const t_timer_mgr *p_mgr, timeval *p_interval)
{
    if (p_interval != nullptr) {
        uint32_t msecs = resolution_msecs(p_mgr->resolution);
        *p_interval = {msecs / 1000, static_cast<suseconds_t>(msecs % 1000) * 1000};
    }
    return p_mgr->resolution;
}

void timer_mgr_update_curtime(t_timer_mgr *p_mgr)
{
    int64_t elapsed = msecs_between(p_mgr->cur_time, timer_clock_read());
    if (elapsed <= 0)
        return;
    uint64_t ticks = TIMER_MSECS_TO_TICKS(p_mgr->resolution, static_cast<uint64_t>(elapsed), false);
    if (ticks == 0)
        return;
    // By whole ticks and not to the instant just read, so that no fraction is ever lost.
    int64_t advance = static_cast<int64_t>(TIMER_TICKS_TO_MSECS(p_mgr->resolution, ticks));
    p_mgr->cur_ticks += ticks;
    p_mgr->cur_time.tv_sec += advance / 1000;
    p_mgr->cur_time.tv_nsec += advance % 1000 * nsecs_per_msec;
    if (p_mgr->cur_time.tv_nsec > nsecs_per_sec) {
        p_mgr->cur_time.tv_nsec -= nsecs_per_sec;
        p_mgr->cur_time.tv_sec++;
    }
}

t_timer *timer_util_create(t_timer_mgr *p_mgr, e_timer_priority priority, e_timer_type type,
                           uint32_t interval_msecs, f_timer_callback cb, void *arg1, void *arg2, void *arg3,
                           void *arg4, const char *p_name)
{
    e_timer_priority actual = priority;
    while (actual > TIMER_PRI_MIN && p_mgr->pri[actual] == nullptr)
        actual = static_cast<e_timer_priority>(actual - 1);
    if (p_mgr->pri[actual] == nullptr)
        return nullptr;
    t_timer *p_timer = static_cast<t_timer *>(p_mgr->alloc_fn(sizeof(t_timer)));
    if (p_timer == nullptr)
        return nullptr;
    *p_timer = {};
    p_timer->p_mgr = p_mgr;
    p_timer->priority = actual;
    p_timer->type = type;
    p_timer->bucket = TIMER_BUCKET_NULL;
    snprintf(p_timer->name, sizeof(p_timer->name), "%s", p_name);
    p_timer->interval_ticks = interval_to_ticks(p_mgr, interval_msecs);
    p_timer->cb = cb;
    void *const args[] = {arg1, arg2, arg3, arg4};
    std::copy(std::begin(args), std::end(args), p_timer->args);
    p_mgr->num_timers_created++;
    DLL_ADD(&p_mgr->created_timers, &p_timer->created_dlnode);
    TIMER_DEBUG("name %s, priority %d (actual %d), type %d, interval %u msecs (%u ticks)", p_timer->name,
                priority, actual, type, interval_msecs, p_timer->interval_ticks);
    return p_timer;
}

void timer_util_delete(t_timer *p_timer)
{
    if (p_timer == nullptr)
        return;
    TIMER_DEBUG("name %s, priority %d, type %d, interval %u msecs (%u ticks)", p_timer->name,
                p_timer->priority, p_timer->type, static_cast<uint32_t>(timer_get_interval_msec(p_timer)),
                p_timer->interval_ticks);
    timer_disable(p_timer);
    t_timer_mgr *p_mgr = p_timer->p_mgr;
    DLL_REMOVE(&p_mgr->created_timers, &p_timer->created_dlnode);
    p_timer->p_mgr = nullptr;
    p_mgr->free_fn(p_timer);
    p_mgr->num_timers_deleted++;
}

// Hangs the timer, which is in no bucket, into that of its expire_ticks.
static void timer_queue(t_timer *p_timer)
{
    p_timer->bucket = static_cast<uint16_t>(p_timer->expire_ticks & TIMER_BUCKET_MASK);
    DLL_ADD(bucket_list(wheel_of(p_timer), p_timer->expire_ticks), &p_timer->dl_node);
    p_timer->p_mgr->num_timers_active++;
}

void timer_enable(t_timer *p_timer)
{
    if (p_timer->state == TIMER_STATE_ENABLED)
        return;
    LUM_ASSERT(p_timer->bucket == TIMER_BUCKET_NULL, "p_timer->bucket == TIMER_BUCKET_NULL");
    t_timer_mgr *p_mgr = p_timer->p_mgr;
    timer_mgr_update_curtime(p_mgr);
    if (p_timer->interval_ticks == 0)
        p_timer->interval_ticks = 1;
    uint64_t next_bucket_ticks = wheel_of(p_timer)->next_bucket_ticks;
    p_timer->expire_ticks = p_mgr->cur_ticks + p_timer->interval_ticks;
    if (p_timer->expire_ticks < next_bucket_ticks)
        p_timer->expire_ticks = next_bucket_ticks + 1;
    p_timer->state = TIMER_STATE_ENABLED;
    p_timer->walked = 0;
    timer_queue(p_timer);
    TIMER_DEBUG("p_timer %p %s cur_ticks %#lx next_bucket_ticks %#lx expire_ticks: %#lx",
                static_cast<void *>(p_timer), p_timer->name, p_mgr->cur_ticks, next_bucket_ticks,
                p_timer->expire_ticks);
    if (g_timer_debug)
        timer_dump(p_timer);
}

void timer_disable(t_timer *p_timer)
{
    if (p_timer->state == TIMER_STATE_DISABLED)
        return;
    p_timer->state = TIMER_STATE_DISABLED;
    if (p_timer->bucket != TIMER_BUCKET_NULL) {
        DLL_REMOVE(&wheel_of(p_timer)->buckets[p_timer->bucket].dl_list, &p_timer->dl_node);
        p_timer->bucket = TIMER_BUCKET_NULL;
        p_timer->p_mgr->num_timers_active--;
    }
    TIMER_DEBUG("p_timer %p %s cur_ticks %#lx next_bucket_ticks %#lx", static_cast<void *>(p_timer),
                p_timer->name, p_timer->p_mgr->cur_ticks, wheel_of(p_timer)->next_bucket_ticks);
    if (g_timer_debug)
        timer_dump(p_timer);
}

void timer_reset(t_timer *p_timer, int msecs)
{
    p_timer->interval_ticks = interval_to_ticks(p_timer->p_mgr, static_cast<uint32_t>(msecs));
    timer_disable(p_timer);
    timer_enable(p_timer);
}

void timer_reset_interval(t_timer *p_timer, int msecs)
{
    p_timer->interval_ticks = interval_to_ticks(p_timer->p_mgr, static_cast<uint32_t>(msecs));
    if (!timer_is_active(p_timer))
        return;
    timer_disable(p_timer);
    timer_enable(p_timer);
}

bool timer_is_active(const t_timer *p_timer)
{
    return p_timer->state == TIMER_STATE_ENABLED && p_timer->bucket != TIMER_BUCKET_NULL;
}

int timer_get_ticks_to_expiry(const t_timer *p_timer)
{
    if (!timer_is_active(p_timer))
        return -1;
    return static_cast<int>(p_timer->expire_ticks - p_timer->p_mgr->cur_ticks);
}

int timer_get_msecs_to_expiry(const t_timer *p_timer)
{
    if (!timer_is_active(p_timer))
        return -1;
    uint64_t now = p_timer->p_mgr->cur_ticks;
    uint64_t distance =
        p_timer->expire_ticks > now ? p_timer->expire_ticks - now : now - p_timer->expire_ticks;
    return static_cast<int>(TIMER_TICKS_TO_MSECS(p_timer->p_mgr->resolution, distance));
}

int timer_get_interval_ticks(const t_timer *p_timer)
{
    return p_timer != nullptr ? static_cast<int>(p_timer->interval_ticks) : -1;
}

int timer_get_interval_msec(const t_timer *p_timer)
{
    if (p_timer == nullptr)
        return -1;
    return static_cast<int>(TIMER_TICKS_TO_MSECS(p_timer->p_mgr->resolution, p_timer->interval_ticks));
}

t_timer *timer_get_next(const t_timer *p_timer)
{
    t_dlnode *p_next = p_timer->dl_node.p_next;
    return p_next != nullptr ? DLL_RECORD(p_next, t_timer, dl_node) : nullptr;
}

void timer_get_args(const t_timer *p_timer, void **pp_arg1, void **pp_arg2, void **pp_arg3, void **pp_arg4)
{
    void **const destinations[] = {pp_arg1, pp_arg2, pp_arg3, pp_arg4};
    for (size_t i = 0; i < TIMER_NUM_ARGS; i++) {
        if (destinations[i] != nullptr)
            *destinations[i] = p_timer->args[i];
    }
}

uint32_t timer_get_synchronized_time(uint32_t interval_msecs)
{
    uint64_t now_ms = static_cast<uint64_t>(msecs_between({}, timer_clock_read()));
    return interval_msecs - static_cast<uint32_t>(now_ms % interval_msecs);
}

void timer_del_all_cur_bucket(t_timer_mgr *p_mgr, f_timer_args_callback cb)
{
    for (t_timer_mgr_pri *p_pri : p_mgr->pri) {
        if (p_pri == nullptr)
            continue;
        for (t_timer *p_timer = head_of(bucket_list(p_pri, p_pri->next_bucket_ticks)); p_timer != nullptr;) {
            t_timer *p_next = timer_get_next(p_timer);
            cb(p_timer->args[0], p_timer->args[1], p_timer->args[2], p_timer->args[3]);
            timer_util_delete(p_timer);
            p_timer = p_next;
        }
    }
}

// One pass over one wheel.
struct t_timer_walk {
    const timespec *p_starttime;
    uint32_t msecs;              // budget
    uint32_t elapsed;            // since p_starttime, at the last look
    bool yield;                  // over budget: stop before the next bucket
    char name[TIMER_NAME_SIZE];  // of the timer that ran last
};

static void walk_check_budget(t_timer_walk *p_walk)
{
    uint32_t last_elapsed = p_walk->elapsed;
    p_walk->elapsed = static_cast<uint32_t>(msecs_between(*p_walk->p_starttime, timer_clock_read()));
    if (p_walk->elapsed <= uint64_t{p_walk->msecs} + budget_slack_ms)
        return;
    p_walk->yield = true;
    uint32_t taken = p_walk->elapsed - last_elapsed;
    if (taken > slow_timer_limit_ms)
        LUM_LOG(LUM_LOG_NOTICE, "%s timer took %u msecs!", p_walk->name, taken);
}

// A timer in the bucket that is not due belongs to a later revolution. One that should have fired in an
// earlier revolution shows a corrupt wheel and ends the process.
static void timer_check_if_stale(const t_timer *p_timer, uint64_t bucket_ticks)
{
    int32_t stale_ticks = static_cast<int32_t>(bucket_ticks - p_timer->expire_ticks);
    if (stale_ticks < 1)
        return;
    LUM_LOG(LUM_LOG_ERROR, "timer %s (%p) stale by %d ticks", p_timer->name,
            static_cast<const void *>(p_timer), stale_ticks);
    LUM_ASSERT(stale_ticks < 1, "stale_ticks < 1");
}

// Puts a timer that was taken off the bucket's head behind all that this pass has yet to look at.
static void timer_skip(t_timer *p_timer, t_dll *p_list, uint64_t bucket_ticks)
{
    DLL_ADD(p_list, &p_timer->dl_node);
    p_timer->walked = 1;
    TIMER_DEBUG("p_timer %p %s needs to be skipped. cur_bucket %x expire_ticks %lx cur_ticks %lx walked %d\n",
                static_cast<void *>(p_timer), p_timer->name,
                static_cast<uint32_t>(bucket_ticks & TIMER_BUCKET_MASK), p_timer->expire_ticks,
                p_timer->p_mgr->cur_ticks, p_timer->walked);
}

static void timer_fire(t_timer_walk *p_walk, t_timer *p_timer, uint64_t bucket_ticks)
{
    p_timer->bucket = TIMER_BUCKET_NULL;
    p_timer->p_mgr->num_timers_active--;
    p_timer->p_mgr->num_timers_fired++;
    if (p_timer->type == TIMER_TYPE_CYCLIC) {
        // Counted from the bucket and not from the clock: a late pass causes no drift.
        p_timer->expire_ticks = bucket_ticks + p_timer->interval_ticks;
        timer_queue(p_timer);
    } else {
        p_timer->state = TIMER_STATE_DISABLED;
    }
    TIMER_DEBUG("exec timer %s (%p) cur_bucket %#x next_bucket %#x", p_timer->name,
                static_cast<void *>(p_timer), static_cast<uint32_t>(bucket_ticks & TIMER_BUCKET_MASK),
                p_timer->bucket);
    memcpy(p_walk->name, p_timer->name, sizeof(p_walk->name));  // the callback may delete the timer
    p_timer->cb(p_timer, p_timer->args[0], p_timer->args[1], p_timer->args[2], p_timer->args[3]);
}

// Always looks at the head and never keeps a next pointer, so that a callback may remove any timer. What is
// skipped goes behind everything unseen, so the first walked timer ends the bucket.
static void walk_bucket(t_timer_walk *p_walk, t_dll *p_list, uint64_t bucket_ticks)
{
    for (t_timer *p_timer; (p_timer = head_of(p_list)) != nullptr && !p_timer->walked;) {
        walk_check_budget(p_walk);
        DLL_REMOVE(p_list, &p_timer->dl_node);
        if (p_timer->expire_ticks == bucket_ticks) {
            timer_fire(p_walk, p_timer, bucket_ticks);
            continue;
        }
        timer_check_if_stale(p_timer, bucket_ticks);
        timer_skip(p_timer, p_list, bucket_ticks);
    }
    for (t_timer *p_timer = head_of(p_list); p_timer != nullptr; p_timer = timer_get_next(p_timer)) {
        p_timer->walked = 0;
        TIMER_DEBUG("timer %s %p walked = 0 bucket %x", p_timer->name, static_cast<void *>(p_timer),
                    p_timer->bucket);
    }
}

static int timer_exec_pri(t_timer_mgr *p_mgr, t_timer_mgr_pri *p_pri, const timespec *p_starttime,
                          uint32_t msecs)
{
    t_timer_walk walk = {p_starttime, msecs, 0, false, ""};
    // A callback may advance the manager's ticks, which are for the next pass to see.
    uint64_t last_ticks = p_mgr->cur_ticks;
    while (p_pri->next_bucket_ticks <= last_ticks) {
        if (walk.yield)
            return EAGAIN;
        uint64_t bucket_ticks = p_pri->next_bucket_ticks;
        t_dll *p_list = bucket_list(p_pri, bucket_ticks);
        walk_bucket(&walk, p_list, bucket_ticks);
        for (t_timer *p_timer = head_of(p_list); p_timer != nullptr; p_timer = timer_get_next(p_timer))
            LUM_ASSERT(p_timer->walked == 0, "p_timer->walked == 0");
        // Unless a callback has run this wheel and taken it further.
        if (p_pri->next_bucket_ticks == bucket_ticks)
            p_pri->next_bucket_ticks++;
    }
    return 0;
}

int timer_exec(t_timer_mgr *p_mgr, uint32_t pri_mask, uint32_t msecs)
{
    timer_mgr_update_curtime(p_mgr);
    timespec starttime = timer_clock_read();
    for (int priority = NUM_TIMER_PRIORITIES - 1; priority >= TIMER_PRI_MIN; priority--) {
        t_timer_mgr_pri *p_pri = p_mgr->pri[priority];
        if ((pri_mask & (1u << priority)) == 0 || p_pri == nullptr)
            continue;
        int result = timer_exec_pri(p_mgr, p_pri, &starttime, msecs);
        if (result != 0)
            return result;
    }
    return 0;
}
