// The object store: policies, VPN lists, and the contexts in which the two meet.
//
// The daemon has no configuration file. What the management framework delivers is kept in keyed trees below
// t_tarn and is built anew at every start. A policy has no effect of its own: what reaches the forwarding
// plane is the pair of a policy and a VPN list, the context (t_tarn_policy_vpn_list). It owns the rules, the
// compiled program and the filter id, so a policy has one filter for each list that it names.
//
// Operations leave dirty flags behind and compile nothing; the pass (tarn_process.h) works from the flags:
// `changed` on the policy lets it descend, `changed` on the context selects that context. Ranges of a VPN
// list are announced to the forwarding side at once.
//
// All operations take the t_tarn first and give 0 or a system error number: 2 not found, 12 no memory, 17
// already there, 22 bad reference, 74 null argument. Names are copied, cut to 127 characters. Main thread
// only, no locks.
#pragma once

#include "common/dll.h"
#include "platform/avl/avl.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

struct t_tarn;
struct t_tarn_config_action;
struct t_tarn_program_hdr;
struct t_tarn_ruletable;

inline constexpr size_t TARN_NAME_SIZE = 128;       // with the terminator
inline constexpr size_t TARN_CLASS_NAME_SIZE = 33;  // forwarding classes, SLA classes
inline constexpr int TARN_FILTER_ID_NONE = -1;      // no filter is bound

enum e_tarn_policy_type : uint32_t {
    TARN_POLICY_TYPE_INVAL = 0,
    TARN_POLICY_TYPE_DATA = 1,
    TARN_POLICY_TYPE_PFR = 2,
    TARN_POLICY_TYPE_ZBF = 3,
    TARN_POLICY_TYPE_MAX = 4,
};

// Where a policy applies.
enum e_tarn_policy_dir : uint32_t {
    TARN_POLICY_DIR_INVALID = 0,
    TARN_POLICY_DIR_TUNNEL = 1,   // traffic from tunnels
    TARN_POLICY_DIR_SERVICE = 2,  // traffic from the service side
    TARN_POLICY_DIR_ALL = 3,
    TARN_POLICY_DIR_MAX = 4,
};

enum e_tarn_filter_type {
    TARN_FILTER_INV = 0,
    TARN_FILTER_INGRESS = 1,  // of a data policy
    TARN_FILTER_PFR = 2,      // of an application-route policy
    TARN_FILTER_ZBF = 3,      // of a zone-based policy
    TARN_FILTER_MAX = 4,
};

// Names that no configuration supplies.
inline constexpr char TARN_ZBF_VPN_LIST[] = "__zbf_internal_vpn_list__";  // sole list of zone-based policies
inline constexpr char TARN_ALL_TUNNELS[] = "__all_tunnels__";             // SLA class with id 0
inline constexpr char TARN_CONTROL_CLASS[] = "__control_fc";              // forwarding class 0

struct t_tarn_policy_key {
    char name[TARN_NAME_SIZE];
    e_tarn_policy_type type;
};

struct t_tarn_policy {
    avl_node_t avl_node;
    t_tarn_policy_key key;
    e_tarn_policy_dir old_direction;  // before the last change
    e_tarn_policy_dir direction;
    uint8_t added;           // until the first pass is through with the policy
    uint8_t changed;         // something below changed since the last pass
    avl_tree_t vpn_list_db;  // t_tarn_policy_vpn_list
};
static_assert(offsetof(t_tarn_policy, avl_node) == 0);

struct t_tarn_vpn_list_key {
    char name[TARN_NAME_SIZE];
};

// A named list of VPN ranges, shared by all policies.
struct t_tarn_vpn_list {
    avl_node_t avl_node;
    t_tarn_vpn_list_key key;
    avl_tree_t vpn_db;     // t_tarn_vpn
    avl_tree_t policy_db;  // t_tarn_policy_ref: who uses it
};

struct t_tarn_vpn_key {
    uint64_t min_vpn_id;
    uint64_t max_vpn_id;
};

// A range; a single VPN has equal ends.
struct t_tarn_vpn {
    avl_node_t avl_node;
    t_tarn_vpn_key key;
};

struct t_tarn_policy_ref {
    avl_node_t avl_node;
    t_tarn_policy_key key;
    uint16_t ref_count;  // 1: a policy names a list once
};

// A policy on a VPN list. Unbound: filter_id -1, no program. Loaded: filter_id is the program's slot. Waiting
// for memory: filter_id is num_filters, no program; the rules are kept and the pass tries again.
struct t_tarn_policy_vpn_list {
    avl_node_t avl_node;
    t_tarn_vpn_list_key key;
    uint8_t changed;                       // must be compiled again
    avl_tree_t rule_db;                    // t_tarn_config_rule, owned
    avl_tree_t counter_db;                 // t_tarn_config_counter_ref, owned
    t_dll rule_list;                       // the same rules, ascending
    t_tarn_config_action *default_action;  // owned, always there
    t_tarn_ruletable *p_table;             // of the last compilation, or null; owned
    t_tarn_program_hdr *p_program;         // in filter memory, or null
    int filter_id;
    int filter_type;              // e_tarn_filter_type, 0 while unbound
    e_tarn_policy_dir direction;  // the policy's
    avl_tree_t pfx_list_db;       // t_tarn_pfx_list_ref
    avl_tree_t policer_db;        // t_tarn_policer_config through policy_avl_node
    avl_tree_t dpi_app_list_db;   // t_tarn_dpi_app_ctx
};

// Names one context from outside the policy tree.
struct t_tarn_vpn_list_key2 {
    char name[TARN_NAME_SIZE];      // the VPN list
    char pol_name[TARN_NAME_SIZE];  // the policy
    e_tarn_policy_type pol_type;
};

// A context that uses a prefix list.
struct t_tarn_vpn_list_ref {
    avl_node_t avl_node;
    t_tarn_vpn_list_key2 key;
    uint32_t ref_count;
};

// ---- Orders; the show commands walk the trees in them ----

int tarn_policy_key_cmp(const void *p_key, const void *p_object);        // type, name length, name
int tarn_vpn_list_key_cmp(const void *p_key, const void *p_object);      // name length, name
int tarn_vpn_list_ref_key_cmp(const void *p_key, const void *p_object);  // policy type, policy name, name
int tarn_vpn_key_cmp(const void *p_key, const void *p_object);           // min_vpn_id, max_vpn_id
int tarn_name_cmp(const char *p_name1, const char *p_name2);  // of size 128: length first, then letters

// ---- The store ----

int tarn_config_init(t_tarn *p_tarn);

// Tears all of it down: access lists, zones, policies, VPN lists, and the lists and objects that rules name.
// Nobody is told of what is freed directly.
void tarn_config_destroy(t_tarn *p_tarn);

// Data and application-route policies give the ingress and the application-route filter; all but data and
// zone-based, 0 too, give the latter.
int tarn_get_filter_type(uint32_t policy_type);

// ---- Policies ----

// zbf_action: default action of a zone-based policy, which gets its only context here.
int tarn_policy_add(t_tarn *p_tarn, e_tarn_policy_type type, const char *name, e_tarn_policy_dir direction,
                    uint32_t zbf_action);
int tarn_policy_lookup(t_tarn *p_tarn, e_tarn_policy_type type, const char *name, t_tarn_policy **pp_policy);
int tarn_policy_delete(t_tarn *p_tarn, e_tarn_policy_type type, const char *name);

// Announces every context at once, also those without a filter.
int tarn_policy_update_direction(t_tarn *p_tarn, t_tarn_policy *p_policy, e_tarn_policy_dir direction);

// ---- VPN lists ----

int tarn_vpn_list_add(t_tarn *p_tarn, const char *vpn_list_name);
int tarn_vpn_list_delete(t_tarn *p_tarn, const char *vpn_list_name);

// 17, not 2, when there is none.
int tarn_vpn_list_lookup(t_tarn *p_tarn, const char *vpn_list_name, t_tarn_vpn_list **pp_vpn_list);

// Both tell the forwarding side for each context of the list that has a filter.
int tarn_vpn_add(t_tarn *p_tarn, const char *vpn_list_name, uint64_t min_vpn_id, uint64_t max_vpn_id);
int tarn_vpn_delete(t_tarn *p_tarn, const char *vpn_list_name, uint64_t min_vpn_id, uint64_t max_vpn_id);

// A VPN has come into being: announces, for each list, the first range that holds it.
int tarn_vpn_bind_policy(t_tarn *p_tarn, uint64_t vpn_id);

// ---- Contexts ----

// default_sla_class_name may be null.
int tarn_vpn_list_add_to_policy(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                                const char *vpn_list_name, uint32_t default_action,
                                const char *default_sla_class_name);
int tarn_vpn_list_remove_from_policy(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                                     const char *vpn_list_name);
int tarn_vpn_list_lookup_in_policy(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                                   const char *vpn_list_name, t_tarn_policy_vpn_list **pp_vpn_list);

// Writes the default action anew.
int tarn_policy_vpn_list_change(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                                const char *vpn_list_name, uint32_t default_action,
                                const char *default_sla_class_name);
