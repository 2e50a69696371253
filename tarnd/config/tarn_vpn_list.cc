#include "common/lum_assert.h"
#include "common/strlcpy.h"
#include "tarnd/config/tarn_policy_private.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ftm.h"

#include <cerrno>
#include <cstdlib>

// ---- Lists ----

t_tarn_vpn_list *tarn_vpn_list_find(const t_tarn *p_tarn, const char *vpn_list_name)
{
    t_tarn_vpn_list key = {};
    lum_strlcpy(key.key.name, vpn_list_name, sizeof(key.key.name));
    return static_cast<t_tarn_vpn_list *>(avl_find(&p_tarn->vpn_list_db, &key));
}

int tarn_vpn_list_lookup(t_tarn *p_tarn, const char *vpn_list_name, t_tarn_vpn_list **pp_vpn_list)
{
    if (p_tarn == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    t_tarn_vpn_list *p_list = tarn_vpn_list_find(p_tarn, vpn_list_name);
    if (p_list == nullptr)
        return EEXIST;
    if (pp_vpn_list != nullptr)
        *pp_vpn_list = p_list;
    return 0;
}

int tarn_vpn_list_add(t_tarn *p_tarn, const char *vpn_list_name)
{
    if (p_tarn == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    if (tarn_vpn_list_find(p_tarn, vpn_list_name) != nullptr)
        return EEXIST;
    t_tarn_vpn_list *p_list = static_cast<t_tarn_vpn_list *>(calloc(1, sizeof(t_tarn_vpn_list)));
    if (p_list == nullptr)
        return ENOMEM;
    lum_strlcpy(p_list->key.name, vpn_list_name, sizeof(p_list->key.name));
    avl_create(&p_list->vpn_db, tarn_vpn_key_cmp, sizeof(t_tarn_vpn), offsetof(t_tarn_vpn, avl_node));
    avl_create(&p_list->policy_db, tarn_policy_key_cmp, sizeof(t_tarn_policy_ref),
               offsetof(t_tarn_policy_ref, avl_node));
    (void)avl_insert(&p_tarn->vpn_list_db, p_list);  // not there, as looked up
    return 0;
}

int tarn_vpn_list_delete(t_tarn *p_tarn, const char *vpn_list_name)
{
    if (p_tarn == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    t_tarn_vpn_list *p_list = tarn_vpn_list_find(p_tarn, vpn_list_name);
    if (p_list == nullptr)
        return ENOENT;
    t_tarn_vpn *p_next = nullptr;
    for (auto *p_vpn = static_cast<t_tarn_vpn *>(avl_first(&p_list->vpn_db)); p_vpn != nullptr;
         p_vpn = p_next) {
        p_next = static_cast<t_tarn_vpn *>(avl_walk(&p_list->vpn_db, p_vpn));
        tarn_vpn_delete(p_tarn, vpn_list_name, p_vpn->key.min_vpn_id, p_vpn->key.max_vpn_id);
    }
    avl_remove(&p_tarn->vpn_list_db, p_list);
    LUM_ASSERT(avl_numnodes(&p_list->policy_db) == 0, "p_vpn_list_policy == NULL");
    free(p_list);
    return 0;
}

static void free_list(void *p_object)
{
    t_tarn_vpn_list *p_list = static_cast<t_tarn_vpn_list *>(p_object);
    avl_destroy_nodes(&p_list->vpn_db, free);
    avl_destroy_nodes(&p_list->policy_db, free);
    free(p_list);
}

void tarn_vpn_list_destroy(t_tarn *p_tarn)
{
    avl_destroy_nodes(&p_tarn->vpn_list_db, free_list);
    avl_destroy(&p_tarn->vpn_list_db);
}

// ---- Ranges ----

using f_announce = int (*)(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context,
                           t_tarn_vpn *p_vpn);

// Tells the forwarding side of one range, for each context on the list that has a filter.
static void announce_range(t_tarn *p_tarn, t_tarn_vpn_list *p_list, t_tarn_vpn *p_vpn, f_announce announce)
{
    for (auto *p_ref = static_cast<t_tarn_policy_ref *>(avl_first(&p_list->policy_db)); p_ref != nullptr;
         p_ref = static_cast<t_tarn_policy_ref *>(avl_walk(&p_list->policy_db, p_ref))) {
        t_tarn_policy *p_policy = tarn_policy_find(p_tarn, p_ref->key.type, p_ref->key.name);
        LUM_ASSERT(p_policy != nullptr, "p_policy != NULL");
        t_tarn_policy_vpn_list *p_context = tarn_policy_vpn_list_find(p_policy, p_list->key.name);
        LUM_ASSERT(p_context != nullptr, "p_policy_vpn_list != NULL");
        if (p_context->filter_id != TARN_FILTER_ID_NONE)
            announce(p_tarn, p_policy, p_context, p_vpn);
    }
}

static t_tarn_vpn *find_range(const t_tarn_vpn_list *p_list, uint64_t min_vpn_id, uint64_t max_vpn_id)
{
    t_tarn_vpn key = {};
    key.key = {min_vpn_id, max_vpn_id};
    return static_cast<t_tarn_vpn *>(avl_find(&p_list->vpn_db, &key));
}

int tarn_vpn_add(t_tarn *p_tarn, const char *vpn_list_name, uint64_t min_vpn_id, uint64_t max_vpn_id)
{
    if (p_tarn == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    t_tarn_vpn_list *p_list = tarn_vpn_list_find(p_tarn, vpn_list_name);
    if (p_list == nullptr)
        return ENOENT;
    if (find_range(p_list, min_vpn_id, max_vpn_id) != nullptr)
        return EEXIST;
    t_tarn_vpn *p_vpn = static_cast<t_tarn_vpn *>(calloc(1, sizeof(t_tarn_vpn)));
    if (p_vpn == nullptr)
        return ENOMEM;
    p_vpn->key = {min_vpn_id, max_vpn_id};
    (void)avl_insert(&p_list->vpn_db, p_vpn);  // not there, as looked up
    announce_range(p_tarn, p_list, p_vpn, tarn_bind_policy_to_vpnlist);
    return 0;
}

int tarn_vpn_delete(t_tarn *p_tarn, const char *vpn_list_name, uint64_t min_vpn_id, uint64_t max_vpn_id)
{
    if (p_tarn == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    t_tarn_vpn_list *p_list = tarn_vpn_list_find(p_tarn, vpn_list_name);
    if (p_list == nullptr)
        return ENOENT;
    t_tarn_vpn *p_vpn = find_range(p_list, min_vpn_id, max_vpn_id);
    if (p_vpn == nullptr)
        return ENOENT;
    announce_range(p_tarn, p_list, p_vpn, tarn_unbind_policy_from_vpnlist);
    avl_remove(&p_list->vpn_db, p_vpn);
    free(p_vpn);
    return 0;
}

static int announce_first_range(void *p_node, void *arg1, void *arg2)
{
    t_tarn_vpn_list *p_list = static_cast<t_tarn_vpn_list *>(p_node);
    uint64_t vpn_id = *static_cast<const uint64_t *>(arg2);
    for (auto *p_vpn = static_cast<t_tarn_vpn *>(avl_first(&p_list->vpn_db)); p_vpn != nullptr;
         p_vpn = static_cast<t_tarn_vpn *>(avl_walk(&p_list->vpn_db, p_vpn))) {
        if (p_vpn->key.min_vpn_id <= vpn_id && vpn_id <= p_vpn->key.max_vpn_id) {
            announce_range(static_cast<t_tarn *>(arg1), p_list, p_vpn, tarn_bind_policy_to_vpnlist);
            break;
        }
    }
    return 0;
}

int tarn_vpn_bind_policy(t_tarn *p_tarn, uint64_t vpn_id)
{
    if (p_tarn == nullptr)
        return EBADMSG;
    return avl_foreach(&p_tarn->vpn_list_db, announce_first_range, p_tarn, &vpn_id);
}
