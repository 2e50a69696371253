// What the sources of the pass share: walks over all contexts, and marking one.
#pragma once

#include "platform/avl/avl.h"
#include "tarnd/config/tarn_policy.h"
#include "tarnd/core/tarn.h"

// Both flags are needed: the policy's lets the pass descend, the context's selects the context.
inline void tarn_mark_changed(t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list)
{
    p_policy->changed = 1;
    p_vpn_list->changed = 1;
}

// visit(p_policy, p_vpn_list) for every context of every policy, in tree order.
template <typename F>
void tarn_contexts_foreach(const t_tarn *p_tarn, F visit)
{
    for (void *p = avl_first(&p_tarn->policy_db); p != nullptr; p = avl_walk(&p_tarn->policy_db, p)) {
        t_tarn_policy *p_policy = static_cast<t_tarn_policy *>(p);
        const avl_tree_t *p_lists = &p_policy->vpn_list_db;
        for (void *q = avl_first(p_lists); q != nullptr; q = avl_walk(p_lists, q))
            visit(p_policy, static_cast<t_tarn_policy_vpn_list *>(q));
    }
}
