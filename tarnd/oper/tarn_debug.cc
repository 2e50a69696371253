#include "tarnd/oper/tarn_debug.h"

#include "common/lum_log.h"
#include "lconfd/lconfd_util.h"
#include "tarnd/oper/tarn_oper_private.h"

// Everything on, with output to syslog.
static constexpr uint64_t debug_all = ~uint64_t{TARN_DEBUG_STDOUT};

namespace {

struct t_debug_topic {
    const char *path;  // of its leaf
    uint64_t bits;
};

}  // namespace

// In the order in which leaves are deleted.
static constexpr t_debug_topic topics[] = {
    {"/debugs/tarn/config", TARN_DEBUG_CONFIG},
    {"/debugs/tarn/ttm", TARN_DEBUG_TTM},
    {"/debugs/tarn/dpi", TARN_DEBUG_DPI},
    {"/debugs/tarn/policy", TARN_DEBUG_POLICY},
};
static constexpr t_debug_topic all_topics = {"/debugs/tarn/all", debug_all};

// ---- Leaves ----

static int create_leaf(const confd_user_info *uinfo, const t_debug_topic &topic)
{
    if (lconfd_set_cdb_oper_value(tarn_oper_context(uinfo), nullptr, topic.path, E_LCONFD_OPER_CREATE, 1) ==
        0)
        return 0;
    TARN_LOG("Failed to create value in cdb %s (%d) : %s", confd_strerror(confd_errno), confd_errno,
             confd_lasterr());
    return -1;
}

static int delete_leaf(const confd_user_info *uinfo, const t_debug_topic &topic)
{
    if (lconfd_set_cdb_oper_value(tarn_oper_context(uinfo), nullptr, topic.path, E_LCONFD_OPER_DEL, 1) == 0)
        return 0;
    TARN_LOG("Failed to delete value in cdb %s (%d) : %s", confd_strerror(confd_errno), confd_errno,
             confd_lasterr());
    return -1;
}

// The leaves that the flags stand for.
static int delete_leaves(const confd_user_info *uinfo)
{
    if ((g_tarn_debug_flags & debug_all) == debug_all)
        return delete_leaf(uinfo, all_topics);
    for (const t_debug_topic &topic : topics)
        if ((g_tarn_debug_flags & topic.bits) != 0 && delete_leaf(uinfo, topic) != 0)
            return -1;
    return 0;
}

// ---- Actions ----

static int switch_on(const confd_user_info *uinfo, const t_debug_topic &topic)
{
    if (g_tarn_debug_flags == debug_all)
        return 0;
    if (create_leaf(uinfo, topic) != 0)
        return -1;
    g_tarn_debug_flags |= topic.bits;
    return 0;
}

int tarn_debug_config(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *, int)
{
    return switch_on(uinfo, topics[0]);
}

int tarn_debug_ttm(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *, int)
{
    return switch_on(uinfo, topics[1]);
}

int tarn_debug_dpi(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *, int)
{
    return switch_on(uinfo, topics[2]);
}

int tarn_debug_policy(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *, int)
{
    return switch_on(uinfo, topics[3]);
}

int tarn_debug_all(confd_user_info *uinfo, xml_tag *name, confd_hkeypath_t *kp, confd_tag_value_t *params,
                   int nparams)
{
    lconfd_debug_enable(1);
    // Takes the adapter's debug output back as well. Operators know it so.
    if (g_tarn_debug_flags != 0)
        tarn_debug_disable_all(uinfo, name, kp, params, nparams);
    if (create_leaf(uinfo, all_topics) != 0)
        return -1;
    g_tarn_debug_flags |= debug_all;
    return 0;
}

int tarn_debug_disable_all(confd_user_info *uinfo, xml_tag *, confd_hkeypath_t *, confd_tag_value_t *, int)
{
    if (delete_leaves(uinfo) != 0)
        return -1;
    lconfd_debug_disable();
    g_tarn_debug_flags = TARN_DEBUG_NONE;
    return 0;
}
