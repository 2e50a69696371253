// How a request for rows is answered.
//
// Each callpoint is one line of a table: its family of functions, the policy type or address family that it
// shows, and the tags of the lists on its path. The callbacks are the same for all (tarn_show_callback.cc);
// a family is what differs: the objects around its rows, the three finders, and the leaves of a row.
//
// Finders give 0, 2 when there is no such row, 74 when a key is missing, and send nothing. A key of another
// type than the model's is an assertion. They take:
//   exact  the row that the keypath ends in
//   first  the first row, for next -1; for any other value there is none
//   next   the row behind the one with these keys, or with CONFD_FIND_SAME_OR_NEXT that row itself; without
//          keys the first one
#pragma once

#include "platform/confd/confd_dp.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_policer.h"
#include "tarnd/config/tarn_policy.h"
#include "tarnd/config/tarn_rule.h"

#include <cstddef>
#include <cstdint>
#include <optional>

struct t_tarn;
struct t_tarn_show_family;

// More than any row has.
inline constexpr size_t TARN_SHOW_MAX_LEAVES = 16;

// One callpoint. Tags are those of the lists on the path; 0 where the path has no such list.
struct t_tarn_show_list {
    const char *callpoint;
    const t_tarn_show_family *p_family;
    e_tarn_policy_type policy_type;  // of policies
    e_tarn_af_type af_type;          // of access lists
    uint32_t owner_tag;              // policies or access lists
    uint32_t vpn_list_tag;           // a policy's VPN lists
    uint32_t inner_tag;              // counters, policers or interfaces
    const char *failure;             // logged when the framework refuses the callpoint
};

// Where a request looks: its list and path, and the objects around, once the family has found them.
struct t_tarn_show_place {
    t_tarn *p_tarn;
    const t_tarn_show_list *p_list;
    const confd_hkeypath_t *p_keypath;
    t_tarn_policy *p_policy;
    t_tarn_policy_vpn_list *p_vpn_list;
    t_tarn_access_list *p_access_list;
};

// All set but `owners`, which is null for lists at the top. The rows that finders give are the trees' own.
struct t_tarn_show_family {
    int (*owners)(t_tarn_show_place *p_place);  // finds them; a finder's result
    int (*exact)(const t_tarn_show_place &place, void **pp_row);
    int (*first)(const t_tarn_show_place &place, long next, void **pp_row);
    int (*next)(const t_tarn_show_place &place, confd_find_next_type type, const confd_value_t *keys, int n,
                void **pp_row);
    int (*encode)(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);  // leaves
    bool ends_without_owners;  // a walk whose owners have vanished ends; else it is told "not found"
};

extern const t_tarn_show_family tarn_show_policies;
extern const t_tarn_show_family tarn_show_policy_vpnlists;
extern const t_tarn_show_family tarn_show_policy_counters;
extern const t_tarn_show_family tarn_show_policy_policers;
extern const t_tarn_show_family tarn_show_acls;
extern const t_tarn_show_family tarn_show_acl_counters;
extern const t_tarn_show_family tarn_show_acl_policers;
extern const t_tarn_show_family tarn_show_acl_interfaces;

// ---- Callbacks, for any list. Always CONFD_OK; a reply that fails is logged. ----

int tarn_show_get_object(const t_tarn_show_list &list, confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath);
int tarn_show_get_next_object(const t_tarn_show_list &list, confd_trans_ctx *p_tctx,
                              confd_hkeypath_t *p_keypath, long next);
int tarn_show_find_next_object(const t_tarn_show_list &list, confd_trans_ctx *p_tctx,
                               confd_hkeypath_t *p_keypath, confd_find_next_type type, confd_value_t *keys,
                               int n);

// Filter memory is one row without a key, which the callbacks of its own give.
int tarn_filter_memory_usage_get_object(confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath);
int tarn_filter_memory_usage_get_next_object(confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath, long next);
int tarn_filter_memory_usage_find_next_object(confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath,
                                              confd_find_next_type type, confd_value_t *keys, int n);

// Logs a reply that could not be sent.
void tarn_show_check_reply(int status);

// ---- Keys ----

using t_tarn_show_name = char[TARN_NAME_SIZE];

// A text, cut to size bytes and terminated.
void tarn_show_copy_text(const confd_value_t &value, char *p_text, size_t size);

// The one key of the list with that tag, of the row that the path ends in; the path goes to the trace. False
// without it.
bool tarn_show_row_name(const t_tarn_show_place &place, uint32_t tag, t_tarn_show_name &name);

// The one key of the last row of a walk. False without it.
bool tarn_show_last_name(const confd_value_t *keys, t_tarn_show_name &name);

void tarn_show_trace_path(const t_tarn_show_place &place);

// ---- Finders in a tree; `wanted` is the key ----

int tarn_show_tree_exact(const avl_tree_t &tree, const void *p_wanted, void **pp_row);
int tarn_show_tree_first(const avl_tree_t &tree, long next, void **pp_row);
// The first row behind the key, also when the row with the key has vanished.
int tarn_show_tree_next(const avl_tree_t &tree, const void *p_wanted, confd_find_next_type type,
                        void **pp_row);

// Counters of a context or an access list.
int tarn_show_counter_exact(const t_tarn_show_place &place, const avl_tree_t &tree, void **pp_row);
int tarn_show_counter_next(const avl_tree_t &tree, confd_find_next_type type, const confd_value_t *keys,
                           int n, void **pp_row);

// A policer's instance by the key of its row, "sequence.name", or without a type exactly that one. owner
// holds the rest of the instance's key. 2 for any other text.
int tarn_show_policer_find(const avl_tree_t &tree, const t_tarn_policer_key &owner, const char *text,
                           std::optional<confd_find_next_type> type, void **pp_row);

// ---- Leaves: fill the array and give their number. Texts are good until the next call. ----

int tarn_policy_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);
int tarn_policy_vpnlist_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);
int tarn_policy_counter_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);
int tarn_policy_policer_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);
int tarn_acl_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);
int tarn_acl_counter_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);
int tarn_acl_policer_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);
int tarn_acl_interface_encode(const t_tarn_show_place &place, const void *p_row, confd_tag_value_t *values);
int tarn_filter_memory_usage_encode(confd_tag_value_t *values);
