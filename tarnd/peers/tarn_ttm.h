// The channel to the TLOC table manager (TTM), and the TLOCs that it announces.
//
// Rules may name transport locators. tloc_db has a record for each one that TTM has announced or that a rule
// names; when one changes that rules name, their policies are marked and a pass runs. A connection lost
// changes nothing: the table stays until TTM's next announcements.
#pragma once

#include "common/ip_util.h"
#include "platform/avl/avl.h"

#include <cstdint>

struct t_tarn;
struct t_tarn_config_rule;
struct t_ttm_tloc_msg;

struct t_tarn_tloc {
    avl_node_t avl_node;
    t_tloc_id tloc;  // key. The IPv4 address stands in network order here
    t_tloc_index tloc_index;
    uint32_t preference;
    uint32_t weight;
    uint8_t tloc_status;  // e_ttm_tloc_status
    uint8_t resolved;     // TTM says that it exists
    uint8_t local;
    avl_tree_t rule_ctx_db;  // t_tarn_tloc_rule_ctx: rules that name it
};

// In a TLOC: a rule that names it.
struct t_tarn_tloc_rule_ctx {
    avl_node_t ctx_avl_node;
    t_tarn_config_rule *p_rule;
    uint32_t ref_count;
};

// In a rule: a TLOC that it names.
struct t_tarn_config_rule_tloc_ctx {
    avl_node_t ctx_avl_node;
    t_tarn_tloc *p_tloc;
    uint32_t ref_count;
};

int tarn_tloc_key_cmp(const void *p_key, const void *p_object);       // TLOC_CMP
int tarn_rule_tloc_ctx_cmp(const void *p_key, const void *p_object);  // TLOC_CMP of the two p_tloc
int tarn_tloc_rule_ctx_cmp(const void *p_key, const void *p_object);  // rule id, policy type, names

// 12 without memory. Makes tloc_db, too.
int tarn_ttm_init(t_tarn *p_tarn);
int tarn_ttm_destroy(t_tarn *p_tarn);

// What TTM announces and withdraws. 74 for a TLOC that isn't IPv4, 12.
int tarn_tloc_add(t_tarn *p_tarn, const t_ttm_tloc_msg *p_tloc_msg);
int tarn_tloc_delete(t_tarn *p_tarn, const t_ttm_tloc_msg *p_tloc_msg);

// Marks the owners of one rule; a step of avl_foreach over rule_ctx_db with the t_tarn as arg1.
int tarn_process_tloc_change(void *p_ctx, void *arg1, void *arg2);

// A rule names a TLOC, or one of its TLOCs no longer: counts on both sides. take makes the record if it isn't
// known yet, and gives null without memory; give frees one that is unresolved and named by no rule.
t_tarn_tloc *tarn_tloc_take(t_tarn *p_tarn, const t_tloc_id *p_tloc, t_tarn_config_rule *p_rule);
void tarn_tloc_give(t_tarn *p_tarn, t_tarn_tloc *p_tloc, t_tarn_config_rule *p_rule);
