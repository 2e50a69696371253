#include "common/timer_private.h"

static const char *const TimerResnStr[] = {"10ms", "50ms", "100ms", "500ms", "1sec", "1min"};
static const char *const TimerTypeStr[] = {"one-shot", "cyclic"};
static const char *const TimerPriStr[] = {"normal", "high"};
static const char *const TimerStateStr[] = {"Disabled", "Enabled", "Deleted"};

void timer_dump(const t_timer *p_timer)
{
    LUM_LOG(LUM_LOG_DEBUG, "[bucket %#x] %p %s %s %s %s %s interval %u expire %#lx (%d) cb %p %p %p %p %p",
            p_timer->bucket, static_cast<const void *>(p_timer), p_timer->name, TimerTypeStr[p_timer->type],
            TimerPriStr[p_timer->priority], TimerStateStr[p_timer->state],
            p_timer->walked ? "walked" : "unwalked", p_timer->interval_ticks, p_timer->expire_ticks,
            timer_get_ticks_to_expiry(p_timer), reinterpret_cast<void *>(p_timer->cb), p_timer->args[0],
            p_timer->args[1], p_timer->args[2], p_timer->args[3]);
}

static uint64_t next_ticks(const t_timer_mgr *p_mgr, e_timer_priority priority)
{
    return p_mgr->pri[priority] != nullptr ? p_mgr->pri[priority]->next_bucket_ticks : 0;
}

static void dump_state(const t_timer_mgr *p_mgr)
{
    timespec now = timer_clock_read();
    LUM_LOG(
        LUM_LOG_DEBUG,
        "resolution %s cur-time %u.%u actual-time %u.%u cur_ticks %lu next_hi_ticks %lu next_lo_ticks %lu",
        TimerResnStr[p_mgr->resolution], static_cast<unsigned>(p_mgr->cur_time.tv_sec),
        static_cast<unsigned>(p_mgr->cur_time.tv_nsec), static_cast<unsigned>(now.tv_sec),
        static_cast<unsigned>(now.tv_nsec), p_mgr->cur_ticks, next_ticks(p_mgr, TIMER_PRI_HIGH),
        next_ticks(p_mgr, TIMER_PRI_NORMAL));
    LUM_LOG(LUM_LOG_DEBUG, "ncreated %u ndeleted %u nactive %u nfired %u", p_mgr->num_timers_created,
            p_mgr->num_timers_deleted, p_mgr->num_timers_active, p_mgr->num_timers_fired);
}

static void dump_wheel(const t_timer_mgr_pri *p_pri, uint32_t num_buckets_to_print)
{
    uint64_t first = p_pri->next_bucket_ticks - num_buckets_to_print;  // wraps with the wheel
    for (uint64_t i = 0; i <= uint64_t{num_buckets_to_print} * 2; i++) {
        const t_dll &list = p_pri->buckets[(first + i) & TIMER_BUCKET_MASK].dl_list;
        for (t_dlnode *p_node = list.p_head; p_node != nullptr; p_node = p_node->p_next)
            timer_dump(DLL_RECORD(p_node, t_timer, dl_node));
    }
}

void timer_mgr_dump(const t_timer_mgr *p_mgr, uint32_t num_buckets_to_print)
{
    LUM_LOG(LUM_LOG_DEBUG, "List of Created Timers:");
    for (t_dlnode *p_node = p_mgr->created_timers.p_head; p_node != nullptr; p_node = p_node->p_next)
        timer_dump(DLL_RECORD(p_node, t_timer, created_dlnode));
    dump_state(p_mgr);
    for (const t_timer_mgr_pri *p_pri : p_mgr->pri) {
        if (p_pri != nullptr)
            dump_wheel(p_pri, num_buckets_to_print);
    }
}
