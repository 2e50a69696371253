// The timer wheel against sorted lists: random work on two wheels, from outside and from within callbacks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "common/timer.h"
#include "tests/common/own_clock.h"

static constexpr int64_t start_ms = 1'000'000;
static constexpr size_t num_slots = 200;

// What the model knows of a timer; p_timer is null in a free slot.
struct t_model_timer {
    t_timer *p_timer;
    e_timer_priority priority;
    e_timer_type type;
    bool enabled;
    uint64_t interval;  // ticks
    uint64_t expire;    // absolute tick, while enabled
};

// One call of timer_exec that is under way.
struct t_model_pass {
    int64_t started_ms;
    uint32_t budget_ms;
    uint64_t last_tick[NUM_TIMER_PRIORITIES];  // of the timers fired in it
    bool over[NUM_TIMER_PRIORITIES];           // a look has found the budget used up, at last_tick
};

namespace {

struct t_model {
    t_timer_mgr *p_mgr;
    std::minstd_rand random{7};
    t_model_timer slots[num_slots] = {};
    std::set<std::pair<uint64_t, size_t>> due[NUM_TIMER_PRIORITIES];  // expiry and slot
    std::vector<t_model_pass> passes;                                 // nested ones behind
    uint64_t cur_ticks = 0;
    uint32_t num_fired = 0;
    uint32_t num_yields = 0;
    uint32_t num_nested = 0;
    uint32_t num_operations = 0;

    uint32_t below(uint32_t limit)
    {
        return static_cast<uint32_t>(random() >> 3) % limit;
    }
    bool one_in(uint32_t odds)
    {
        return below(odds) == 0;
    }
};

}  // namespace

static int64_t now_ms()
{
    return own_clock_now() / OWN_CLOCK_MSEC;
}

static void model_advance(t_model *p_model, uint32_t limit_ms)
{
    own_clock_advance(p_model->below(limit_ms) * OWN_CLOCK_MSEC);
}

static void model_read_clock(t_model *p_model)
{
    p_model->cur_ticks = static_cast<uint64_t>(now_ms() - start_ms) / 10;
}

// A short one mostly; some of several revolutions, also to the tick.
static uint32_t random_interval_ms(t_model *p_model)
{
    switch (p_model->below(10)) {
    case 0:
        return (1 + p_model->below(4)) * 20480;
    case 1:
        return p_model->below(100'000);
    case 2:
    case 3:
        return p_model->below(300);
    default:
        return p_model->below(6'000);
    }
}

static void model_set_interval(t_model_timer *p_slot, uint32_t msecs)
{
    p_slot->interval = (msecs + 5) / 10;
}

static void model_disable(t_model *p_model, size_t index)
{
    t_model_timer *p_slot = &p_model->slots[index];
    if (p_slot->enabled)
        p_model->due[p_slot->priority].erase({p_slot->expire, index});
    p_slot->enabled = false;
}

static void model_enable(t_model *p_model, size_t index)
{
    t_model_timer *p_slot = &p_model->slots[index];
    if (p_slot->enabled)
        return;
    model_read_clock(p_model);
    p_slot->interval = std::max<uint64_t>(p_slot->interval, 1);
    p_slot->expire = p_model->cur_ticks + p_slot->interval;
    p_slot->enabled = true;
    p_model->due[p_slot->priority].insert({p_slot->expire, index});
}

static void random_operation(t_model *p_model);

// The earliest timer of its wheel must be the one that fires, in time, and not in a bucket behind a used-up
// budget.
static void check_fired(t_model *p_model, size_t index)
{
    t_model_timer *p_slot = &p_model->slots[index];
    t_model_pass *p_pass = &p_model->passes.back();
    e_timer_priority priority = p_slot->priority;
    ASSERT_TRUE(p_slot->enabled);
    ASSERT_EQ(p_slot->expire, p_model->due[priority].begin()->first);
    ASSERT_LE(p_slot->expire, p_model->cur_ticks);
    if (p_pass->over[priority]) {
        ASSERT_EQ(p_slot->expire, p_pass->last_tick[priority]);
    }
    p_pass->last_tick[priority] = p_slot->expire;
    p_pass->over[priority] |= now_ms() - p_pass->started_ms > p_pass->budget_ms + 50;
}

static void timer_fired(t_timer *p_timer, void *arg1, void *arg2, void *, void *)
{
    t_model *p_model = static_cast<t_model *>(arg1);
    size_t index = static_cast<size_t>(static_cast<t_model_timer *>(arg2) - p_model->slots);
    t_model_timer *p_slot = &p_model->slots[index];
    ASSERT_EQ(p_slot->p_timer, p_timer);
    ASSERT_NO_FATAL_FAILURE(check_fired(p_model, index));
    p_model->num_fired++;
    uint64_t tick = p_slot->expire;
    model_disable(p_model, index);
    if (p_slot->type == TIMER_TYPE_CYCLIC) {
        p_slot->enabled = true;
        p_slot->expire = tick + p_slot->interval;
        p_model->due[p_slot->priority].insert({p_slot->expire, index});
    }
    if (p_model->one_in(8))
        model_advance(p_model, p_model->one_in(100) ? 6'000 : 150);
    if (p_model->one_in(3))
        random_operation(p_model);
}

static void check_pass(t_model *p_model, const t_model_pass &pass, uint32_t pri_mask, int result)
{
    if (result != 0) {
        ASSERT_EQ(result, EAGAIN);
        ASSERT_GT(now_ms() - pass.started_ms, pass.budget_ms + 50);
        p_model->num_yields++;
    }
    for (int priority = 0; priority < NUM_TIMER_PRIORITIES; priority++) {
        uint64_t next = p_model->p_mgr->pri[priority]->next_bucket_ticks;
        ASSERT_LE(next, p_model->cur_ticks + 1);
        uint64_t earliest =
            p_model->due[priority].empty() ? UINT64_MAX : p_model->due[priority].begin()->first;
        ASSERT_GE(earliest, next);
        bool complete = result == 0 && (pri_mask & (1u << priority)) != 0;
        ASSERT_TRUE(!complete || next > static_cast<uint64_t>(pass.started_ms - start_ms) / 10);
    }
}

static void random_pass(t_model *p_model)
{
    static const uint32_t budgets[] = {0, 20, 100, 100'000};
    if (p_model->passes.size() == 3)
        return;
    p_model->num_nested += !p_model->passes.empty();
    uint32_t pri_mask = 1 + p_model->below(3);
    model_read_clock(p_model);
    p_model->passes.push_back({now_ms(), budgets[p_model->below(4)], {}, {}});
    int result = timer_exec(p_model->p_mgr, pri_mask, p_model->passes.back().budget_ms);
    t_model_pass pass = p_model->passes.back();
    p_model->passes.pop_back();
    check_pass(p_model, pass, pri_mask, result);
}

static void create_in_slot(t_model *p_model, size_t index)
{
    t_model_timer *p_slot = &p_model->slots[index];
    uint32_t msecs = random_interval_ms(p_model);
    p_slot->priority = p_model->one_in(3) ? TIMER_PRI_HIGH : TIMER_PRI_NORMAL;
    p_slot->type = p_model->one_in(4) ? TIMER_TYPE_CYCLIC : TIMER_TYPE_ONESHOT;
    model_set_interval(p_slot, msecs);
    p_slot->p_timer = timer_util_create(p_model->p_mgr, p_slot->priority, p_slot->type, msecs, timer_fired,
                                        p_model, p_slot, nullptr, nullptr, "model");
}

static void delete_in_slot(t_model *p_model, size_t index)
{
    model_disable(p_model, index);
    timer_util_delete(std::exchange(p_model->slots[index].p_timer, nullptr));
}

static void reset_in_slot(t_model *p_model, size_t index, bool start_idle)
{
    t_model_timer *p_slot = &p_model->slots[index];
    uint32_t msecs = random_interval_ms(p_model);
    bool start = start_idle || p_slot->enabled;
    model_set_interval(p_slot, msecs);
    if (start) {
        model_disable(p_model, index);
        model_enable(p_model, index);
    }
    (start_idle ? timer_reset : timer_reset_interval)(p_slot->p_timer, static_cast<int>(msecs));
}

// Within a callback the neighbours of the running timer are the interesting ones.
static size_t random_slot(t_model *p_model)
{
    const auto &due = p_model->due[p_model->below(NUM_TIMER_PRIORITIES)];
    if (!due.empty() && p_model->one_in(3))
        return due.begin()->second;
    return p_model->below(num_slots);
}

static void random_operation(t_model *p_model)
{
    p_model->num_operations++;
    size_t index = random_slot(p_model);
    t_model_timer *p_slot = &p_model->slots[index];
    if (p_slot->p_timer == nullptr)
        return create_in_slot(p_model, index);
    switch (p_model->below(10)) {
    case 0:
        return delete_in_slot(p_model, index);
    case 1:
        model_disable(p_model, index);
        return timer_disable(p_slot->p_timer);
    case 2:
    case 3:
    case 4:
        model_enable(p_model, index);
        return timer_enable(p_slot->p_timer);
    case 5:
    case 6:
        return reset_in_slot(p_model, index, p_model->one_in(2));
    default:
        return random_pass(p_model);
    }
}

static void check_counters(const t_model &model)
{
    size_t enabled = model.due[TIMER_PRI_NORMAL].size() + model.due[TIMER_PRI_HIGH].size();
    ASSERT_EQ(model.p_mgr->num_timers_active, enabled);
    ASSERT_EQ(model.p_mgr->num_timers_fired, model.num_fired);
    for (const t_model_timer &slot : model.slots) {
        if (slot.p_timer == nullptr)
            continue;
        ASSERT_EQ(timer_is_active(slot.p_timer), slot.enabled);
        ASSERT_TRUE(!slot.enabled || slot.p_timer->expire_ticks == slot.expire);
    }
}

TEST(TimerModel, AMillionRandomOperationsAgreeWithSortedLists)
{
    own_clock_set(start_ms * OWN_CLOCK_MSEC);
    t_model model;
    model.p_mgr = timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    while (model.num_operations < 1'000'000) {
        random_operation(&model);
        // Now and then the process stalls, for several revolutions at worst.
        model_advance(&model, model.one_in(40'000) ? 60'000 : model.one_in(2'000) ? 5'000 : 30);
        if (model.one_in(1'000))
            check_counters(model);
        if (HasFatalFailure())
            FAIL() << "operation " << model.num_operations;
    }
    // The work reached what it is for.
    EXPECT_GT(model.num_fired, 100'000u);
    EXPECT_GT(model.num_yields, 1'000u);
    EXPECT_GT(model.num_nested, 1'000u);
    for (size_t index = 0; index < num_slots; index++)
        delete_in_slot(&model, index);
    timer_mgr_destroy(model.p_mgr);
}
