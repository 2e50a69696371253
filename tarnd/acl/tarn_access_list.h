// Access lists: rule tables of one address family, bound to interfaces in one direction.
//
// A list owns its rules, its bindings and its program, and belongs to no VPN list. Rules hold counted
// references to prefix lists, application lists, policers, mirrors and counters, and give them back when they
// go. Configuration only marks a list; the pass compiles it and tells all of its bindings
// (tarn_intf_config.h). Bindings themselves are told at once. Main thread only.
//
// filter_id shows what FTM was told last. It outlives the program of a list that has lost its rules: that id
// is withdrawn once more at the next change, and until then FTM's replay and new bindings announce it, even
// when the slot has gone to another program.
#pragma once

#include "common/dll.h"
#include "platform/avl/avl.h"
#include "tarnd/config/tarn_policy.h"

#include <cstddef>
#include <cstdint>

struct t_tarn_config_action;
struct t_tarn_program_hdr;
struct t_tarn_ruletable;

enum e_tarn_af_type : uint32_t {
    TARN_AF_TYPE_IPV4 = 0,
    TARN_AF_TYPE_IPV6 = 1,
};

struct t_tarn_access_list_key {
    char name[TARN_NAME_SIZE];
    e_tarn_af_type af_type;
};

struct t_tarn_access_list {
    avl_node_t avl_node;  // in the tree of its family
    t_tarn_access_list_key key;
    uint8_t added;                         // since the last pass
    uint8_t changed;                       // since the last pass
    t_tarn_ruletable *p_table;             // during compilation only
    t_tarn_program_hdr *p_program;         // in filter memory, or null
    t_tarn_config_action *default_action;  // owned
    int filter_id;           // -1: never compiled; num_filters: waiting for memory; else the program's slot
    avl_tree_t intf_db;      // t_tarn_intf
    avl_tree_t pfx_list_db;  // t_tarn_access_pfx_ctx
    avl_tree_t rule_db;      // t_tarn_config_rule
    avl_tree_t counter_db;   // t_tarn_config_counter_ref
    avl_tree_t class_db;
    avl_tree_t policer_db;       // t_tarn_policer_config through policy_avl_node
    avl_tree_t dpi_app_list_db;  // t_tarn_dpi_app_ctx
    t_dll rule_list;             // the same rules, ascending
};

// 32 characters and a terminator; a name may fill it.
inline constexpr size_t TARN_INTF_NAME_SIZE = 33;

struct t_tarn_intf_key {
    char name[TARN_INTF_NAME_SIZE];
    uint8_t direction;  // 1 in, 2 out
};

struct t_tarn_intf {
    avl_node_t avl_node;
    t_tarn_intf_key key;
    uint64_t vpn_id;
};

struct t_tarn_acl_bind_param {
    uint64_t vpn_id;
    const char *intf_name;
    uint8_t direction;
};

int tarn_access_list_key_cmp(const void *p_key, const void *p_object);  // name length, name, family
int tarn_intf_key_cmp(const void *p_key, const void *p_object);         // name, direction
