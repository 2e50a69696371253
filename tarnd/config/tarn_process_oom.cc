// Filter memory has come free: all that waits for it tries again, in tree order, so the first gets it first.
#include "common/lum_log.h"
#include "fp_api/fp_scaling.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/config/tarn_process_private.h"

static void mark_context(t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list)
{
    if (p_vpn_list->filter_id != g_fp_scaling.num_filters)
        return;
    tarn_mark_changed(p_policy, p_vpn_list);
    TARN_LOG("Retry programming for policy: %s-%d-%s", p_policy->key.name,
             static_cast<int>(p_policy->key.type), p_vpn_list->key.name);
}

static int mark_access_list(void *p_node, void *arg1, void *)
{
    t_tarn_access_list *p_access_list = static_cast<t_tarn_access_list *>(p_node);
    if (p_access_list->filter_id != g_fp_scaling.num_filters)
        return 0;
    p_access_list->changed = 1;
    TARN_LOG("Retry programming for %s: %s", static_cast<const char *>(arg1), p_access_list->key.name);
    return 0;
}

int tarn_process_oom_policies(t_tarn *p_tarn, int freed_memory)
{
    char ipv4[] = "ACL";
    char ipv6[] = "ACL6";
    TARN_LOG("Processing oom policy (freed memory: %d)", freed_memory);
    tarn_contexts_foreach(p_tarn, mark_context);
    avl_foreach(&p_tarn->access_list_db, mark_access_list, ipv4, nullptr);
    avl_foreach(&p_tarn->access_list6_db, mark_access_list, ipv6, nullptr);
    tarn_process_config(p_tarn);
    return 0;
}
