// What the files of rules share: finding a rule's owners, and the steps of the actions that hold something.
//
// An action kind with a read step fills the record from the caller's value; one with an undo step gives back
// what the read step took. A read step that fails has taken nothing.
#pragma once

#include "tarnd/config/tarn_rule.h"

// The owners by name, or 2.
int tarn_rule_owner(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                    const char *vpn_list_name, t_tarn_policy **pp_policy,
                    t_tarn_policy_vpn_list **pp_context);

// The names of a policy rule's context.
t_tarn_vpn_list_key2 tarn_rule_context_key(const t_tarn_config_rule *p_rule);

using f_tarn_action_read = int (*)(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                                   const void *value);
using f_tarn_action_undo = void (*)(t_tarn *p_tarn, t_tarn_config_rule *p_rule,
                                    t_tarn_config_action *p_action);

// Value: a t_tarn_tloc_args. 12.
int tarn_action_tloc_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                          const void *value);
void tarn_action_tloc_undo(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action);

// No value: the sequence's own list, which is made if there is none. 12.
int tarn_action_tloc_list_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                               const void *value);

// Value: the name of a policer or mirror. 22 when there is none; 17 when the rule has that policer already.
int tarn_action_policer_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                             const void *value);
void tarn_action_policer_undo(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action);
int tarn_action_mirror_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                            const void *value);
void tarn_action_mirror_undo(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action);

// Value: the name of a counter.
int tarn_action_counter_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                             const void *value);
void tarn_action_counter_undo(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action);

// Value: the name of a class, which need not exist; a t_tarn_action_sla_class, of which the id is looked up.
int tarn_action_class_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                           const void *value);
int tarn_action_sla_class_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                               const void *value);

// Value: a uint64_t VPN number; its VRF's number is read from the datastore. The datastore's status, or -1.
int tarn_action_nat_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                         const void *value);
