// Sequences of access lists: fields and actions, leaf by leaf.
//
// A change undoes what the rule has of a leaf before it adds the new value. Some tags mean a match or an
// action by the container that they stand in. What the rule can't take is an assertion: the data model has
// checked it. So is a name that leads nowhere, since lists, mirrors, policers and classes come before access
// lists; an old one may be gone by now and is not missed.
#include "common/lum_log.h"
#include "fp_api/fp_tables.h"
#include "lconfd/lconfd_util.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

static_assert(LUMORA_TAG_BASE_ACTION == TARN_ACTION_TAG_ACTION);
static_assert(LUMORA_TAG_COUNT == TARN_ACTION_TAG_COUNT);
static_assert(LUMORA_TAG_MIRROR == TARN_ACTION_TAG_MIRROR);
static_assert(LUMORA_TAG_POLICER == TARN_ACTION_TAG_POLICER);
static_assert(LUMORA_TAG_CLASS == TARN_ACTION_TAG_CLASS);
static_assert(LUMORA_TAG_LOG == TARN_ACTION_TAG_LOG);
static_assert(LUMORA_TAG_DSCP == TARN_ACTION_TAG_DSCP);
static_assert(LUMORA_TAG_TRAFFIC_CLASS == TARN_ACTION_TAG_TRAFFIC_CLASS);
static_assert(LUMORA_TAG_NEXT_HOP == TARN_ACTION_TAG_NEXT_HOP);

namespace {

// A change of one sequence.
struct t_change {
    t_tarn *p_tarn;
    t_tarn_config_rule *p_rule;
    bool created;
    tarn_confd_scope scope;

    const t_tarn_access_list_key &list() const
    {
        return p_rule->access_list->key;
    }
};

// A leaf that is a match; its elements have the type when it is a leaf-list.
struct t_match_leaf {
    uint32_t tag;
    e_tarn_field_type field;
    confd_vtype type;
    bool is_list;
};

}  // namespace

static const t_match_leaf match_leaves[] = {
    {LUMORA_TAG_PROTOCOL, TARN_FIELD_TYPE_PROTOCOL, C_UINT8, true},
    {LUMORA_TAG_SOURCE_PORT, TARN_FIELD_TYPE_SRC_PORT, C_BUF, true},
    {LUMORA_TAG_DESTINATION_PORT, TARN_FIELD_TYPE_DST_PORT, C_BUF, true},
    {LUMORA_TAG_PACKET_LENGTH, TARN_FIELD_TYPE_PKT_LEN, C_BUF, true},
    {LUMORA_TAG_SOURCE_IP, TARN_FIELD_TYPE_SRC_ADDR, C_IPV4PREFIX, true},
    {LUMORA_TAG_DESTINATION_IP, TARN_FIELD_TYPE_DST_ADDR, C_IPV4PREFIX, true},
    {LUMORA_TAG_SOURCE_DATA_PREFIX_LIST, TARN_FIELD_TYPE_SRC_PFX_LIST, C_BUF, false},
    {LUMORA_TAG_DESTINATION_DATA_PREFIX_LIST, TARN_FIELD_TYPE_DST_PFX_LIST, C_BUF, false},
    {LUMORA_TAG_DSCP, TARN_FIELD_TYPE_DSCP, C_UINT8, true},
    {LUMORA_TAG_TRAFFIC_CLASS, TARN_FIELD_TYPE_TRAFFIC_CLASS, C_UINT8, true},
    {LUMORA_TAG_NEXT_HEADER, TARN_FIELD_TYPE_NEXT_HEADER, C_UINT8, true},
    {LUMORA_TAG_PLP, TARN_FIELD_TYPE_PLP, C_ENUM_VALUE, false},
    {LUMORA_TAG_TCP, TARN_FIELD_TYPE_TCP, C_BIT32, false},
    {LUMORA_TAG_DNS, TARN_FIELD_TYPE_DNS, C_ENUM_VALUE, false},
    {LUMORA_TAG_APP_LIST, TARN_FIELD_TYPE_DPI_APP_LIST, C_BUF, false},
    {LUMORA_TAG_DNS_APP_LIST, TARN_FIELD_TYPE_DPI_DNS_APP_LIST, C_BUF, false},
    {LUMORA_TAG_CLASS, TARN_FIELD_TYPE_FC, C_BUF, false},
};

static const t_match_leaf *find_match_leaf(uint32_t tag)
{
    for (const t_match_leaf &leaf : match_leaves)
        if (leaf.tag == tag)
            return &leaf;
    return nullptr;
}

static void check(const t_change &change, int status, uint32_t tag)
{
    TARN_CONFD_CHECK(status, "Failed to change leaf %#x of rule (%s - %d, %d) err(%d)\n", tag,
                     change.list().name, static_cast<int>(change.list().af_type),
                     static_cast<int>(change.p_rule->key.id), status);
}

// ---- Fields ----

static int add_field(const t_change &change, e_tarn_field_type field, const void *p_data)
{
    return tarn_config_field_add(change.p_tarn, field, p_data, change.p_rule);
}

static int add_number(const t_change &change, e_tarn_field_type field, uint32_t number)
{
    return add_field(change, field, &number);
}

// One number is a range of equal ends.
static int add_range(const t_change &change, e_tarn_field_type field, const confd_value_t *p_value)
{
    t_tarn_confd_name text(p_value);
    unsigned min = 0;
    unsigned max = 0;
    int count = sscanf(text, "%u-%u", &min, &max);  // NOLINT(cert-err34-c): the model bounds the numbers
    LUM_ASSERT(count >= 1, "count >= 1");
    t_tarn_range range = {static_cast<int>(min), static_cast<int>(count == 2 ? max : min)};
    return add_field(change, field, &range);
}

static int add_pfx_list(const t_change &change, e_tarn_field_type field, const confd_value_t *p_value)
{
    t_tarn_confd_name name(p_value);
    t_tarn_pfx_list_key key = {};
    memcpy(key.name, name.text, sizeof(key.name));
    key.pfx_list_type = TARN_POLICY_PFX_LIST_TYPE_LOCAL;
    return add_field(change, field, &key);
}

// The list's count of its users keeps two peculiarities: it finds lists of IPv4 only, and in a change it
// looks for a policy where there is none. The rule gets its fields all the same, lest it match more than was
// asked for.
static int add_app_list(const t_change &change, e_tarn_field_type field, const confd_value_t *p_value)
{
    t_tarn_confd_name name(p_value);
    const char *user = change.list().name;
    e_tarn_dpi_app_list_loc_type location =
        change.created ? TARN_DPI_KEY_LOC_LOCAL : TARN_DPI_KEY_LOC_KEELSON;
    int status = tarn_config_add_app_list_to_policy(change.p_tarn, name, location, 0, user, user);
    if (status != 0)
        TARN_LOG("Could not add app list %s to access list %s, err(%d)", name.text, user, status);
    t_tarn_dpi_app_list_key key = {};
    memcpy(key.name, name.text, sizeof(key.name));
    key.location = TARN_DPI_KEY_LOC_LOCAL;
    return add_field(change, field, &key);
}

static int add_match(const t_change &change, e_tarn_field_type field, const confd_value_t *p_value)
{
    switch (field) {
    case TARN_FIELD_TYPE_SRC_PORT:
    case TARN_FIELD_TYPE_DST_PORT:
    case TARN_FIELD_TYPE_PKT_LEN:
        return add_range(change, field, p_value);
    case TARN_FIELD_TYPE_SRC_ADDR:
    case TARN_FIELD_TYPE_DST_ADDR:
        return add_field(change, field, &p_value->val.ipv4prefix);
    case TARN_FIELD_TYPE_SRC_PFX_LIST:
    case TARN_FIELD_TYPE_DST_PFX_LIST:
        return add_pfx_list(change, field, p_value);
    case TARN_FIELD_TYPE_DPI_APP_LIST:
    case TARN_FIELD_TYPE_DPI_DNS_APP_LIST:
        return add_app_list(change, field, p_value);
    case TARN_FIELD_TYPE_FC:
        return add_field(change, field, t_tarn_confd_name(p_value).text);
    case TARN_FIELD_TYPE_PLP:
        return add_number(
            change, field,
            tarn_yang_plp_match_to_filter_plp_match(static_cast<uint32_t>(p_value->val.enumvalue)));
    case TARN_FIELD_TYPE_DNS:
        return add_number(
            change, field,
            tarn_yang_dns_match_to_filter_dns_match(static_cast<uint32_t>(p_value->val.enumvalue)));
    case TARN_FIELD_TYPE_TCP:
        return add_number(change, field, tarn_yang_tcp_match_to_filter_tcp_match(p_value->val.b32));
    default:
        return add_number(change, field, p_value->val.u8);
    }
}

// The forwarding plane caches no verdicts while rules look at these. Deleted rules are not counted down.
static void count_uncacheable(e_tarn_field_type field)
{
    if (field == TARN_FIELD_TYPE_PKT_LEN)
        g_fp_global_ctrl->cft_policy_cache_disable++;
    else if (field == TARN_FIELD_TYPE_DSCP)
        g_fp_global_ctrl->cft_policy_dscp_disable++;
}

static void add_match_value(const t_change &change, const t_match_leaf &leaf, const confd_value_t *p_value)
{
    LUM_ASSERT(p_value->type == leaf.type, "(p_value)->type == leaf.type");
    check(change, add_match(change, leaf.field, p_value), leaf.tag);
    count_uncacheable(leaf.field);
}

static void delete_match(const t_change &change, e_tarn_field_type field)
{
    int present = 0;
    char list_name[TARN_NAME_SIZE] = "";
    tarn_config_field_delete(change.p_tarn, field, change.p_rule, &present, list_name);
    if (!present || (field != TARN_FIELD_TYPE_DPI_APP_LIST && field != TARN_FIELD_TYPE_DPI_DNS_APP_LIST))
        return;
    const char *user = change.list().name;
    tarn_config_remove_app_list_from_policy(change.p_tarn, list_name, TARN_DPI_KEY_LOC_LOCAL, 0, user, user);
}

static void take_match(const t_change &change, const t_match_leaf &leaf, const confd_value_t *p_value)
{
    if (!change.created)
        delete_match(change, leaf.field);
    if (p_value->type == C_NOEXISTS)
        return;
    if (!leaf.is_list) {
        add_match_value(change, leaf, p_value);
        return;
    }
    for (const confd_value_t &element : tarn_confd_list(p_value))
        add_match_value(change, leaf, &element);
}

// ---- Actions ----

static int add_action(const t_change &change, uint32_t tag, const void *value)
{
    return tarn_intf_config_action_add(change.p_tarn, change.list().name, change.list().af_type,
                                       change.p_rule->key.id, tag, value, nullptr);
}

static bool has_action(const t_tarn_config_rule *p_rule, uint32_t tag)
{
    for (t_dlnode *p_node = p_rule->action_list.p_head; p_node != nullptr; p_node = p_node->p_next)
        if (DLL_RECORD(p_node, t_tarn_config_action, dlnode)->action_type == tag)
            return true;
    return false;
}

// Only here is the count of DSCP actions taken back.
static void delete_action(const t_change &change, uint32_t tag)
{
    if (tag == LUMORA_TAG_DSCP && has_action(change.p_rule, tag))
        g_fp_global_ctrl->cft_policy_dscp_disable--;
    int status = tarn_intf_config_action_delete(change.p_tarn, change.list().name, change.list().af_type,
                                                change.p_rule->key.id, tag);
    check(change, status, tag);
}

static int add_verdict(const t_change &change, uint32_t tag, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_ENUM_VALUE);
    uint32_t action = tarn_yang_action_to_filter_action(static_cast<uint32_t>(p_value->val.enumvalue));
    return add_action(change, tag, &action);
}

static int add_next_hop(const t_change &change, uint32_t tag, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_BUF);
    t_ipaddr address = {};
    lconfd_ip_addr_str_to_t_ipaddr(t_tarn_confd_name(p_value), &address);
    return add_action(change, tag, &address);
}

static int add_action_value(const t_change &change, uint32_t tag, const confd_value_t *p_value)
{
    switch (tag) {
    case LUMORA_TAG_BASE_ACTION:
        return add_verdict(change, tag, p_value);
    case LUMORA_TAG_LOG:
        return add_action(change, tag, nullptr);
    case LUMORA_TAG_NEXT_HOP:
        return add_next_hop(change, tag, p_value);
    case LUMORA_TAG_DSCP:
    case LUMORA_TAG_TRAFFIC_CLASS:
        TARN_CONFD_TYPE(p_value, C_UINT8);
        return add_action(change, tag, &p_value->val.u8);
    default:
        TARN_CONFD_TYPE(p_value, C_BUF);
        return add_action(change, tag, t_tarn_confd_name(p_value).text);
    }
}

static void take_action(const t_change &change, uint32_t tag, const confd_value_t *p_value)
{
    if (!change.created)
        delete_action(change, tag);
    if (p_value->type == C_NOEXISTS)
        return;
    check(change, add_action_value(change, tag, p_value), tag);
    if (tag == LUMORA_TAG_DSCP)
        g_fp_global_ctrl->cft_policy_dscp_disable++;
}

// ---- Values ----

// An action under `action`, under `match` the class that a packet was given before.
static void take_named(const t_change &change, uint32_t tag, const confd_value_t *p_value)
{
    if (change.scope.inside(LUMORA_TAG_ACTION))
        take_action(change, tag, p_value);
    else if (change.scope.inside(LUMORA_TAG_MATCH))
        take_match(change, *find_match_leaf(LUMORA_TAG_CLASS), p_value);
    else
        check(change, EINVAL, tag);
}

static void take_value(t_change *p_change, const confd_tag_value_t &value)
{
    if (p_change->scope.step(value))
        return;
    uint32_t tag = value.tag.tag;
    bool in_set = p_change->scope.inside(LUMORA_TAG_SET);
    switch (tag) {
    case LUMORA_TAG_COUNT:
    case LUMORA_TAG_MIRROR:
    case LUMORA_TAG_POLICER:
    case LUMORA_TAG_CLASS:
        take_named(*p_change, tag, &value.v);
        return;
    case LUMORA_TAG_BASE_ACTION:
    case LUMORA_TAG_LOG:
    case LUMORA_TAG_NEXT_HOP:
        take_action(*p_change, tag, &value.v);
        return;
    case LUMORA_TAG_DSCP:
    case LUMORA_TAG_TRAFFIC_CLASS:
        if (in_set) {
            take_action(*p_change, tag, &value.v);
            return;
        }
        break;
    default:
        break;
    }
    if (const t_match_leaf *p_leaf = find_match_leaf(tag))
        take_match(*p_change, *p_leaf, &value.v);
}

static void take_values(t_tarn *p_tarn, t_tarn_config_rule *p_rule, bool created, int num_values,
                        const confd_tag_value_t *p_val)
{
    t_change change = {p_tarn, p_rule, created, {}};
    for (const confd_tag_value_t &value : tarn_confd_values(num_values, p_val))
        take_value(&change, value);
}

// ---- Sequences ----

static int create_rule(t_tarn *p_tarn, const t_tarn_access_list_key &list, uint16_t sequence, int num_values,
                       const confd_tag_value_t *p_val)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_intf_config_rule_add(p_tarn, list.name, list.af_type, sequence, &p_rule);
    if (status == 0)
        take_values(p_tarn, p_rule, true, num_values, p_val);
    return status;
}

static int modify_rule(t_tarn *p_tarn, const t_tarn_access_list_key &list, uint16_t sequence, int num_values,
                       const confd_tag_value_t *p_val)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_intf_config_rule_lookup(p_tarn, list.name, list.af_type, sequence, &p_rule);
    if (status != 0)
        return status;
    p_rule->access_list->changed = 1;
    take_values(p_tarn, p_rule, false, num_values, p_val);
    return 0;
}

static void log_failure(const char *what, const t_tarn_access_list_key &list, uint16_t sequence, int status)
{
    if (status != 0)
        TARN_LOG("Failed to %s rule (%s - %d, %d) err(%d)\n", what, list.name, static_cast<int>(list.af_type),
                 sequence, status);
}

static void delete_rule(t_tarn *p_tarn, const t_tarn_access_list_key &list, uint16_t sequence)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_intf_config_rule_lookup(p_tarn, list.name, list.af_type, sequence, &p_rule);
    log_failure("change", list, sequence, status);
    if (status == 0)
        log_failure("delete", list, sequence,
                    tarn_intf_config_rule_delete(p_tarn, list.name, list.af_type, sequence));
}

static void tarn_config_access_list_seq(e_tarn_af_type af_type, t_lconfd_sub_entry *p_lconfd_sub,
                                        confd_iter_op oper, int num_keys, const confd_value_t *p_key,
                                        int num_values, const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key, C_BUF);
    TARN_CONFD_TYPE(p_key + 1, C_UINT16);
    t_tarn_access_list_key list = {};
    memcpy(list.name, t_tarn_confd_name(p_key).text, sizeof(list.name));
    list.af_type = af_type;
    uint16_t sequence = p_key[1].val.u16;
    TARN_TRACE(TARN_DEBUG_CONFIG, "Access list: %s, seq:%d, oper:%d, num_values:%d", list.name, sequence,
               oper, num_values);
    if (oper == MOP_DELETED)
        delete_rule(p_tarn, list, sequence);
    else if (oper == MOP_CREATED)
        log_failure("add", list, sequence, create_rule(p_tarn, list, sequence, num_values, p_val));
    else if (oper == MOP_MODIFIED)
        log_failure("change", list, sequence, modify_rule(p_tarn, list, sequence, num_values, p_val));
}

int tarn_config_access_list_v4_seq(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                   const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    tarn_config_access_list_seq(TARN_AF_TYPE_IPV4, p_lconfd_sub, oper, num_keys, p_key, num_values, p_val);
    tarn_confd_count_policy_change();
    return 0;
}

// Does not tell the forwarding plane, unlike IPv4's.
int tarn_config_access_list_v6_seq(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                   const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    tarn_config_access_list_seq(TARN_AF_TYPE_IPV6, p_lconfd_sub, oper, num_keys, p_key, num_values, p_val);
    return 0;
}
