#include "mgmtd/engine/mgmt_timers.h"

#include <algorithm>
#include <chrono>

int64_t mgmt_clock_ms()
{
    auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void mgmt_timer_set(t_mgmt_timers *p_timers, t_mgmt_timer *p_timer, int64_t delay_ms,
                    std::function<void()> fn)
{
    if (p_timer->number != 0)
        p_timers->due.erase({p_timer->due_ms, p_timer->number});
    *p_timer = {.due_ms = p_timers->now_ms() + delay_ms, .number = ++p_timers->last_number};
    p_timers->due.emplace(std::pair(p_timer->due_ms, p_timer->number), std::move(fn));
    if (p_timers->changed)
        p_timers->changed();
}

void mgmt_timer_cancel(t_mgmt_timers *p_timers, t_mgmt_timer *p_timer)
{
    if (p_timer->number == 0)
        return;
    p_timers->due.erase({p_timer->due_ms, p_timer->number});
    *p_timer = {};
    if (p_timers->changed)
        p_timers->changed();
}

void mgmt_timers_run(t_mgmt_timers *p_timers)
{
    int64_t now_ms = p_timers->now_ms();
    while (!p_timers->due.empty() && p_timers->due.begin()->first.first <= now_ms) {
        std::function<void()> fn = std::move(p_timers->due.begin()->second);
        p_timers->due.erase(p_timers->due.begin());
        fn();
    }
    if (p_timers->changed)
        p_timers->changed();
}

int64_t mgmt_timers_wait_ms(const t_mgmt_timers &timers)
{
    if (timers.due.empty())
        return -1;
    return std::max<int64_t>(timers.due.begin()->first.first - timers.now_ms(), 0);
}
