#include "tarnd/config/tarn_policy.h"

#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "tarnd/config/tarn_policy_private.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ftm.h"

#include <cerrno>
#include <cstdlib>

t_tarn_policy *tarn_policy_find(const t_tarn *p_tarn, e_tarn_policy_type type, const char *name)
{
    t_tarn_policy key = {};
    key.key.type = type;
    lum_strlcpy(key.key.name, name, sizeof(key.key.name));
    return static_cast<t_tarn_policy *>(avl_find(&p_tarn->policy_db, &key));
}

int tarn_policy_lookup(t_tarn *p_tarn, e_tarn_policy_type type, const char *name, t_tarn_policy **pp_policy)
{
    if (p_tarn == nullptr || name == nullptr)
        return EBADMSG;
    t_tarn_policy *p_policy = tarn_policy_find(p_tarn, type, name);
    if (p_policy == nullptr)
        return ENOENT;
    if (pp_policy != nullptr)
        *pp_policy = p_policy;
    return 0;
}

// All zone-based policies share one list, so that it is there already from the second one on.
static int add_zone_context(t_tarn *p_tarn, const char *name, uint32_t zbf_action)
{
    tarn_vpn_list_add(p_tarn, TARN_ZBF_VPN_LIST);
    int status = tarn_vpn_list_add_to_policy(p_tarn, TARN_POLICY_TYPE_ZBF, name, TARN_ZBF_VPN_LIST,
                                             zbf_action, nullptr);
    p_tarn->process_zbf_config = 1;
    return status;
}

int tarn_policy_add(t_tarn *p_tarn, e_tarn_policy_type type, const char *name, e_tarn_policy_dir direction,
                    uint32_t zbf_action)
{
    if (p_tarn == nullptr || name == nullptr)
        return EBADMSG;
    if (tarn_policy_find(p_tarn, type, name) != nullptr)
        return EEXIST;
    t_tarn_policy *p_policy = static_cast<t_tarn_policy *>(calloc(1, sizeof(t_tarn_policy)));
    if (p_policy == nullptr)
        return ENOMEM;
    p_policy->key.type = type;
    lum_strlcpy(p_policy->key.name, name, sizeof(p_policy->key.name));
    p_policy->direction = direction;
    p_policy->old_direction = direction;
    p_policy->added = 1;
    avl_create(&p_policy->vpn_list_db, tarn_vpn_list_key_cmp, sizeof(t_tarn_policy_vpn_list),
               offsetof(t_tarn_policy_vpn_list, avl_node));
    // Cannot be there: the look-up above is by the same key.
    (void)avl_insert(&p_tarn->policy_db, p_policy);
    return type == TARN_POLICY_TYPE_ZBF ? add_zone_context(p_tarn, p_policy->key.name, zbf_action) : 0;
}

// The last zone-based policy takes the list along.
static void drop_zone_list(t_tarn *p_tarn, const t_tarn_policy *p_policy)
{
    t_tarn_vpn_list *p_list = tarn_vpn_list_find(p_tarn, TARN_ZBF_VPN_LIST);
    if (p_list != nullptr && avl_numnodes(&p_list->policy_db) == 0) {
        tarn_vpn_list_delete(p_tarn, TARN_ZBF_VPN_LIST);
        TARN_TRACE(TARN_DEBUG_CONFIG, "%s deleted while removing zbf policy %s", TARN_ZBF_VPN_LIST,
                   p_policy->key.name);
    }
    p_tarn->process_zbf_config = 1;
}

int tarn_policy_delete(t_tarn *p_tarn, e_tarn_policy_type type, const char *name)
{
    if (p_tarn == nullptr || name == nullptr)
        return EBADMSG;
    t_tarn_policy *p_policy = tarn_policy_find(p_tarn, type, name);
    if (p_policy == nullptr)
        return ENOENT;
    t_tarn_policy_vpn_list *p_next = nullptr;
    for (auto *p_context = static_cast<t_tarn_policy_vpn_list *>(avl_first(&p_policy->vpn_list_db));
         p_context != nullptr; p_context = p_next) {
        p_next = static_cast<t_tarn_policy_vpn_list *>(avl_walk(&p_policy->vpn_list_db, p_context));
        tarn_policy_vpn_list_delete(p_tarn, p_policy, p_context, TARN_CONTEXT_WITH_POLICY);
    }
    if (type == TARN_POLICY_TYPE_ZBF)
        drop_zone_list(p_tarn, p_policy);
    avl_remove(&p_tarn->policy_db, p_policy);
    avl_destroy(&p_policy->vpn_list_db);
    free(p_policy);
    return 0;
}

// The forwarding side overwrites the binding; no unbind goes first, and a context without a filter is told
// like the others.
static int update_context_direction(void *p_node, void *arg1, void *arg2)
{
    t_tarn_policy_vpn_list *p_context = static_cast<t_tarn_policy_vpn_list *>(p_node);
    t_tarn_policy *p_policy = static_cast<t_tarn_policy *>(arg2);
    p_context->direction = p_policy->direction;
    tarn_bind_policy_to_vpnlist(static_cast<t_tarn *>(arg1), p_policy, p_context, nullptr);
    return 0;
}

int tarn_policy_update_direction(t_tarn *p_tarn, t_tarn_policy *p_policy, e_tarn_policy_dir direction)
{
    if (p_tarn == nullptr || p_policy == nullptr)
        return EBADMSG;
    if (direction == p_policy->direction)
        return 0;
    p_policy->old_direction = p_policy->direction;
    p_policy->direction = direction;
    return avl_foreach(&p_policy->vpn_list_db, update_context_direction, p_tarn, p_policy);
}
