// The pass: from dirty flags to installed filters.
//
// Nothing is compiled while a notification is being read. When it has been worked through, when a TLOC has
// changed, and when filter memory has come free, one pass visits every dirty policy and access list, rebuilds
// what its rules took from lists and classes, compiles one filter a context, and tells the forwarding side.
// Main thread only; of the timers only those of high priority run inside a pass.
#pragma once

#include "tarnd/config/tarn_policy.h"

#include <cstdint>

struct t_tarn_class;
struct t_tarn_sla_class;

// One pass. The first status other than 0 ends it and is returned. A compilation without memory is no error.
int tarn_process_config(t_tarn *p_tarn);

// Steps of avl_foreach with the t_tarn as arg1; the second has the policy as arg2.
int tarn_process_policy(void *p_node, void *arg1, void *arg2);
int tarn_process_policy_vpn_list(void *p_node, void *arg1, void *arg2);

// Makes a context ready to be compiled again: the old filter is unbound and freed, and what its rules took
// from lists, classes, mirrors and TLOCs is taken anew.
int tarn_policy_change(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_policy_vpn_list);

// Mark the contexts whose rules name the class. The SLA class's also write its id into their actions.
void tarn_process_class_change(t_tarn *p_tarn, const t_tarn_class *p_class);
void tarn_process_sla_class_change(t_tarn *p_tarn, const t_tarn_sla_class *p_sla_class, uint8_t sla_class_id);

// Marks the context that a list's record of its users names; whoever is gone is passed over.
void tarn_process_context_change(t_tarn *p_tarn, const t_tarn_vpn_list_key2 *p_key);

// Marks all that waits for filter memory and runs a pass. freed_memory: blocks that have come free.
int tarn_process_oom_policies(t_tarn *p_tarn, int freed_memory);

// After a notification: the pass, then the two knobs. p_lconfd_ctx's module data holds the t_tarn.
struct t_lconfd_context;
void tarn_confd_sub_end_cb(t_lconfd_context *p_lconfd_ctx, int triggered_sub);
