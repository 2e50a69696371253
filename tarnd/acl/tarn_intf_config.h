// Operations on access lists: the store, bindings to interfaces, rules, and their part of the pass.
//
// Names are cut to 127 characters. An address family other than 0 means IPv6. Operations give 0 or a system
// error number: 74 for a null argument, 2 for what is not there, 17 for what is there already, 12 without
// memory, 22 for an object that an action or a class match names in vain. Main thread only.
#pragma once

#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_rule.h"

#include <cstdint>

struct t_tarn;

// Makes the trees of access lists, mirrors and policers. 0, 74.
int tarn_intf_config_init(t_tarn *p_tarn);

// ---- Lists ----

int tarn_access_list_add(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t default_action);
int tarn_access_list_change(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type,
                            uint32_t default_action);
// pp_access_list may be null.
int tarn_access_list_lookup(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type,
                            t_tarn_access_list **pp_access_list);

// Withdraws the list from its interfaces and frees it. When that can't be told the list stays, and the status
// is tarn_unbind_acl's.
int tarn_access_list_delete(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type);

// ---- Bindings ----

int tarn_access_list_bind(t_tarn *p_tarn, e_tarn_af_type af_type, const char *name,
                          const t_tarn_acl_bind_param *p_param);
// A list that has gone took its bindings along: 0. 2 for no such binding.
int tarn_access_list_unbind(t_tarn *p_tarn, e_tarn_af_type af_type, const char *name,
                            const t_tarn_acl_bind_param *p_param);
// Of all lists of both families. 0.
int tarn_access_list_unbind_from_intf(t_tarn *p_tarn, const char *intf_name);
int tarn_access_list_unbind_from_vpn(t_tarn *p_tarn, uint64_t vpn_id);

// ---- Rules ----

// The new rule matches everything until fields narrow it. pp_rule may be null.
int tarn_intf_config_rule_add(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t sequence,
                              t_tarn_config_rule **pp_rule);
int tarn_intf_config_rule_delete(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t sequence);
int tarn_intf_config_rule_lookup(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t sequence,
                                 t_tarn_config_rule **pp_rule);

// value by tag: uint32_t (base action), uint8_t (DSCP, traffic class), t_ipaddr (next hop), a name (policer,
// mirror, counter, class), nothing (log); another tag is an assertion. The base action becomes the first of
// the rule's actions. pp_action may be null. 17: the rule has that policer.
int tarn_intf_config_action_add(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type, uint32_t sequence,
                                uint32_t tag, const void *value, t_tarn_config_action **pp_action);
// Of the first action with that tag; 0 also when there is none.
int tarn_intf_config_action_delete(t_tarn *p_tarn, const char *name, e_tarn_af_type af_type,
                                   uint32_t sequence, uint32_t tag);

// ---- The pass ----

// Compiles a list that was added or changed, and announces it; a step of avl_foreach with the t_tarn as arg1.
// 12 without memory for the rule table, or tarn_unbind_acl's status. A program that finds no memory is no
// error: the list waits for it.
int tarn_process_access_list(void *p_node, void *arg1, void *arg2);
int tarn_process_access_list_add(t_tarn *p_tarn, t_tarn_access_list *p_access_list);
int tarn_process_access_list_change(t_tarn *p_tarn, t_tarn_access_list *p_access_list);

// ---- Values of the data model ----

uint8_t tarn_yang_direction_to_filter_direction(uint32_t value);
uint32_t tarn_filter_direction_to_yang_direction(uint8_t direction);
