#include "fp_api/fp_cores.h"

#include <bit>
#include <cstring>
#include <unistd.h>

#include "fp_api/fp_scaling.h"
#include "fp_api/fp_tables.h"
#include "libcvmx/sim/_cvmx-sysinfo.h"

static const char TCP_OPTIMIZATION_FILE[] = "/etc/lumora/tcp-optimization-enabled";
static constexpr int MIN_CORES_FOR_TCP_OPTIMIZATION = 3;
static constexpr int MASK_BITS = 64;

// ---- Cores ----

bool fp_core_is_dpi(int core)
{
    return core >= g_fp_scaling.min_fp_core_num && core <= g_fp_scaling.max_fp_core_num;
}

int fp_get_total_core_num()
{
    return g_fp_scaling.num_cores;
}

// The bits first to last; what lies above a mask's 64 bits is left out.
static uint64_t mask_of_range(int first, int last)
{
    uint64_t mask = 0;
    for (int bit = first; bit <= last && bit < MASK_BITS; bit++)
        mask |= uint64_t{1} << bit;
    return mask;
}

uint64_t fp_get_coremask(const char *prog_name, int *is_fp)
{
    fp_scaling_init(cvmx_sysinfo_get()->board_type);
    const char *p_slash = strrchr(prog_name, '/');
    const char *base_name = p_slash != nullptr ? p_slash + 1 : prog_name;
    *is_fp = strcmp(base_name, "fp-um") == 0;
    if (*is_fp != 0)
        return mask_of_range(g_fp_scaling.min_fp_core_num, g_fp_scaling.max_fp_core_num);
    return mask_of_range(0, g_fp_scaling.num_ctl_cores - 1);
}

int fp_readjust_num_cores(int coremask_valid, uint64_t coremask)
{
    int online = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    int available = online;
    if (coremask_valid != 0) {
        available = g_fp_scaling.num_cores - std::popcount(coremask);
        if (available <= 0)
            return 1;
    }
    if (access(TCP_OPTIMIZATION_FILE, F_OK) == 0 && online >= MIN_CORES_FOR_TCP_OPTIMIZATION)
        return 0;
    if (available >= g_fp_scaling.num_cores)
        return 1;
    // The counts swap sides on purpose: a short machine keeps what it has for control.
    g_fp_scaling.num_ctl_cores = static_cast<uint8_t>(available);
    g_fp_scaling.min_fp_core_num = static_cast<uint8_t>(available);
    g_fp_scaling.num_fp_dpi_cores = static_cast<uint8_t>(g_fp_scaling.num_cores - available);
    return 0;
}

int fp_core_readjust_num_cores(uint64_t)
{
    return 0;
}

// ---- Work groups ----

static bool is_dealt_group(int grp)
{
    int base = g_fp_scaling.work_grp_per_core_base;
    return grp >= base && grp < base + g_fp_scaling.num_per_core_work_grps &&
           grp < static_cast<int>(FP_MAX_WORK_GRPS);
}

void fp_work_grps_init()
{
    t_fp_global_ctrl *p_ctrl = g_fp_global_ctrl;
    memset(p_ctrl->work_grp_to_core, 0, sizeof(p_ctrl->work_grp_to_core));
    memset(p_ctrl->work_grp_from_core, 0, sizeof(p_ctrl->work_grp_from_core));
    for (int core = 0; core < g_fp_scaling.num_per_core_data; core++)
        g_fp_per_core_data[core].grp_mask = 0;

    int core = g_fp_scaling.min_fp_core_num;
    for (int grp = g_fp_scaling.work_grp_per_core_base; is_dealt_group(grp); grp++) {
        p_ctrl->work_grp_to_core[grp] = static_cast<uint8_t>(core);
        bool has_place = core < static_cast<int>(FP_MAX_GRP_CORES);
        if (has_place && p_ctrl->work_grp_from_core[core] == 0)
            p_ctrl->work_grp_from_core[core] = static_cast<uint8_t>(grp);
        core = core < g_fp_scaling.max_fp_core_num ? core + 1 : g_fp_scaling.min_fp_core_num;
    }
}

int fp_core_to_work_grp(int core)
{
    if (core < 0 || core >= static_cast<int>(FP_MAX_GRP_CORES))
        return 0;
    return g_fp_global_ctrl->work_grp_from_core[core];
}

int fp_work_grp_to_core(int grp)
{
    if (grp < 0 || grp >= static_cast<int>(FP_MAX_WORK_GRPS))
        return 0;
    return g_fp_global_ctrl->work_grp_to_core[grp];
}

bool fp_grp_belongs_to_core(int core, int grp)
{
    return is_dealt_group(grp) && g_fp_global_ctrl->work_grp_to_core[grp] == core;
}

uint64_t fp_get_core_grp_mask(int core)
{
    if (core < 0 || core >= g_fp_scaling.num_per_core_data)
        return 0;
    t_fp_per_core_data *p_data = &g_fp_per_core_data[core];
    if (p_data->grp_mask == 0) {
        uint64_t mask = 0;
        for (int grp = 0; grp < static_cast<int>(FP_MAX_WORK_GRPS); grp++)
            if (fp_grp_belongs_to_core(core, grp))
                mask |= uint64_t{1} << grp;
        p_data->grp_mask = mask;
    }
    return p_data->grp_mask;
}
