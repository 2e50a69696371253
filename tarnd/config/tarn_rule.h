// Configured rules: match fields and actions of a sequence, as they are kept between compilations.
//
// A rule belongs to a context of a policy or to an access list. Its records outlive each compilation: when
// something that a rule names has changed, the pass rebuilds the fields and actions that came from it and
// turns the rule into a compiler rule anew (tarn_process_rule). A list field is expanded when it is added;
// field_type is what the compiler sees then, f_config_type what the operator configured.
//
// Actions are found by action_type, the tag of the leaf that made them. Main thread only.
#pragma once

#include "common/dll.h"
#include "common/ip_util.h"
#include "fp_api/fp_filter_action.h"
#include "platform/avl/avl.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_mirror.h"
#include "tarnd/config/tarn_policer.h"
#include "tarnd/config/tarn_policy.h"

#include <cstddef>
#include <cstdint>

struct t_tarn_access_list;
struct t_tarn_dpi_app_list;
struct t_tarn_pfx_list;
struct t_tarn_rule;
struct t_tarn_tloc;

// What an operator can match.
enum e_tarn_field_type : uint32_t {
    TARN_FIELD_TYPE_MIN = 0,
    TARN_FIELD_TYPE_PROTOCOL = 1,
    TARN_FIELD_TYPE_SRC_PORT = 2,
    TARN_FIELD_TYPE_DST_PORT = 3,
    TARN_FIELD_TYPE_SRC_ADDR = 4,
    TARN_FIELD_TYPE_DST_ADDR = 5,
    TARN_FIELD_TYPE_SRC_PFX_LIST = 6,
    TARN_FIELD_TYPE_DST_PFX_LIST = 7,
    TARN_FIELD_TYPE_DSCP = 8,
    TARN_FIELD_TYPE_FC = 9,
    TARN_FIELD_TYPE_TCP = 10,
    TARN_FIELD_TYPE_PKT_LEN = 11,
    TARN_FIELD_TYPE_DPI_APP = 12,
    TARN_FIELD_TYPE_DPI_APP_FAMILY = 13,
    TARN_FIELD_TYPE_DPI_APP_LIST = 14,
    TARN_FIELD_TYPE_MATCH_ANY = 15,
    TARN_FIELD_TYPE_TRAFFIC_CLASS = 16,
    TARN_FIELD_TYPE_NEXT_HEADER = 17,
    TARN_FIELD_TYPE_PLP = 18,
    TARN_FIELD_TYPE_DPI_DNS_APP = 19,
    TARN_FIELD_TYPE_DPI_DNS_APP_FAMILY = 20,
    TARN_FIELD_TYPE_DPI_DNS_APP_LIST = 21,
    TARN_FIELD_TYPE_DNS = 22,
    TARN_FIELD_TYPE_MAX = 23,
};

// Tags of the configuration's action leaves: the key of an action in its rule. The model's constant generator
// must give the same values.
enum e_tarn_action_tag : uint32_t {
    TARN_ACTION_TAG_ACTION = 0x369ffb7,  // the base action
    TARN_ACTION_TAG_LOCAL_TLOC_LIST = 0x78cd2b7,
    TARN_ACTION_TAG_COUNT = 0xac83abe,
    TARN_ACTION_TAG_SVC_LOCAL_STRICT = 0xadd765d,
    TARN_ACTION_TAG_PKT_DUP = 0xf474ab8,
    TARN_ACTION_TAG_NAT_VPN = 0x19c134f9,
    TARN_ACTION_TAG_REDIRECT_DNS = 0x22cdcc44,
    TARN_ACTION_TAG_BACKUP_PREFERRED_COLOR = 0x23e66386,
    TARN_ACTION_TAG_LOSS_PROTECT = 0x24c9f321,
    TARN_ACTION_TAG_CFLOWD = 0x2bf83993,
    TARN_ACTION_TAG_TLOC = 0x33c074ce,
    TARN_ACTION_TAG_TLOC_COLOR_ENCAP = 0x3da6fd46,
    TARN_ACTION_TAG_DSCP = 0x42a50984,
    TARN_ACTION_TAG_LOG = 0x4ca57cf4,
    TARN_ACTION_TAG_FALLBACK = 0x5023aaed,
    TARN_ACTION_TAG_SLA_CLASS = 0x58223d85,
    TARN_ACTION_TAG_POLICER = 0x58e2217b,
    TARN_ACTION_TAG_TRAFFIC_CLASS = 0x63457662,
    TARN_ACTION_TAG_MIRROR = 0x65975b28,
    TARN_ACTION_TAG_CLASS = 0x6854f46f,
    TARN_ACTION_TAG_SERVICE = 0x6ccfcce4,
    TARN_ACTION_TAG_TCP_OPTIMIZATION = 0x6f889001,
    TARN_ACTION_TAG_NEXT_HOP = 0x70a1c5a8,
    TARN_ACTION_TAG_NAT_POOL = 0x7273b107,
    TARN_ACTION_TAG_TLOC_LIST = 0x72d28bfe,
    TARN_ACTION_TAG_SSL_OPTIMIZATION = 0x7c9e7c08,
    TARN_ACTION_TAG_SVC_LOCAL = 0x7ef235bf,
};

struct t_tarn_config_rule_key {
    uint32_t id;                // the sequence number; the tree's sole key
    char name[TARN_NAME_SIZE];  // of the VPN list, or of the access list
};

struct t_tarn_config_rule {
    avl_node_t avl_node;  // in rule_db of the context or of the access list
    t_dlnode dlnode;      // in rule_list
    t_tarn_config_rule_key key;
    t_dll field_list;                  // t_tarn_config_field, in order of arrival
    t_dll action_list;                 // t_tarn_config_action, the base action first
    t_tarn_policy *policy;             // owner, or null
    t_tarn_policy_vpn_list *vpn_list;  // owner, or null
    t_tarn_access_list *access_list;   // owner, or null
    avl_tree_t tloc_ctx_db;            // t_tarn_config_rule_tloc_ctx
    uint16_t rule_vpn_id;              // VPN that the action names, for its TLOCs; 0 if none
};

struct t_tarn_prefix {
    char prefix_str[4];  // IPv4, network order
    int prefix_len;      // bits
};

struct t_tarn_range {
    int min_val;
    int max_val;
};

struct t_tarn_config_field {
    t_dlnode dlnode;
    e_tarn_field_type field_type;
    e_tarn_field_type f_config_type;
    char name[TARN_NAME_SIZE];  // of the list that the field came from
    union {
        t_tarn_prefix pfx;
        t_tarn_range range;
    };
};
static_assert(offsetof(t_tarn_config_field, dlnode) == 0);

struct t_tarn_tloc_config {
    uint32_t vpn_label;
    uint32_t preference;
    uint16_t vpn_id;
    t_tarn_tloc *tloc;
};

struct t_tarn_tloc_color_encap {
    uint32_t color;  // masks: bit n stands for value n
    uint32_t encap;
};

struct t_tarn_action_sla_class {
    char name[TARN_CLASS_NAME_SIZE];
    uint8_t id;
    uint8_t strict;
    uint32_t preferred_color;  // mask
};

struct t_tarn_local_tloc_list {
    uint32_t color_mask;
    uint32_t encap_mask;
    uint8_t restrict1;
};

inline constexpr uint32_t TARN_TLOC_LIST_MAX = 16;  // elements of a TLOC list that an action holds

struct t_tarn_config_action {
    t_dlnode dlnode;
    uint32_t action;         // verdict of the base action, 0 in all others
    uint32_t fwding_action;  // e_tarn_filter_action: which member counts; 0 for the base action
    uint32_t action_type;    // e_tarn_action_tag
    uint32_t num_tlocs;      // valid elements of tloc_config in a TLOC list
    union {
        t_tarn_tloc_color_encap tloc_color_encap;
        t_tarn_tloc_config tloc_config[TARN_TLOC_LIST_MAX];
        t_tarn_policer_config policer;
        t_tarn_mirror_config mirror_config;
        char counter[TARN_NAME_SIZE];
        t_tarn_class fc;
        t_ipaddr nh_ip_addr;
        uint16_t nat_vrid;
        t_tarn_action_sla_class sla_class;
        uint8_t dscp;
        uint8_t svc_type;
        uint32_t nat_pool_id;
        uint32_t backup_preferred_color;
        uint8_t traffic_class;
        t_ipaddr redirect_dns_nh_addr;
        t_tarn_local_tloc_list local_tloc_list;
    };
};
static_assert(sizeof(t_tarn_config_action) == 688);
static_assert(offsetof(t_tarn_config_action, dlnode) == 0);
static_assert(offsetof(t_tarn_config_action, policer) == 32);

// A counter name in use by a context or an access list.
struct t_tarn_config_counter_ref {
    avl_node_t avl_node;
    char name[TARN_NAME_SIZE];
    uint32_t ref_count;
};

// What a TLOC action is made from.
struct t_tarn_tloc_args {
    t_tloc_id tloc;
    uint32_t vpn_label;
};

int tarn_rule_key_cmp(const void *p_key, const void *p_object);  // key.id, unsigned
int tarn_counter_cmp(const void *p_key, const void *p_object);   // name length, name

// ---- Rules of policies: 2 when policy, context or rule is absent, 17, 12 ----

// The new rule matches everything until fields narrow it. pp_rule may be null.
int tarn_config_rule_add(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                         const char *vpn_list_name, uint32_t rule_id, t_tarn_config_rule **pp_rule);
int tarn_config_rule_delete(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                            const char *vpn_list_name, uint32_t rule_id);
int tarn_config_rule_lookup(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                            const char *vpn_list_name, uint32_t rule_id, t_tarn_config_rule **pp_rule);

// ---- Fields of any rule ----

// f_data by f_type: uint32_t (protocol, DSCP, TCP, traffic class, next header, PLP, DNS); t_tarn_range
// (ports, packet length); confd_ipv4_prefix (addresses; length 0 adds nothing); t_tarn_pfx_list_key; the
// class's name (FC); t_tarn_dpi_app_list_key; anything not null (match-any). 74 for null or a type out of
// range, 2 for a missing list, 22 for a missing class or a type that only expansion makes, 12.
int tarn_config_field_add(t_tarn *p_tarn, e_tarn_field_type f_type, const void *f_data,
                          t_tarn_config_rule *p_rule);

// Deletes the fields that were configured as f_type. present, if given, is set to 1 if there was one; ptr, if
// given too, takes the list name of the last one, 128 bytes.
int tarn_config_field_delete(t_tarn *p_tarn, e_tarn_field_type f_type, t_tarn_config_rule *p_rule,
                             int *present, char *ptr);
void tarn_config_field_delete_all(t_tarn *p_tarn, t_tarn_config_rule *p_rule);

// Expand a list into fields. dns: 1 for the applications that DNS answers named.
int tarn_config_pfx_list_fields(t_tarn *p_tarn, e_tarn_field_type f_type, t_tarn_pfx_list *p_pfx_list,
                                t_tarn_config_rule *p_rule);
int tarn_config_app_list_fields(e_tarn_field_type f_type, t_tarn_dpi_app_list *p_app_list,
                                t_tarn_config_rule *p_rule, int dns);

// ---- Actions of policies' rules ----

// action: the value in the form that the tag calls for (see the table in tarn_rule_action.cc). 22 when it
// names what does not exist; an unknown tag is an assertion. pp_action may be null.
int tarn_config_action_add(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                           const char *vpn_list_name, uint32_t rule_id, uint32_t action_type,
                           const void *action, t_tarn_config_action **pp_action);

// 0 also when the rule has no such action.
int tarn_config_action_delete(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                              const char *vpn_list_name, uint32_t rule_id, uint32_t action_type);
int tarn_config_action_find(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                            const char *vpn_list_name, uint32_t rule_id, uint32_t action_type,
                            t_tarn_config_action **pp_ret);
void tarn_config_action_delete_all(t_tarn *p_tarn, t_tarn_config_rule *p_rule);

// The TLOCs of a TLOC-list action: give them back (num_tlocs becomes 0), and take the elements of the
// sequence's list anew, at most 16, highest preference first. The second gives 12 without memory.
void tarn_action_tloc_list_release(t_tarn *p_tarn, t_tarn_config_rule *p_rule,
                                   t_tarn_config_action *p_action);
int tarn_action_tloc_list_take(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action);

// ---- From a configured rule to a compiler rule ----

// Fills the empty rule, which stands in a table of the context's, with fields and the action record.
int tarn_process_rule(t_tarn *p_tarn, t_tarn_rule *p_rule, const t_tarn_config_rule *p_config_rule);

// An SLA class in a slot, which is zeroed.
void tarn_sla_class_fill(t_tarn_sla_class_info *p_info, const t_tarn_action_sla_class *p_sla_class);

// ---- Values of the data model ----

uint32_t tarn_yang_tcp_match_to_filter_tcp_match(uint32_t bits);
uint32_t tarn_yang_plp_match_to_filter_plp_match(uint32_t value);
uint32_t tarn_yang_dns_match_to_filter_dns_match(uint32_t value);
e_tarn_policy_dir tarn_yang_data_policy_direction_to_filter_direction(uint32_t value);
uint32_t tarn_yang_loss_protect_to_action(uint32_t value);
uint32_t tarn_yang_enum_to_filter_mask(uint32_t enum_val);
uint32_t tarn_yang_action_to_filter_action(uint32_t value);  // an enumerator or a tag; 0 if unknown
