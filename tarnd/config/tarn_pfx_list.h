// Prefix lists: named sets of IPv4 prefixes, from the local configuration and from the controller, a name
// once in each.
//
// A list knows its users, contexts and access lists, and they know their lists; both sides count. Each field
// that a list was expanded into counts one, so a rule with a list of n prefixes holds n. A change of the list
// marks the users, and the pass expands the list anew.
#pragma once

#include "platform/avl/avl.h"
#include "tarnd/config/tarn_policy.h"

#include <cstdint>

struct confd_ipv4_prefix;
struct t_tarn_access_list;

enum e_tarn_policy_pfx_list_type : uint32_t {
    TARN_POLICY_PFX_LIST_TYPE_INVALID = 0,
    TARN_POLICY_PFX_LIST_TYPE_LOCAL = 1,
    TARN_POLICY_PFX_LIST_TYPE_KEELSON = 2,
    TARN_POLICY_PFX_LIST_TYPE_MAX = 3,
};

struct t_tarn_pfx_list_key {
    char name[TARN_NAME_SIZE];
    e_tarn_policy_pfx_list_type pfx_list_type;
};

struct t_tarn_pfx_list {
    avl_node_t avl_node;
    t_tarn_pfx_list_key key;
    avl_tree_t ip_pfx_db;       // t_tarn_ip_pfx
    avl_tree_t vpn_list_db;     // t_tarn_vpn_list_ref
    avl_tree_t access_list_db;  // t_tarn_pfx_access_ctx
};

struct t_tarn_ip_pfx_key {
    char prefix_str[4];  // IPv4, network order
    int prefix_len;      // bits
};

struct t_tarn_ip_pfx {
    avl_node_t avl_node;
    t_tarn_ip_pfx_key key;
};

// In a context: a list that it uses.
struct t_tarn_pfx_list_ref {
    avl_node_t avl_node;
    t_tarn_pfx_list_key key;
    uint32_t ref_count;
};

// In a prefix list: an access list that uses it.
struct t_tarn_pfx_access_ctx {
    avl_node_t avl_node;
    t_tarn_access_list *p_access_list;
    uint32_t ref_count;
};

// In an access list: a prefix list that it uses.
struct t_tarn_access_pfx_ctx {
    avl_node_t avl_node;
    t_tarn_pfx_list *p_pfx_list;
    uint32_t ref_count;
};

int tarn_pfx_list_key_cmp(const void *p_key, const void *p_object);     // type, name
int tarn_ip_pfx_key_cmp(const void *p_key, const void *p_object);       // length, address
int tarn_pfx_access_list_cmp(const void *p_key, const void *p_object);  // name length, name, family
int tarn_access_pfx_list_cmp(const void *p_key, const void *p_object);  // name, type

e_tarn_policy_pfx_list_type tarn_get_pfx_list_type_from_policy_type(uint32_t policy_type);

// 17, 12, 2.
int tarn_config_pfx_list_add(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type);
int tarn_config_pfx_list_change(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type);
int tarn_config_pfx_list_delete(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type);
t_tarn_pfx_list *tarn_pfx_list_find(const t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type);

// A missing list, and a member that is (add) or is not (delete) there, are assertions. 12.
int tarn_config_ip_pfx_add(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type,
                           const confd_ipv4_prefix *p_prefix);
int tarn_config_ip_pfx_delete(t_tarn *p_tarn, const char *name, e_tarn_policy_pfx_list_type type,
                              const confd_ipv4_prefix *p_prefix);

// Count a use by a context, and give one back: 0 also when the list has gone.
int tarn_config_add_pfx_list_to_policy(t_tarn *p_tarn, const char *pfx_list_name, t_tarn_policy *p_policy,
                                       t_tarn_policy_vpn_list *p_policy_vpn_list);
int tarn_config_remove_pfx_list_from_policy(t_tarn *p_tarn, const char *pfx_list_name,
                                            t_tarn_policy *p_policy,
                                            t_tarn_policy_vpn_list *p_policy_vpn_list);

void tarn_config_pfx_list_destroy(t_tarn *p_tarn);  // frees all, tells nobody
