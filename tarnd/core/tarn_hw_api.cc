#include "tarnd/core/tarn.h"
#include "tarnd/filter/tarn_if_octeon.h"

// Blocks have come free, and no object of the daemon waits for memory.
static int nobody_waits(t_tarn *, int)
{
    return 0;
}

t_tarn_hw_api g_tarn_octeon_api = {
    .filter_init = tarn_oct_filter_init,
    .filter_destroy = tarn_oct_filter_destroy,
    .filter_mem_alloc = tarn_oct_filter_mem_alloc,
    .filter_mem_free = tarn_oct_filter_mem_free,
    .filter_policer_chg = tarn_oct_filter_policer_change,
    .filter_policy_chg = nobody_waits,
};
