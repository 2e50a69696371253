// The daemon's side of the management adapter: what it subscribes to, which hooks it provides, and the
// callbacks that bring changes into the store.
//
// The adapter makes one subscription for each row of the table at `priority` and, where del_priority is not
// 0, a second one for deletions. Lower numbers run first, and within a number the rows run in table order:
// what is named comes before what names it, and goes after it. All priorities of a commit are worked through
// one by one, and tarn_confd_sub_end_cb runs the pass (tarn_process.h) after each.
//
// Main thread only. The hooks run while an operator's transaction waits for them.
#pragma once

#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_dp.h"

#include <cstdint>
#include <type_traits>

struct t_tarn;

extern t_lconfd_sub_entry tarn_subscription_points[];  // ended by an empty path
extern confd_valpoint_cb tarn_validation_points[];     // by an empty name

// ---- Start and stop ----

// Starts the adapter, whose context goes to p_tarn_lconfd_ctx. 0 also without a connection: the adapter keeps
// trying. Anything else that goes wrong is an assertion.
int tarn_confd_init(t_tarn *p_tarn);
void tarn_confd_destroy(t_tarn *p_tarn);

// ---- Hooks ----

// The adapter's call when it can register: hooks and what the show commands read. 0, 1 when the framework
// refuses one of the latter, or 16 for a hook.
int tarn_confd_register_data_cbs(t_lconfd_context *p_ctx);

// The id that the next zone pair gets. Ids are not given twice in the life of the process.
extern uint32_t g_zone_pair_id_count;

// Puts the count above the ids that the datastore holds. 3 when the datastore can't be asked, or is lost
// meanwhile; 1 when the session does not end well.
int tarn_confd_zone_pair_id_count_init(t_lconfd_context *p_ctx);

// A pair with this id has come from the configuration: the count goes above it. So the first reading of the
// configuration makes up for a count that could not be set up.
void tarn_confd_zone_pair_id_seen(uint32_t pair_id);

// A new zone pair gets its id, a new sequence of a zone-based policy its counter. 0, -1 when the transaction
// can't be detached, else the framework's status.
int tarn_confd_hook_pair_id_create(confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath);
int tarn_confd_hook_zone_policy_seq_create(confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath);

// ---- Callbacks of the subscription table ----
//
// Each stands beside the objects that it makes. Keys come outermost first.

using f_tarn_config_cb = std::remove_pointer_t<lconfd_config_cb_fn>;

// The policy tree.
f_tarn_config_cb tarn_config_policy;
f_tarn_config_cb tarn_config_data_policy;
f_tarn_config_cb tarn_config_data_policy_vpn_list;
f_tarn_config_cb tarn_config_data_policy_seq;
f_tarn_config_cb tarn_config_data_policy_seq_tloc_pref_list;
f_tarn_config_cb tarn_config_app_route_policy;
f_tarn_config_cb tarn_config_app_route_policy_vpn_list;
f_tarn_config_cb tarn_config_app_route_policy_seq;
f_tarn_config_cb tarn_config_zone_based_policy;
f_tarn_config_cb tarn_config_zone_policy_seq;
f_tarn_config_cb tarn_config_policy_vpn_list;
f_tarn_config_cb tarn_config_policy_vpn_id;

// Lists, classes, mirrors, policers.
f_tarn_config_cb tarn_config_class;
f_tarn_config_cb tarn_config_policy_sla_class;
f_tarn_config_cb tarn_config_policy_local_pfx_list;
f_tarn_config_cb tarn_config_policy_local_pfx_list_ip;
f_tarn_config_cb tarn_config_policy_local_app_list;
f_tarn_config_cb tarn_config_policy_local_app_list_app;
f_tarn_config_cb tarn_config_policy_local_app_list_app_family;
f_tarn_config_cb tarn_config_policy_pfx_list;
f_tarn_config_cb tarn_config_policy_pfx_list_ip;
f_tarn_config_cb tarn_config_policy_app_list;
f_tarn_config_cb tarn_config_policy_app_list_app;
f_tarn_config_cb tarn_config_policy_app_list_app_family;
f_tarn_config_cb tarn_config_data_policy_policer;
f_tarn_config_cb tarn_config_access_list_policer;
f_tarn_config_cb tarn_config_mirror_list;
f_tarn_config_cb tarn_config_mirror_list_interface;
f_tarn_config_cb tarn_config_mirror_list_remote_dest;

// Access lists and where they are bound.
f_tarn_config_cb tarn_config_access_list_v4;
f_tarn_config_cb tarn_config_access_list_v4_seq;
f_tarn_config_cb tarn_config_access_list_v6;
f_tarn_config_cb tarn_config_access_list_v6_seq;
f_tarn_config_cb tarn_config_vpn;
f_tarn_config_cb tarn_config_vpn_if;
f_tarn_config_cb tarn_config_intf_access_list_v4;
f_tarn_config_cb tarn_config_intf_access_list_v6;

// Zones.
f_tarn_config_cb tarn_config_zone;
f_tarn_config_cb tarn_config_zone_vpn;
f_tarn_config_cb tarn_config_zone_pair;
