// Who uses an application list. Lists and users count each other's uses, one for each rule that names a list.
#include "common/lum_assert.h"
#include "common/strlcpy.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>

namespace {

// A context in two forms: as an object, and as lists know it.
struct t_context_user {
    t_tarn_policy_vpn_list *p_vpn_list;  // null when policy or context is absent
    t_tarn_dpi_policy_vpn_list_ctx wanted;
};

}  // namespace

static t_context_user find_context(t_tarn *p_tarn, uint32_t policy_type, const char *policy_name,
                                   const char *vpn_list_name)
{
    t_context_user user = {};
    t_tarn_vpn_list_key2 *p_key = &user.wanted.key;
    p_key->pol_type = static_cast<e_tarn_policy_type>(policy_type);
    lum_strlcpy(p_key->pol_name, policy_name, sizeof(p_key->pol_name));
    lum_strlcpy(p_key->name, vpn_list_name, sizeof(p_key->name));
    tarn_vpn_list_lookup_in_policy(p_tarn, p_key->pol_type, policy_name, vpn_list_name, &user.p_vpn_list);
    return user;
}

static t_tarn_access_list *find_access_list(const t_tarn *p_tarn, uint32_t af_type, const char *name)
{
    t_tarn_access_list wanted = {};
    lum_strlcpy(wanted.key.name, name, sizeof(wanted.key.name));
    wanted.key.af_type = static_cast<e_tarn_af_type>(af_type);
    return static_cast<t_tarn_access_list *>(avl_find(&p_tarn->access_list_db, &wanted));
}

static t_tarn_dpi_app_ctx list_key(t_tarn_dpi_app_list *p_list)
{
    t_tarn_dpi_app_ctx use = {};
    use.p_app_list = p_list;
    return use;
}

static t_tarn_dpi_access_list_ctx access_list_key(t_tarn_access_list *p_access_list)
{
    t_tarn_dpi_access_list_ctx user = {};
    user.p_access_list = p_access_list;
    return user;
}

// Counts one more use in the record that equals the wanted one, which is made if there is none. False without
// memory.
template <typename t_ref>
static bool count_use(avl_tree_t *p_tree, const t_ref &wanted)
{
    t_ref *p_ref = static_cast<t_ref *>(avl_find(p_tree, &wanted));
    if (p_ref == nullptr) {
        p_ref = static_cast<t_ref *>(malloc(sizeof(t_ref)));
        if (p_ref == nullptr)
            return false;
        *p_ref = wanted;
        (void)avl_insert(p_tree, p_ref);  // not there, as looked up
    }
    p_ref->ref_count++;
    return true;
}

// Gives one use back. A record that isn't there counts none; false then. text: what a count of 0 violates.
template <typename t_ref>
static bool give_back(avl_tree_t *p_tree, const t_ref &wanted, const char *text)
{
    t_ref *p_ref = static_cast<t_ref *>(avl_find(p_tree, &wanted));
    if (p_ref == nullptr)
        return false;
    LUM_ASSERT(p_ref->ref_count > 0, text);
    if (--p_ref->ref_count == 0) {
        avl_remove(p_tree, p_ref);
        free(p_ref);
    }
    return true;
}

// A record that finds no memory on the user's side is not counted there, and nobody is told.
static int add_to_context(t_tarn *p_tarn, t_tarn_dpi_app_list *p_list, const t_context_user &user)
{
    if (user.p_vpn_list == nullptr)
        return ENOENT;
    if (!count_use(&p_list->vpn_list_db, user.wanted))
        return ENOMEM;
    p_tarn->dpi_ref++;
    count_use(&user.p_vpn_list->dpi_app_list_db, list_key(p_list));
    return 0;
}

static int add_to_access_list(t_tarn_dpi_app_list *p_list, t_tarn_access_list *p_access_list)
{
    if (p_access_list == nullptr)
        return ENOENT;
    if (!count_use(&p_list->access_list_db, access_list_key(p_access_list)))
        return ENOMEM;
    count_use(&p_access_list->dpi_app_list_db, list_key(p_list));
    return 0;
}

static int remove_from_context(t_tarn *p_tarn, t_tarn_dpi_app_list *p_list, const t_context_user &user)
{
    if (user.p_vpn_list == nullptr)
        return ENOENT;
    if (give_back(&p_list->vpn_list_db, user.wanted, "p_dpi_policy_vpn_list_ctx->ref_count > 0"))
        p_tarn->dpi_ref--;
    give_back(&user.p_vpn_list->dpi_app_list_db, list_key(p_list), "p_dpi_app_ctx->ref_count > 0");
    return 0;
}

static int remove_from_access_list(t_tarn_dpi_app_list *p_list, t_tarn_access_list *p_access_list)
{
    if (p_access_list == nullptr)
        return ENOENT;
    give_back(&p_list->access_list_db, access_list_key(p_access_list),
              "p_dpi_access_list_ctx->ref_count > 0");
    give_back(&p_access_list->dpi_app_list_db, list_key(p_list), "p_dpi_app_ctx->ref_count > 0");
    return 0;
}

// What is done to a local list's access list, and to any other list's context.
struct t_use_change {
    int (*to_access_list)(t_tarn_dpi_app_list *p_list, t_tarn_access_list *p_access_list);
    int (*to_context)(t_tarn *p_tarn, t_tarn_dpi_app_list *p_list, const t_context_user &user);
};

static constexpr t_use_change use_added = {add_to_access_list, add_to_context};
static constexpr t_use_change use_removed = {remove_from_access_list, remove_from_context};

static int change_use(const t_use_change &change, t_tarn *p_tarn, const char *app_list_name,
                      e_tarn_dpi_app_list_loc_type loc_type, uint32_t policy_type, const char *policy_name,
                      const char *vpn_list_name)
{
    t_tarn_dpi_app_list *p_list = tarn_app_list_find(p_tarn, app_list_name, loc_type);
    if (p_list == nullptr)
        return ENOENT;
    if (loc_type == TARN_DPI_KEY_LOC_LOCAL)
        return change.to_access_list(p_list, find_access_list(p_tarn, policy_type, policy_name));
    return change.to_context(p_tarn, p_list, find_context(p_tarn, policy_type, policy_name, vpn_list_name));
}

int tarn_config_add_app_list_to_policy(t_tarn *p_tarn, const char *app_list_name,
                                       e_tarn_dpi_app_list_loc_type loc_type, uint32_t policy_type,
                                       const char *policy_name, const char *vpn_list_name)
{
    return change_use(use_added, p_tarn, app_list_name, loc_type, policy_type, policy_name, vpn_list_name);
}

int tarn_config_remove_app_list_from_policy(t_tarn *p_tarn, const char *app_list_name,
                                            e_tarn_dpi_app_list_loc_type loc_type, uint32_t policy_type,
                                            const char *policy_name, const char *vpn_list_name)
{
    return change_use(use_removed, p_tarn, app_list_name, loc_type, policy_type, policy_name, vpn_list_name);
}
