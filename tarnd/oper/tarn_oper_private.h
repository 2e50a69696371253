// What the sources of this folder share.
#pragma once

#include "fp_api/fp_tables.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_dp.h"
#include "tarnd/core/tarn.h"

// The framework's callbacks know their daemon by the adapter's context, and that by its module data.
inline t_lconfd_context *tarn_oper_context(const confd_user_info *uinfo)
{
    return static_cast<t_lconfd_context *>(uinfo->actx.dx->d_opaque);
}

inline t_tarn *tarn_oper_daemon(const confd_user_info *uinfo)
{
    return static_cast<t_tarn *>(tarn_oper_context(uinfo)->module_data.opaque_p);
}

// The program of a list's filter id in shared memory, or null while none is loaded.
inline void *tarn_oper_program(int filter_id)
{
    if (filter_id < 0 || filter_id >= g_fp_scaling.num_filters)
        return nullptr;
    return &g_fp_filter_mem_block[g_fp_filter[filter_id].hw_index];
}
