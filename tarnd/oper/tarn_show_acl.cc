// Access lists of both families, their counters, policers and bindings.
#include "common/lum_assert.h"
#include "lconfd/lconfd_util.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/core/tarn.h"
#include "tarnd/oper/tarn_show_private.h"

#include <algorithm>
#include <cerrno>

// ---- Access lists ----

static const avl_tree_t &lists_of(const t_tarn_show_place &place)
{
    return place.p_list->af_type != TARN_AF_TYPE_IPV4 ? place.p_tarn->access_list6_db
                                                      : place.p_tarn->access_list_db;
}

static int tarn_acl_exact(const t_tarn_show_place &place, void **pp_row)
{
    t_tarn_access_list wanted = {};
    if (!tarn_show_row_name(place, place.p_list->owner_tag, wanted.key.name))
        return EBADMSG;
    wanted.key.af_type = place.p_list->af_type;
    return tarn_show_tree_exact(lists_of(place), &wanted, pp_row);
}

static int tarn_acl_first(const t_tarn_show_place &place, long next, void **pp_row)
{
    return tarn_show_tree_first(lists_of(place), next, pp_row);
}

static int tarn_acl_next(const t_tarn_show_place &place, confd_find_next_type type, const confd_value_t *keys,
                         int n, void **pp_row)
{
    if (n == 0)
        return tarn_acl_first(place, -1, pp_row);
    t_tarn_access_list wanted = {};
    if (!tarn_show_last_name(keys, wanted.key.name))
        return EBADMSG;
    wanted.key.af_type = place.p_list->af_type;
    return tarn_show_tree_next(lists_of(place), &wanted, type, pp_row);
}

// The list around rows.
static int find_list(t_tarn_show_place *p_place)
{
    confd_value_t key;
    t_tarn_show_name name;
    const t_tarn_show_list &list = *p_place->p_list;
    if (!tarn_show_last_name(lconfd_keypath_get_keys(p_place->p_keypath, &key, 1, list.owner_tag), name))
        return EBADMSG;
    return tarn_access_list_lookup(p_place->p_tarn, name, list.af_type, &p_place->p_access_list);
}

// ---- Counters ----

static int tarn_acl_counter_exact(const t_tarn_show_place &place, void **pp_row)
{
    return tarn_show_counter_exact(place, place.p_access_list->counter_db, pp_row);
}

static int tarn_acl_counter_first(const t_tarn_show_place &place, long next, void **pp_row)
{
    return tarn_show_tree_first(place.p_access_list->counter_db, next, pp_row);
}

static int tarn_acl_counter_next(const t_tarn_show_place &place, confd_find_next_type type,
                                 const confd_value_t *keys, int n, void **pp_row)
{
    return tarn_show_counter_next(place.p_access_list->counter_db, type, keys, n, pp_row);
}

// ---- Policers ----

// An instance belongs to the list of that name and family.
static int tarn_acl_policer_find_with_name_and_seq_id(const t_tarn_show_place &place, const char *text,
                                                      std::optional<confd_find_next_type> type, void **pp_row)
{
    t_tarn_policer_key owner = {};
    owner.type = TARN_POLICY_POLICER_TYPE_LOCAL;
    owner.pol_af_type = static_cast<int>(place.p_list->af_type);
    std::copy_n(place.p_access_list->key.name, sizeof(owner.policy_name), owner.policy_name);
    return tarn_show_policer_find(place.p_access_list->policer_db, owner, text, type, pp_row);
}

static int tarn_acl_policer_exact(const t_tarn_show_place &place, void **pp_row)
{
    t_tarn_show_name text;
    if (!tarn_show_row_name(place, place.p_list->inner_tag, text))
        return EBADMSG;
    return tarn_acl_policer_find_with_name_and_seq_id(place, text, std::nullopt, pp_row);
}

static int tarn_acl_policer_first(const t_tarn_show_place &place, long next, void **pp_row)
{
    return tarn_show_tree_first(place.p_access_list->policer_db, next, pp_row);
}

static int tarn_acl_policer_next(const t_tarn_show_place &place, confd_find_next_type type,
                                 const confd_value_t *keys, int n, void **pp_row)
{
    if (n == 0)
        return tarn_acl_policer_first(place, -1, pp_row);
    t_tarn_show_name text;
    if (!tarn_show_last_name(keys, text))
        return EBADMSG;
    return tarn_acl_policer_find_with_name_and_seq_id(place, text, type, pp_row);
}

// ---- Interfaces ----

// A name of full length has no terminator, as in the store.
static void copy_interface_name(const confd_value_t &value, t_tarn_intf_key *p_key)
{
    std::copy_n(value.val.buf.ptr, std::min<size_t>(value.val.buf.size, sizeof(p_key->name)), p_key->name);
}

static uint8_t direction_of(const confd_value_t &key)
{
    return tarn_yang_direction_to_filter_direction(static_cast<uint32_t>(key.val.enumvalue));
}

static int tarn_acl_interface_exact(const t_tarn_show_place &place, void **pp_row)
{
    tarn_show_trace_path(place);
    confd_value_t keys[2];
    const confd_value_t *keys_p = lconfd_keypath_get_keys(place.p_keypath, keys, 2, place.p_list->inner_tag);
    if (keys_p == nullptr)
        return EBADMSG;
    LUM_ASSERT(keys_p[0].type == C_BUF, "(&keys_p[0])->type == C_BUF");
    LUM_ASSERT(keys_p[1].type == C_ENUM_VALUE, "(&keys_p[1])->type == C_ENUM_VALUE");
    t_tarn_intf wanted = {};
    copy_interface_name(keys_p[0], &wanted.key);
    wanted.key.direction = direction_of(keys_p[1]);
    return tarn_show_tree_exact(place.p_access_list->intf_db, &wanted, pp_row);
}

static int tarn_acl_interface_first(const t_tarn_show_place &place, long next, void **pp_row)
{
    return tarn_show_tree_first(place.p_access_list->intf_db, next, pp_row);
}

// The framework gives both keys. The name alone stands before all of its bindings.
static int tarn_acl_interface_next(const t_tarn_show_place &place, confd_find_next_type type,
                                   const confd_value_t *keys, int n, void **pp_row)
{
    if (n == 0)
        return tarn_acl_interface_first(place, -1, pp_row);
    if (keys == nullptr)
        return EBADMSG;
    LUM_ASSERT(keys->type == C_BUF, "(keys)->type == C_BUF");
    t_tarn_intf wanted = {};
    copy_interface_name(*keys, &wanted.key);
    if (n > 1) {
        LUM_ASSERT(keys[1].type == C_ENUM_VALUE, "(&keys[1])->type == C_ENUM_VALUE");
        wanted.key.direction = direction_of(keys[1]);
    }
    return tarn_show_tree_next(place.p_access_list->intf_db, &wanted, type, pp_row);
}

// ---- Families ----

const t_tarn_show_family tarn_show_acls = {.owners = nullptr,
                                           .exact = tarn_acl_exact,
                                           .first = tarn_acl_first,
                                           .next = tarn_acl_next,
                                           .encode = tarn_acl_encode,
                                           .ends_without_owners = true};

const t_tarn_show_family tarn_show_acl_counters = {.owners = find_list,
                                                   .exact = tarn_acl_counter_exact,
                                                   .first = tarn_acl_counter_first,
                                                   .next = tarn_acl_counter_next,
                                                   .encode = tarn_acl_counter_encode,
                                                   .ends_without_owners = true};

const t_tarn_show_family tarn_show_acl_policers = {.owners = find_list,
                                                   .exact = tarn_acl_policer_exact,
                                                   .first = tarn_acl_policer_first,
                                                   .next = tarn_acl_policer_next,
                                                   .encode = tarn_acl_policer_encode,
                                                   .ends_without_owners = true};

const t_tarn_show_family tarn_show_acl_interfaces = {.owners = find_list,
                                                     .exact = tarn_acl_interface_exact,
                                                     .first = tarn_acl_interface_first,
                                                     .next = tarn_acl_interface_next,
                                                     .encode = tarn_acl_interface_encode,
                                                     .ends_without_owners = true};
