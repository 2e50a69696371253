// Zones, the VPNs in them, and pairs of zones with the zone-based policy between them.
//
// Zones and their VPNs take effect at once: the forwarding plane's table of VPNs is kept entry by entry.
// Pairs only ask for a rebuild (process_zbf_config), which the pass carries out last, when the filters of all
// policies stand: the table of pairs is wiped and built again in the order of the pairs' names. A pair names
// its zones and policy; whether they exist shows only then.
//
// A zone's id is a running number that no later zone gets again, so a pair record left over from a deleted
// zone matches nothing. A pair's id comes with the configuration and comes back in statistics. Neither table
// refuses a record for want of sense: two pairs of the same zones make two records, and the one later in name
// order is found first.
//
// Operations give 0 or a system error number: 74 for a null argument, 2 for what is not there, 17 for what is
// there already, 12 without memory. Names are cut to 32 characters. Main thread only.
#pragma once

#include "fp_api/fp_filter_action.h"
#include "platform/avl/avl.h"
#include "platform/confd/confd_lib.h"

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

struct t_tarn;

inline constexpr size_t TARN_ZONE_NAME_SIZE = 33;  // with the terminator

struct t_tarn_zone_key {
    char name[TARN_ZONE_NAME_SIZE];
};

struct t_tarn_zone {
    avl_node_t avl_node;  // in zone_db of t_tarn
    t_tarn_zone_key key;
    uint16_t id;           // the first zone has 1
    avl_tree_t vpn_id_db;  // t_tarn_zone_vpn
};

struct t_tarn_zone_vpn_key {
    uint32_t vpn_id;  // the forwarding plane knows the low 16 bits
};

struct t_tarn_zone_vpn {
    avl_node_t avl_node;
    t_tarn_zone_vpn_key key;
};

struct t_tarn_zone_pair {
    avl_node_t avl_node;  // in zone_pair_db of t_tarn
    char zone_pair_name[TARN_ZONE_NAME_SIZE];
    char src_zone[TARN_ZONE_NAME_SIZE];
    char dst_zone[TARN_ZONE_NAME_SIZE];
    char zb_policy_name[TARN_ZONE_NAME_SIZE];  // shorter than a policy's name can be
    uint32_t zb_pair_id;                       // never 0, and never changed
};

// ---- Orders ----

int tarn_zone_key_cmp(const void *p_key, const void *p_object);       // name
int tarn_zone_pair_key_cmp(const void *p_key, const void *p_object);  // name
// By the sign of the difference in 32 bits, so that VPNs 2^31 or more apart order the other way round.
int tarn_zone_vpn_id_key_cmp(const void *p_key, const void *p_object);

// ---- Zones ----

// Switches zones on in the forwarding plane.
int tarn_config_zone_add(t_tarn *p_tarn, const char *zone_name);
// With its VPNs. The last zone switches zones off. Records of pairs stay until the next rebuild.
int tarn_config_zone_delete(t_tarn *p_tarn, const char *zone_name);

// 0 also when the forwarding plane has no room for the VPN or knows nothing of it: that is logged.
int tarn_config_zone_vpn_add(t_tarn *p_tarn, const char *zone_name, uint32_t vpn_id);
int tarn_config_zone_vpn_delete(t_tarn *p_tarn, const char *zone_name, uint32_t vpn_id);

// ---- Pairs of zones ----

// 74 also for a pair_id of 0.
int tarn_config_zone_pair_create(t_tarn *p_tarn, const char *zone_pair_name, const char *src_zone,
                                 const char *dst_zone, const char *zb_policy_name, uint32_t pair_id);
// Null for a member that stays.
int tarn_config_zone_pair_modify(t_tarn *p_tarn, const char *zone_pair_name, const char *src_zone,
                                 const char *dst_zone, const char *zb_policy_name);
int tarn_config_zone_pair_delete(t_tarn *p_tarn, const char *zone_pair_name);

// ---- Zone-based policies ----

// The default action among a change's values, 0 if it isn't there.
int tarn_config_zbf_policy_get_action(const confd_tag_value_t *p_val, u_int16_t num_values,
                                      e_tarn_filter_action *default_action);

// A change's default action goes into the policy's one context; without the leaf nothing changes. Else the
// status of tarn_policy_vpn_list_change. Flags of policy and rebuild are the caller's.
int tarn_config_zone_based_policy_change(t_tarn *p_tarn, const char *policy_name,
                                         const confd_tag_value_t *p_val, u_int16_t num_values);

// ---- The pass ----

// Makes the record of one pair; a step of avl_foreach with the t_tarn as arg1. 22, which ends the walk, when
// a zone or the policy is missing; 0 when there is no room.
int tarn_process_zone_pair(void *node, void *arg1, void *arg2);

// Rebuilds the table of pairs if anything asked for it; the walk's result. The request is done with either
// way.
int tarn_process_zbf_config(t_tarn *p_tarn);

// All zones and pairs, and their trees. 0.
int tarn_config_zbf_destroy(t_tarn *p_tarn);
