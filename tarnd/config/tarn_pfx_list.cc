#include "tarnd/config/tarn_pfx_list.h"

#include "common/ip_util.h"
#include "common/lum_assert.h"
#include "common/strlcpy.h"
#include "platform/confd/confd_lib.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

// ---- Orders ----

static void assert_list_type(e_tarn_policy_pfx_list_type type1, e_tarn_policy_pfx_list_type type2)
{
    LUM_ASSERT(type1 != TARN_POLICY_PFX_LIST_TYPE_INVALID,
               "p_pfx_list1->key.pfx_list_type != TARN_POLICY_PFX_LIST_TYPE_INVALID");
    LUM_ASSERT(type2 != TARN_POLICY_PFX_LIST_TYPE_INVALID,
               "p_pfx_list2->key.pfx_list_type != TARN_POLICY_PFX_LIST_TYPE_INVALID");
    LUM_ASSERT(type1 != TARN_POLICY_PFX_LIST_TYPE_MAX,
               "p_pfx_list1->key.pfx_list_type != TARN_POLICY_PFX_LIST_TYPE_MAX");
    LUM_ASSERT(type2 != TARN_POLICY_PFX_LIST_TYPE_MAX,
               "p_pfx_list2->key.pfx_list_type != TARN_POLICY_PFX_LIST_TYPE_MAX");
}

// Serves lists and contexts' references to them, whose keys stand at the same place.
static_assert(offsetof(t_tarn_pfx_list, key) == offsetof(t_tarn_pfx_list_ref, key));

int tarn_pfx_list_key_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_pfx_list_key &key = static_cast<const t_tarn_pfx_list_ref *>(p_key)->key;
    const t_tarn_pfx_list_key &object = static_cast<const t_tarn_pfx_list_ref *>(p_object)->key;
    assert_list_type(key.pfx_list_type, object.pfx_list_type);
    if (key.pfx_list_type != object.pfx_list_type)
        return ip_util_order<uint32_t>(key.pfx_list_type, object.pfx_list_type);
    return strncmp(key.name, object.name, TARN_NAME_SIZE);
}

int tarn_ip_pfx_key_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_ip_pfx_key &key = static_cast<const t_tarn_ip_pfx *>(p_key)->key;
    const t_tarn_ip_pfx_key &object = static_cast<const t_tarn_ip_pfx *>(p_object)->key;
    if (key.prefix_len != object.prefix_len)
        return ip_util_order(key.prefix_len, object.prefix_len);
    return memcmp(key.prefix_str, object.prefix_str, sizeof(key.prefix_str));
}

int tarn_pfx_access_list_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_access_list_key &key = static_cast<const t_tarn_pfx_access_ctx *>(p_key)->p_access_list->key;
    const t_tarn_access_list_key &object =
        static_cast<const t_tarn_pfx_access_ctx *>(p_object)->p_access_list->key;
    int order = tarn_name_cmp(key.name, object.name);
    return order != 0 ? order : ip_util_order<uint32_t>(key.af_type, object.af_type);
}

int tarn_access_pfx_list_cmp(const void *p_key, const void *p_object)
{
    const t_tarn_pfx_list_key &key = static_cast<const t_tarn_access_pfx_ctx *>(p_key)->p_pfx_list->key;
    const t_tarn_pfx_list_key &object = static_cast<const t_tarn_access_pfx_ctx *>(p_object)->p_pfx_list->key;
    assert_list_type(key.pfx_list_type, object.pfx_list_type);
    int order = strncmp(key.name, object.name, TARN_NAME_SIZE);
    return order != 0 ? order : ip_util_order<uint32_t>(key.pfx_list_type, object.pfx_list_type);
}

e_tarn_policy_pfx_list_type tarn_get_pfx_list_type_from_policy_type(uint32_t policy_type)
{
    switch (policy_type) {
    case TARN_POLICY_TYPE_DATA:
    case TARN_POLICY_TYPE_PFR:
        return TARN_POLICY_PFX_LIST_TYPE_KEELSON;
    case TARN_POLICY_TYPE_ZBF:
        return TARN_POLICY_PFX_LIST_TYPE_LOCAL;
    default:
        return TARN_POLICY_PFX_LIST_TYPE_INVALID;
    }
}

// ---- Lists ----

t_tarn_pfx_list *tarn_pfx_list_find(const t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type)
{
    t_tarn_pfx_list_ref wanted = {};
    lum_strlcpy(wanted.key.name, name, sizeof(wanted.key.name));
    wanted.key.pfx_list_type = type;
    return static_cast<t_tarn_pfx_list *>(avl_find(&p_tarn->pfx_list_db, &wanted));
}

int tarn_config_pfx_list_add(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type)
{
    if (tarn_pfx_list_find(p_tarn, name, type) != nullptr)
        return EEXIST;
    t_tarn_pfx_list *p_list = static_cast<t_tarn_pfx_list *>(calloc(1, sizeof(t_tarn_pfx_list)));
    if (p_list == nullptr)
        return ENOMEM;
    lum_strlcpy(p_list->key.name, name, sizeof(p_list->key.name));
    p_list->key.pfx_list_type = type;
    avl_create(&p_list->ip_pfx_db, tarn_ip_pfx_key_cmp, sizeof(t_tarn_ip_pfx),
               offsetof(t_tarn_ip_pfx, avl_node));
    avl_create(&p_list->vpn_list_db, tarn_vpn_list_ref_key_cmp, sizeof(t_tarn_vpn_list_ref),
               offsetof(t_tarn_vpn_list_ref, avl_node));
    avl_create(&p_list->access_list_db, tarn_pfx_access_list_cmp, sizeof(t_tarn_pfx_access_ctx),
               offsetof(t_tarn_pfx_access_ctx, avl_node));
    return avl_insert(&p_tarn->pfx_list_db, p_list);
}

static int mark_context(void *p_node, void *arg1, void *)
{
    tarn_process_context_change(static_cast<t_tarn *>(arg1),
                                &static_cast<t_tarn_vpn_list_ref *>(p_node)->key);
    return 0;
}

static int mark_access_list(void *p_node, void *, void *)
{
    static_cast<t_tarn_pfx_access_ctx *>(p_node)->p_access_list->changed = 1;
    return 0;
}

int tarn_config_pfx_list_change(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type)
{
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, name, type);
    if (p_list == nullptr)
        return ENOENT;
    avl_foreach(&p_list->vpn_list_db, mark_context, p_tarn, nullptr);
    avl_foreach(&p_list->access_list_db, mark_access_list, nullptr, nullptr);
    return 0;
}

// Takes the list out of the memory of one access list that used it.
static int forget_access_list(void *p_node, void *arg1, void *)
{
    t_tarn_pfx_access_ctx *p_user = static_cast<t_tarn_pfx_access_ctx *>(p_node);
    avl_tree_t *p_twins = &p_user->p_access_list->pfx_list_db;
    t_tarn_access_pfx_ctx wanted = {};
    wanted.p_pfx_list = static_cast<t_tarn_pfx_list *>(arg1);
    void *p_twin = avl_find(p_twins, &wanted);
    if (p_twin != nullptr) {
        avl_remove(p_twins, p_twin);
        free(p_twin);
    }
    avl_remove(&wanted.p_pfx_list->access_list_db, p_user);
    free(p_user);
    return 0;
}

int tarn_config_pfx_list_delete(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type)
{
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, name, type);
    if (p_list == nullptr)
        return ENOENT;
    avl_destroy_nodes(&p_list->ip_pfx_db, free);
    avl_remove(&p_tarn->pfx_list_db, p_list);
    // Rules and contexts are deleted before lists.
    LUM_ASSERT(avl_first(&p_list->vpn_list_db) == nullptr, "p_pfx_list_vpn_list == NULL");
    avl_foreach(&p_list->access_list_db, forget_access_list, p_list, nullptr);
    free(p_list);
    return 0;
}

// Users have gone by now; records that they left are freed along.
static void release_list(void *p_object)
{
    t_tarn_pfx_list *p_list = static_cast<t_tarn_pfx_list *>(p_object);
    avl_destroy_nodes(&p_list->ip_pfx_db, free);
    avl_destroy_nodes(&p_list->vpn_list_db, free);
    avl_destroy_nodes(&p_list->access_list_db, free);
    free(p_list);
}

void tarn_config_pfx_list_destroy(t_tarn *p_tarn)
{
    avl_destroy_nodes(&p_tarn->pfx_list_db, release_list);
    avl_destroy(&p_tarn->pfx_list_db);
}

// ---- Members ----

static t_tarn_ip_pfx member_key(const confd_ipv4_prefix *p_prefix)
{
    t_tarn_ip_pfx member = {};
    memcpy(member.key.prefix_str, &p_prefix->ip, sizeof(member.key.prefix_str));
    member.key.prefix_len = p_prefix->len;
    return member;
}

int tarn_config_ip_pfx_add(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type,
                           const confd_ipv4_prefix *p_prefix)
{
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, name, type);
    LUM_ASSERT(p_list != nullptr, "p_pfx_list != NULL");
    t_tarn_ip_pfx wanted = member_key(p_prefix);
    LUM_ASSERT(avl_find(&p_list->ip_pfx_db, &wanted) == nullptr, "p_ip_pfx == NULL");
    t_tarn_ip_pfx *p_member = static_cast<t_tarn_ip_pfx *>(malloc(sizeof(t_tarn_ip_pfx)));
    if (p_member == nullptr)
        return ENOMEM;
    *p_member = wanted;
    return avl_insert(&p_list->ip_pfx_db, p_member);
}

int tarn_config_ip_pfx_delete(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type,
                              const confd_ipv4_prefix *p_prefix)
{
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, name, type);
    LUM_ASSERT(p_list != nullptr, "p_pfx_list != NULL");
    t_tarn_ip_pfx wanted = member_key(p_prefix);
    void *p_member = avl_find(&p_list->ip_pfx_db, &wanted);
    LUM_ASSERT(p_member != nullptr, "p_ip_pfx != NULL");
    avl_remove(&p_list->ip_pfx_db, p_member);
    free(p_member);
    return 0;
}

// ---- Uses ----

static t_tarn_vpn_list_ref context_key(const t_tarn_policy *p_policy,
                                       const t_tarn_policy_vpn_list *p_policy_vpn_list)
{
    t_tarn_vpn_list_ref ref = {};
    memcpy(ref.key.name, p_policy_vpn_list->key.name, sizeof(ref.key.name));
    memcpy(ref.key.pol_name, p_policy->key.name, sizeof(ref.key.pol_name));
    ref.key.pol_type = p_policy->key.type;
    return ref;
}

static t_tarn_pfx_list_ref list_key(const t_tarn_pfx_list *p_list)
{
    t_tarn_pfx_list_ref ref = {};
    ref.key = p_list->key;
    return ref;
}

// Counts one more use in the record that equals the wanted one, which is made if there is none.
template <typename t_ref>
static void count_use(avl_tree_t *p_tree, const t_ref &wanted)
{
    t_ref *p_ref = static_cast<t_ref *>(avl_find(p_tree, &wanted));
    if (p_ref == nullptr) {
        p_ref = static_cast<t_ref *>(malloc(sizeof(t_ref)));
        LUM_ASSERT(p_ref != nullptr, "p_ref != NULL");
        *p_ref = wanted;
        (void)avl_insert(p_tree, p_ref);  // not there, as looked up
    }
    p_ref->ref_count++;
}

template <typename t_ref>
static void give_back(avl_tree_t *p_tree, t_ref *p_ref)
{
    if (--p_ref->ref_count != 0)
        return;
    avl_remove(p_tree, p_ref);
    free(p_ref);
}

int tarn_config_add_pfx_list_to_policy(t_tarn *p_tarn, const char *pfx_list_name, t_tarn_policy *p_policy,
                                       t_tarn_policy_vpn_list *p_policy_vpn_list)
{
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, pfx_list_name,
                                                 tarn_get_pfx_list_type_from_policy_type(p_policy->key.type));
    if (p_list == nullptr)
        return ENOENT;
    count_use(&p_list->vpn_list_db, context_key(p_policy, p_policy_vpn_list));
    count_use(&p_policy_vpn_list->pfx_list_db, list_key(p_list));
    return 0;
}

int tarn_config_remove_pfx_list_from_policy(t_tarn *p_tarn, const char *pfx_list_name,
                                            t_tarn_policy *p_policy,
                                            t_tarn_policy_vpn_list *p_policy_vpn_list)
{
    t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, pfx_list_name,
                                                 tarn_get_pfx_list_type_from_policy_type(p_policy->key.type));
    if (p_list == nullptr)
        return 0;
    t_tarn_vpn_list_ref wanted = context_key(p_policy, p_policy_vpn_list);
    auto *p_user = static_cast<t_tarn_vpn_list_ref *>(avl_find(&p_list->vpn_list_db, &wanted));
    LUM_ASSERT(p_user != nullptr && p_user->ref_count > 0,
               "p_pfx_list_vpn_list && p_pfx_list_vpn_list->ref_count>0");
    t_tarn_pfx_list_ref used = list_key(p_list);
    auto *p_used = static_cast<t_tarn_pfx_list_ref *>(avl_find(&p_policy_vpn_list->pfx_list_db, &used));
    LUM_ASSERT(p_used != nullptr && p_used->ref_count > 0,
               "p_vpn_list_pfx_list && p_vpn_list_pfx_list->ref_count>0");
    give_back(&p_list->vpn_list_db, p_user);
    give_back(&p_policy_vpn_list->pfx_list_db, p_used);
    return 0;
}
