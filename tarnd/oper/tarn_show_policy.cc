// Policies, their VPN lists, and the counters and policers of those.
#include "tarnd/oper/tarn_show_private.h"

#include "common/lum_assert.h"
#include "common/strlcpy.h"
#include "lconfd/lconfd_util.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdio>

// ---- The objects around rows ----

static int find_policy(t_tarn_show_place *p_place)
{
    confd_value_t key;
    const confd_value_t *p_policy_name =
        lconfd_keypath_get_keys(p_place->p_keypath, &key, 1, p_place->p_list->owner_tag);
    if (p_policy_name == nullptr)
        return EBADMSG;
    LUM_ASSERT(p_policy_name->type == C_BUF, "(p_policy_name)->type == C_BUF");
    t_tarn_show_name name;
    tarn_show_copy_text(*p_policy_name, name, sizeof(name));
    return tarn_policy_lookup(p_place->p_tarn, p_place->p_list->policy_type, name, &p_place->p_policy);
}

// Zone-based policies have one VPN list, which is not on the path.
static bool read_vpn_list_name(const t_tarn_show_place &place, t_tarn_vpn_list_key *p_key)
{
    if (place.p_list->policy_type == TARN_POLICY_TYPE_ZBF) {
        lum_strlcpy(p_key->name, TARN_ZBF_VPN_LIST, sizeof(p_key->name));
        return true;
    }
    confd_value_t key;
    const confd_value_t *p_vpn_list_name =
        lconfd_keypath_get_keys(place.p_keypath, &key, 1, place.p_list->vpn_list_tag);
    if (p_vpn_list_name == nullptr)
        return false;
    LUM_ASSERT(p_vpn_list_name->type == C_BUF, "(p_vpn_list_name)->type == C_BUF");
    tarn_show_copy_text(*p_vpn_list_name, p_key->name, sizeof(p_key->name));
    return true;
}

static int find_vpn_list(t_tarn_show_place *p_place)
{
    t_tarn_policy_vpn_list wanted = {};
    if (!read_vpn_list_name(*p_place, &wanted.key))
        return EBADMSG;
    if (int status = find_policy(p_place); status != 0)
        return status;
    void *p_vpn_list;
    int status = tarn_show_tree_exact(p_place->p_policy->vpn_list_db, &wanted, &p_vpn_list);
    if (status == 0)
        p_place->p_vpn_list = static_cast<t_tarn_policy_vpn_list *>(p_vpn_list);
    return status;
}

// ---- Policies ----

static int tarn_policy_exact(const t_tarn_show_place &place, void **pp_row)
{
    t_tarn_policy wanted = {};
    if (!tarn_show_row_name(place, place.p_list->owner_tag, wanted.key.name))
        return EBADMSG;
    wanted.key.type = place.p_list->policy_type;
    return tarn_show_tree_exact(place.p_tarn->policy_db, &wanted, pp_row);
}

// The first policy of the type, at or behind one in the tree.
static int policy_of_type(const t_tarn_show_place &place, void *p_node, e_tarn_policy_type type,
                          void **pp_row)
{
    while (p_node != nullptr && static_cast<const t_tarn_policy *>(p_node)->key.type != type)
        p_node = avl_walk(&place.p_tarn->policy_db, p_node);
    if (p_node == nullptr)
        return ENOENT;
    *pp_row = p_node;
    return 0;
}

static int tarn_policy_first(const t_tarn_show_place &place, long next, void **pp_row)
{
    if (next != -1)
        return ENOENT;
    return policy_of_type(place, avl_first(&place.p_tarn->policy_db), place.p_list->policy_type, pp_row);
}

// Goes on from the row itself, so the list ends with a row that vanishes. All types but zone-based look for
// data policies; those stand before application-route policies, of which only the first is ever shown.
static int tarn_policy_next(const t_tarn_show_place &place, confd_find_next_type type,
                            const confd_value_t *keys, int n, void **pp_row)
{
    if (n == 0)
        return tarn_policy_first(place, -1, pp_row);
    t_tarn_policy wanted = {};
    if (!tarn_show_last_name(keys, wanted.key.name))
        return EBADMSG;
    wanted.key.type = place.p_list->policy_type;
    void *p_last;
    if (tarn_show_tree_exact(place.p_tarn->policy_db, &wanted, &p_last) != 0)
        return ENOENT;
    if (type == CONFD_FIND_SAME_OR_NEXT) {
        *pp_row = p_last;
        return 0;
    }
    bool is_zone = place.p_list->policy_type == TARN_POLICY_TYPE_ZBF;
    return policy_of_type(place, avl_walk(&place.p_tarn->policy_db, p_last),
                          is_zone ? TARN_POLICY_TYPE_ZBF : TARN_POLICY_TYPE_DATA, pp_row);
}

// ---- VPN lists of a policy ----

static int tarn_policy_vpnlist_exact(const t_tarn_show_place &place, void **pp_row)
{
    t_tarn_policy_vpn_list wanted = {};
    if (!tarn_show_row_name(place, place.p_list->vpn_list_tag, wanted.key.name))
        return EBADMSG;
    return tarn_show_tree_exact(place.p_policy->vpn_list_db, &wanted, pp_row);
}

static int tarn_policy_vpnlist_first(const t_tarn_show_place &place, long next, void **pp_row)
{
    return tarn_show_tree_first(place.p_policy->vpn_list_db, next, pp_row);
}

static int tarn_policy_vpnlist_next(const t_tarn_show_place &place, confd_find_next_type type,
                                    const confd_value_t *keys, int n, void **pp_row)
{
    if (n == 0)
        return tarn_policy_vpnlist_first(place, -1, pp_row);
    t_tarn_policy_vpn_list wanted = {};
    if (!tarn_show_last_name(keys, wanted.key.name))
        return EBADMSG;
    return tarn_show_tree_next(place.p_policy->vpn_list_db, &wanted, type, pp_row);
}

// ---- Counters of a VPN list ----

static int tarn_policy_counter_exact(const t_tarn_show_place &place, void **pp_row)
{
    return tarn_show_counter_exact(place, place.p_vpn_list->counter_db, pp_row);
}

static int tarn_policy_counter_first(const t_tarn_show_place &place, long next, void **pp_row)
{
    return tarn_show_tree_first(place.p_vpn_list->counter_db, next, pp_row);
}

static int tarn_policy_counter_next(const t_tarn_show_place &place, confd_find_next_type type,
                                    const confd_value_t *keys, int n, void **pp_row)
{
    return tarn_show_counter_next(place.p_vpn_list->counter_db, type, keys, n, pp_row);
}

// ---- Policers of a VPN list ----

// An instance belongs to "list_policy".
static int tarn_policy_policer_find_with_name_and_seq_id(const t_tarn_show_place &place, const char *text,
                                                         std::optional<confd_find_next_type> type,
                                                         void **pp_row)
{
    t_tarn_policer_key owner = {};
    owner.type = TARN_POLICY_POLICER_TYPE_KEELSON;
    size_t length = lum_strlcpy(owner.policy_name, place.p_vpn_list->key.name, sizeof(owner.policy_name));
    snprintf(owner.policy_name + length, sizeof(owner.policy_name) - length, "_%s", place.p_policy->key.name);
    return tarn_show_policer_find(place.p_vpn_list->policer_db, owner, text, type, pp_row);
}

static int tarn_policy_policer_exact(const t_tarn_show_place &place, void **pp_row)
{
    t_tarn_show_name text;
    if (!tarn_show_row_name(place, place.p_list->inner_tag, text))
        return EBADMSG;
    return tarn_policy_policer_find_with_name_and_seq_id(place, text, std::nullopt, pp_row);
}

static int tarn_policy_policer_first(const t_tarn_show_place &place, long next, void **pp_row)
{
    return tarn_show_tree_first(place.p_vpn_list->policer_db, next, pp_row);
}

static int tarn_policy_policer_next(const t_tarn_show_place &place, confd_find_next_type type,
                                    const confd_value_t *keys, int n, void **pp_row)
{
    if (n == 0)
        return tarn_policy_policer_first(place, -1, pp_row);
    t_tarn_show_name text;
    if (!tarn_show_last_name(keys, text))
        return EBADMSG;
    return tarn_policy_policer_find_with_name_and_seq_id(place, text, type, pp_row);
}

// ---- Families ----

const t_tarn_show_family tarn_show_policies = {.owners = nullptr,
                                               .exact = tarn_policy_exact,
                                               .first = tarn_policy_first,
                                               .next = tarn_policy_next,
                                               .encode = tarn_policy_encode,
                                               .ends_without_owners = true};

const t_tarn_show_family tarn_show_policy_vpnlists = {.owners = find_policy,
                                                      .exact = tarn_policy_vpnlist_exact,
                                                      .first = tarn_policy_vpnlist_first,
                                                      .next = tarn_policy_vpnlist_next,
                                                      .encode = tarn_policy_vpnlist_encode,
                                                      .ends_without_owners = true};

const t_tarn_show_family tarn_show_policy_counters = {.owners = find_vpn_list,
                                                      .exact = tarn_policy_counter_exact,
                                                      .first = tarn_policy_counter_first,
                                                      .next = tarn_policy_counter_next,
                                                      .encode = tarn_policy_counter_encode,
                                                      .ends_without_owners = false};

const t_tarn_show_family tarn_show_policy_policers = {.owners = find_vpn_list,
                                                      .exact = tarn_policy_policer_exact,
                                                      .first = tarn_policy_policer_first,
                                                      .next = tarn_policy_policer_next,
                                                      .encode = tarn_policy_policer_encode,
                                                      .ends_without_owners = false};
