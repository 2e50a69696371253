#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn.h"
#include "tarnd/filter/tarn_if_octeon.h"

t_tarn_hw_api g_tarn_octeon_api = {
    .filter_init = tarn_oct_filter_init,
    .filter_destroy = tarn_oct_filter_destroy,
    .filter_mem_alloc = tarn_oct_filter_mem_alloc,
    .filter_mem_free = tarn_oct_filter_mem_free,
    .filter_policer_chg = tarn_oct_filter_policer_change,
    .filter_policy_chg = tarn_process_oom_policies,
};
