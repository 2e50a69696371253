// Policers: rate limits. Each rule that names one has an instance of its own.
//
// The named policer is in policer_db of t_tarn, the instance inside the rule's action record, linked into the
// owner's policer_db and into the named policer's instance_db. A change of rate, burst or action is written
// into the running programs and compiles nothing.
#pragma once

#include "platform/avl/avl.h"
#include "tarnd/config/tarn_policy.h"

#include <cstddef>
#include <cstdint>

struct t_fp_policer;

enum e_tarn_policy_policer_type : uint32_t {
    TARN_POLICY_POLICER_TYPE_INVALID = 0,
    TARN_POLICY_POLICER_TYPE_LOCAL = 1,
    TARN_POLICY_POLICER_TYPE_KEELSON = 2,
    TARN_POLICY_POLICER_TYPE_MAX = 3,
};

// Which leaves a change delivered.
enum e_tarn_policer_param : uint8_t {
    POLICER_BW = 1,
    POLICER_BURST = 2,
    POLICER_ACTION = 4,
};

struct t_tarn_policer_key {
    char name[TARN_NAME_SIZE];
    e_tarn_policy_policer_type type;
    int sequence_id;  // -1 for a named policer
    int pol_af_type;
    char policy_name[TARN_NAME_SIZE];  // "list_policy" of an instance, empty for a named policer
};

struct t_tarn_policer_config {
    avl_node_t avl_node;           // in policer_db of t_tarn
    avl_node_t policy_avl_node;    // an instance, in its owner's policer_db
    avl_node_t instance_avl_node;  // an instance, in its policer's instance_db
    t_tarn_policer_key key;
    uint8_t bind_type;                // t_tarn_bind_type
    char bind_name[TARN_NAME_SIZE];   // the VPN list or the access list
    char bind_name2[TARN_NAME_SIZE];  // the policy
    uint64_t bandwidth;               // bits per second
    uint32_t burst;                   // bytes
    uint8_t oob_action;               // e_fp_policer_drop_action
    avl_tree_t instance_db;
};
static_assert(sizeof(t_tarn_policer_config) == 656);

// Name length, sequence, name, type, family, policy name.
int tarn_policer_key_cmp(const void *p_key, const void *p_object);

// The configuration's record holds key, bandwidth, burst and oob_action. 74, 17, 12, 2.
int tarn_config_policer_add(t_tarn *p_tarn, const t_tarn_policer_config *p_policer_cfg);
int tarn_config_policer_change(t_tarn *p_tarn, uint8_t params_present,
                               const t_tarn_policer_config *p_policer_cfg);
int tarn_config_policer_delete(t_tarn *p_tarn, const t_tarn_policer_config *p_policer_cfg);
t_tarn_policer_config *tarn_policer_find(const t_tarn *p_tarn, const char *name,
                                         e_tarn_policy_policer_type type);

// A rule's instance, in a record of the caller's: takes rate, burst and action of the named policer and links
// the instance into its owner's policer_db and the policer's instance_db. 17, with nothing linked, when
// either has that key. The second call unlinks it; the record stays the caller's.
int tarn_policer_instance_make(t_tarn_policer_config *p_policer, const t_tarn_policer_key *p_key,
                               avl_tree_t *p_owner_db, t_tarn_policer_config *p_instance);
void tarn_policer_instance_drop(t_tarn *p_tarn, avl_tree_t *p_owner_db, t_tarn_policer_config *p_instance);

// Writes one instance's rate into its running programs; a step of avl_foreach over instance_db with the
// t_tarn as arg1 and the named policer as arg2.
int tarn_config_policer_inst_change(void *p_node, void *arg1, void *arg2);

// rate, burst and oob_action of the forwarding plane's record. The bandwidth must be at least 8 bits per
// second: the data model's limit.
void tarn_policer_fill(t_fp_policer *p_fp_policer, const t_tarn_policer_config *p_policer);

void tarn_config_policer_destroy(t_tarn *p_tarn);  // frees all, tells nobody
