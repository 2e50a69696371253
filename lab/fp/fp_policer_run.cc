#include "lab/fp/fp_policer_run.h"

#include <algorithm>

static uint64_t load(const uint64_t *p_word)
{
    return __atomic_load_n(p_word, __ATOMIC_RELAXED);
}

void fp_active_element_count(const uint8_t *p_version, int64_t *p_pkts, int64_t *p_bytes, uint32_t bytes)
{
    size_t active = __atomic_load_n(p_version, __ATOMIC_RELAXED) & 1;
    __atomic_fetch_add(&p_pkts[active], 1, __ATOMIC_RELAXED);
    __atomic_fetch_add(&p_bytes[active], int64_t{bytes}, __ATOMIC_RELAXED);
}

// What the bucket holds now.
static uint64_t tokens_at(const t_fp_policer *p_policer, uint64_t burst, uint64_t now)
{
    if (p_policer->last_sent_ticks == 0)
        return burst;
    uint64_t tokens = std::min(p_policer->available_tokens, burst);  // burst may have been lowered
    uint64_t elapsed = now - p_policer->last_sent_ticks;
    return elapsed >= burst - tokens ? burst : tokens + elapsed;
}

// Saturates: no bucket holds so much.
static uint64_t cost_of(uint32_t bytes, uint64_t rate)
{
    uint64_t cost;
    return __builtin_mul_overflow(uint64_t{bytes}, rate, &cost) ? UINT64_MAX : cost;
}

e_fp_police fp_policer_run(t_fp_policer *p_policer, uint64_t now, uint32_t bytes)
{
    uint64_t rate = load(&p_policer->rate);
    if (rate == 0)
        return FP_POLICE_IN_BOUNDS;
    uint64_t tokens = tokens_at(p_policer, load(&p_policer->burst), now);
    uint64_t cost = cost_of(bytes, rate);
    bool in_bounds = cost <= tokens;
    p_policer->available_tokens = in_bounds ? tokens - cost : tokens;
    p_policer->last_sent_ticks = now;
    if (in_bounds)
        return FP_POLICE_IN_BOUNDS;
    fp_active_element_count(&p_policer->version, p_policer->oob_pkts, p_policer->oob_bytes, bytes);
    uint32_t action = __atomic_load_n(&p_policer->oob_action, __ATOMIC_RELAXED);
    return action == FP_POLICER_ACTION_DROP ? FP_POLICE_DROP : FP_POLICE_MARK;
}
