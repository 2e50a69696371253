// Switching debug output on and off, on an operator's demand.
//
// Each topic has a bit in g_tarn_debug_flags (common/lum_log.h) and a leaf below /debugs/tarn in the
// operational store, which shows that it is on. Leaves are written in the background, in the order of the
// calls, so a result of 0 says that the writing has begun. All topics at once have a leaf of their own; while
// that is on, single topics are left alone.
#pragma once

#include "platform/confd/confd_dp.h"

// ---- Actions of operators (the framework's callbacks) ----
//
// No parameters. 0, or -1 after a message when a leaf can't be written; the flags are as before then.

int tarn_debug_config(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp, confd_tag_value_t *params,
                      int nparams);
int tarn_debug_ttm(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp, confd_tag_value_t *params,
                   int nparams);
int tarn_debug_dpi(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp, confd_tag_value_t *params,
                   int nparams);
int tarn_debug_policy(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp, confd_tag_value_t *params,
                      int nparams);

// All topics, and the adapter's debug output. Any flag that was set before makes it begin with
// tarn_debug_disable_all. It goes on when that fails; else the adapter's output is off again at the end, and
// when the leaf of all topics can't be written everything stays off.
int tarn_debug_all(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp, confd_tag_value_t *params,
                   int nparams);

// Everything off: the flags are TARN_DEBUG_NONE then. The first leaf that can't be deleted ends it; those
// before it stay deleted.
int tarn_debug_disable_all(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp,
                           confd_tag_value_t *params, int nparams);
