#include "libcvmx/sim/_cvmx-tim.h"

#include <climits>
#include <unistd.h>
#include <unordered_map>

#include "common/timer.h"
#include "libcvmx/sim/_cvmx-pow.h"
#include "libcvmx/sim/sim_log.h"

static constexpr uint32_t EXEC_MSECS = 50;  // a pass longer than this lets the loop go on with its other work
static constexpr uint64_t USECS_PER_MSEC = 1000;

namespace {
struct t_tim {
    t_timer_mgr *p_mgr;  // null until set up
    bool running;
    uint64_t tick_usec;
    uint64_t max_ticks;
    uint64_t last_id;
    std::unordered_map<uint64_t, t_timer *> timers;  // by id, those that haven't done their work
};
}  // namespace

static t_tim g_tim;

static cvmx_wqe_t *work_of(const t_timer *p_timer)
{
    return static_cast<cvmx_wqe_t *>(p_timer->args[0]);
}

// ---- Set up ----

int cvmx_tim_setup(uint64_t tick_usec, uint64_t max_ticks)
{
    // The longest delay must fit the timers' milliseconds.
    bool usable = tick_usec != 0 && max_ticks <= uint64_t{INT_MAX} * USECS_PER_MSEC / tick_usec;
    if (!usable || g_tim.p_mgr != nullptr)
        return -1;
    g_tim.p_mgr = timer_mgr_create(TIMER_RESN_100MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_NORMAL);
    g_tim.running = false;
    g_tim.tick_usec = tick_usec;
    g_tim.max_ticks = max_ticks;
    return g_tim.p_mgr != nullptr ? 0 : -1;
}

void cvmx_tim_enable()
{
    g_tim.running = true;
}

void cvmx_tim_start()
{
    cvmx_tim_enable();
}

void cvmx_tim_shutdown()
{
    for (const auto &[id, p_timer] : g_tim.timers) {
        cvmx_wqe_free(work_of(p_timer));
        timer_util_delete(p_timer);
    }
    g_tim.timers.clear();
    if (g_tim.p_mgr != nullptr)
        timer_mgr_destroy(g_tim.p_mgr);
    g_tim.p_mgr = nullptr;
    g_tim.running = false;
}

// ---- Timers ----

int cvmx_tim_add_entry(cvmx_wqe_t *p_work, uint64_t ticks_from_now, cvmx_tim_delete_t *p_delete)
{
    if (g_tim.p_mgr == nullptr || ticks_from_now > g_tim.max_ticks)
        return -1;
    auto msecs = static_cast<uint32_t>(ticks_from_now * g_tim.tick_usec / USECS_PER_MSEC);
    uint64_t id = g_tim.last_id + 1;
    t_timer *p_timer =
        timer_util_create(g_tim.p_mgr, TIMER_PRI_NORMAL, TIMER_TYPE_ONESHOT, msecs, cvmx_tim_cb, p_work,
                          reinterpret_cast<void *>(id), nullptr, nullptr, "cvmx-tim");
    if (p_timer == nullptr)
        return -1;
    g_tim.last_id = id;
    g_tim.timers.emplace(id, p_timer);
    timer_enable(p_timer);
    if (p_delete != nullptr)
        p_delete->id = id;
    return 0;
}

int cvmx_tim_delete_entry(const cvmx_tim_delete_t *p_delete)
{
    auto found = g_tim.timers.find(p_delete->id);
    if (found == g_tim.timers.end())
        return -1;
    timer_util_delete(found->second);
    g_tim.timers.erase(found);
    return 0;
}

void cvmx_tim_exec()
{
    if (g_tim.p_mgr != nullptr && g_tim.running)
        timer_exec(g_tim.p_mgr, TIMER_PRI_MASK_NORMAL, EXEC_MSECS);
}

static bool submit_with_retries(cvmx_wqe_t *p_work)
{
    for (int retries = 0; cvmx_pow_work_submit(p_work) != 0; retries++) {
        if (retries == CVMX_TIM_RETRIES)
            return false;
        usleep(CVMX_TIM_RETRY_USEC);
    }
    return true;
}

void cvmx_tim_cb(t_timer *p_timer, void *p_work, void *p_id, void *, void *)
{
    auto *p_entry = static_cast<cvmx_wqe_t *>(p_work);
    if (submit_with_retries(p_entry)) {
        g_tim.timers.erase(reinterpret_cast<uint64_t>(p_id));
        timer_util_delete(p_timer);
        return;
    }
    cvmx_sim_log("Unable to work resubmit.  Rescheduling timer %p tag %d grp %d\n",
                 static_cast<void *>(p_timer), static_cast<int>(p_entry->tag), p_entry->grp);
    timer_enable(p_timer);
}
