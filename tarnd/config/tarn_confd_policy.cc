// Parsers of the policy tree above its sequences: global settings, policies, contexts, VPN lists.
#include "common/lum_util_text.h"
#include "fp_api/fp_tables.h"
#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/config/tarn_flow.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/filter/tarn_if_octeon_zbf.h"
#include "tarnd/zone/tarn_zbf.h"

#include <cstdio>
#include <optional>

// ---- Settings ----

namespace {

// What a change says of the settings; a leaf that it does not name is left alone.
struct t_settings {
    std::optional<int> app_visibility;
    std::optional<int> flow_visibility;
    std::optional<int32_t> log_frequency;
    std::optional<uint8_t> deny_internet_zone;
};

}  // namespace

static constexpr int32_t default_log_frequency = 1000;  // packets

static int bool_or_false(const confd_value_t *p_value)
{
    if (p_value->type == C_NOEXISTS)
        return 0;
    TARN_CONFD_TYPE(p_value, C_BOOL);
    return p_value->val.boolean;
}

static int32_t frequency_of(const confd_value_t *p_value)
{
    if (p_value->type == C_NOEXISTS)
        return default_log_frequency;
    TARN_CONFD_TYPE(p_value, C_INT32);
    return p_value->val.i32;
}

// The flag stays as it is when the leaf goes.
static std::optional<uint8_t> deny_of(const confd_value_t *p_value)
{
    if (p_value->type == C_NOEXISTS)
        return {};
    TARN_CONFD_TYPE(p_value, C_ENUM_VALUE);
    return static_cast<uint8_t>(p_value->val.enumvalue);
}

static t_settings read_settings(std::span<const confd_tag_value_t> values)
{
    t_settings settings;
    for (const confd_tag_value_t &value : values) {
        switch (value.tag.tag) {
        case LUMORA_TAG_APP_VISIBILITY:
            settings.app_visibility = bool_or_false(&value.v);
            break;
        case LUMORA_TAG_FLOW_VISIBILITY:
            settings.flow_visibility = bool_or_false(&value.v);
            break;
        case LUMORA_TAG_LOG_FREQUENCY:
            settings.log_frequency = frequency_of(&value.v);
            break;
        case LUMORA_TAG_ZONE_TO_NOZONE_INTERNET:
            settings.deny_internet_zone = deny_of(&value.v);
            break;
        default:
            break;
        }
    }
    return settings;
}

// The operation is not looked at: without keys every change is a modification.
int tarn_config_policy(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                       const confd_value_t *, int num_values, const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 0, "num_keys == 0");
    TARN_TRACE(TARN_DEBUG_CONFIG, "Policy: oper:%d, num_values:%d", oper, num_values);
    t_settings settings = read_settings(tarn_confd_values(num_values, p_val));
    if (settings.app_visibility)
        tarn_dpi_config_change(p_tarn, *settings.app_visibility);
    if (settings.flow_visibility)
        tarn_config_flow_change(p_tarn, *settings.flow_visibility);
    if (settings.log_frequency)
        g_fp_filter_log_config->frequency =
            lum_pow2_round_down(static_cast<uint32_t>(*settings.log_frequency));
    if (settings.deny_internet_zone) {
        if (*settings.deny_internet_zone != 0)
            fp_deny_internet_zone();
        else
            fp_allow_internet_zone();
    }
    tarn_confd_count_policy_change();
    return 0;
}

// ---- Policies ----

static e_tarn_policy_dir tarn_config_fwding_policy_get_direction(std::span<const confd_tag_value_t> values)
{
    uint32_t direction = LUMORA_POLICY_DIRECTION_ALL;
    for (const confd_tag_value_t &value : values)
        if (value.tag.tag == LUMORA_TAG_DIRECTION && value.v.type != C_NOEXISTS) {
            TARN_CONFD_TYPE(&value.v, C_ENUM_VALUE);
            direction = static_cast<uint32_t>(value.v.val.enumvalue);
        }
    return tarn_yang_data_policy_direction_to_filter_direction(direction);
}

static uint32_t zbf_action(const char *name, std::span<const confd_tag_value_t> values)
{
    e_tarn_filter_action action = TARN_FILTER_ACTION_INVALID;
    tarn_config_zbf_policy_get_action(values.data(), static_cast<uint16_t>(values.size()), &action);
    TARN_CONFD_CHECK(action == TARN_FILTER_ACTION_INVALID, "Failed to get default action for zbf policy %s\n",
                     name);
    return action;
}

static int create_policy(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *name,
                         std::span<const confd_tag_value_t> values)
{
    if (policy_type == TARN_POLICY_TYPE_DATA)
        return tarn_policy_add(p_tarn, policy_type, name, tarn_config_fwding_policy_get_direction(values), 0);
    uint32_t action = policy_type == TARN_POLICY_TYPE_ZBF ? zbf_action(name, values) : 0;
    return tarn_policy_add(p_tarn, policy_type, name, TARN_POLICY_DIR_INVALID, action);
}

static int change_policy(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *name,
                         std::span<const confd_tag_value_t> values)
{
    t_tarn_policy *p_policy = nullptr;
    int status = tarn_policy_lookup(p_tarn, policy_type, name, &p_policy);
    if (status != 0)
        return status;
    if (policy_type == TARN_POLICY_TYPE_DATA) {
        e_tarn_policy_dir direction = tarn_config_fwding_policy_get_direction(values);
        return direction == p_policy->direction ? 0
                                                : tarn_policy_update_direction(p_tarn, p_policy, direction);
    }
    if (policy_type == TARN_POLICY_TYPE_ZBF) {
        status = tarn_config_zone_based_policy_change(p_tarn, name, values.data(),
                                                      static_cast<uint16_t>(values.size()));
        p_policy->changed = 1;
        p_tarn->process_zbf_config = 1;
    }
    return status;
}

static int tarn_config_fwding_policy(e_tarn_policy_type policy_type, t_lconfd_sub_entry *p_lconfd_sub,
                                     confd_iter_op oper, int num_keys, const confd_value_t *p_key,
                                     int num_values, const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Fwding Policy: %s, oper:%d, num_values:%u", name.text, oper,
               static_cast<unsigned>(num_values));
    std::span<const confd_tag_value_t> values = tarn_confd_values(num_values, p_val);
    if (oper == MOP_CREATED) {
        int status = create_policy(p_tarn, policy_type, name, values);
        TARN_CONFD_CHECK(status, "Failed to add Fwding Policy %s (type: %d), err(%d)\n", name.text,
                         static_cast<int>(policy_type), status);
    } else if (oper == MOP_MODIFIED) {
        int status = change_policy(p_tarn, policy_type, name, values);
        if (policy_type == TARN_POLICY_TYPE_ZBF)
            TARN_CONFD_CHECK(status, "Failed to update zone policy %s err(%d)\n", name.text, status);
        TARN_CONFD_CHECK(status, "Failed to change Fwding Policy %s (type: %d), err(%d)\n", name.text,
                         static_cast<int>(policy_type), status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_policy_delete(p_tarn, policy_type, name);
        TARN_CONFD_CHECK(status, "Failed to delete Fwding Policy %s (type: %d), err(%d)\n", name.text,
                         static_cast<int>(policy_type), status);
    }
    tarn_confd_count_policy_change();
    return 0;
}

int tarn_config_data_policy(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                            const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    return tarn_config_fwding_policy(TARN_POLICY_TYPE_DATA, p_lconfd_sub, oper, num_keys, p_key, num_values,
                                     p_val);
}

int tarn_config_app_route_policy(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                 const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    return tarn_config_fwding_policy(TARN_POLICY_TYPE_PFR, p_lconfd_sub, oper, num_keys, p_key, num_values,
                                     p_val);
}

int tarn_config_zone_based_policy(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                  const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    return tarn_config_fwding_policy(TARN_POLICY_TYPE_ZBF, p_lconfd_sub, oper, num_keys, p_key, num_values,
                                     p_val);
}

// ---- Contexts ----

namespace {

// A context's default action: a verdict in a data policy, an SLA class in an application-route policy.
struct t_context_default {
    uint32_t action = 0;
    std::optional<t_tarn_confd_name> sla_class;
};

}  // namespace

static t_context_default read_context_default(e_tarn_policy_type policy_type,
                                              std::span<const confd_tag_value_t> values)
{
    t_context_default result;
    for (const confd_tag_value_t &value : values) {
        if (value.v.type == C_NOEXISTS)
            continue;
        if (value.tag.tag == LUMORA_TAG_DEFAULT_ACTION && policy_type == TARN_POLICY_TYPE_DATA) {
            TARN_CONFD_TYPE(&value.v, C_ENUM_VALUE);
            result.action = tarn_yang_action_to_filter_action(static_cast<uint32_t>(value.v.val.enumvalue));
        } else if (value.tag.tag == LUMORA_TAG_SLA_CLASS_NAME) {
            LUM_ASSERT(policy_type == TARN_POLICY_TYPE_PFR, "policy_type == TARN_POLICY_TYPE_PFR");
            TARN_CONFD_TYPE(&value.v, C_BUF);
            result.sla_class.emplace(&value.v);
        }
    }
    return result;
}

// write creates or changes the context.
static int write_context(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy, const char *list,
                         std::span<const confd_tag_value_t> values,
                         decltype(tarn_vpn_list_add_to_policy) write)
{
    t_context_default wanted = read_context_default(policy_type, values);
    const char *sla_class = nullptr;
    if (wanted.sla_class)
        sla_class = wanted.sla_class->text;
    else if (policy_type == TARN_POLICY_TYPE_PFR)
        sla_class = TARN_ALL_TUNNELS;
    return write(p_tarn, policy_type, policy, list, wanted.action, sla_class);
}

static int tarn_config_fwding_policy_vpn_list(e_tarn_policy_type policy_type,
                                              t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper,
                                              int num_keys, const confd_value_t *p_key, int num_values,
                                              const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key, C_BUF);
    TARN_CONFD_TYPE(p_key + 1, C_BUF);
    t_tarn_confd_name policy(p_key);
    t_tarn_confd_name list(p_key + 1);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Fwding Policy: %s, vpn-list: %s, oper:%d, num_values:%u", policy.text,
               list.text, oper, static_cast<unsigned>(num_values));
    std::span<const confd_tag_value_t> values = tarn_confd_values(num_values, p_val);
    if (oper == MOP_CREATED) {
        int status = write_context(p_tarn, policy_type, policy, list, values, tarn_vpn_list_add_to_policy);
        TARN_CONFD_CHECK(status, "Failed to add vpn list %s to policy %s (type: %d), err(%d)\n", list.text,
                         policy.text, static_cast<int>(policy_type), status);
    } else if (oper == MOP_MODIFIED) {
        int status = write_context(p_tarn, policy_type, policy, list, values, tarn_policy_vpn_list_change);
        TARN_CONFD_CHECK(status, "Failed to change vpn list %s of policy %s (type: %d), err(%d)\n", list.text,
                         policy.text, static_cast<int>(policy_type), status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_vpn_list_remove_from_policy(p_tarn, policy_type, policy, list);
        TARN_CONFD_CHECK(status, "Failed to remove vpn list %s from policy %s (type: %d), err(%d)\n",
                         list.text, policy.text, static_cast<int>(policy_type), status);
    }
    tarn_confd_count_policy_change();
    return 0;
}

int tarn_config_data_policy_vpn_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                     const confd_value_t *p_key, int num_values,
                                     const confd_tag_value_t *p_val)
{
    return tarn_config_fwding_policy_vpn_list(TARN_POLICY_TYPE_DATA, p_lconfd_sub, oper, num_keys, p_key,
                                              num_values, p_val);
}

int tarn_config_app_route_policy_vpn_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                          const confd_value_t *p_key, int num_values,
                                          const confd_tag_value_t *p_val)
{
    return tarn_config_fwding_policy_vpn_list(TARN_POLICY_TYPE_PFR, p_lconfd_sub, oper, num_keys, p_key,
                                              num_values, p_val);
}

// ---- VPN lists ----

int tarn_config_policy_vpn_list(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                const confd_value_t *p_key, int num_values, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name list(p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "VPN list: %s, oper:%d, num_values:%u", list.text, oper,
               static_cast<unsigned>(num_values));
    if (oper == MOP_CREATED) {
        int status = tarn_vpn_list_add(p_tarn, list);
        TARN_CONFD_CHECK(status, "Failed to add vpn list %s, err(%d)\n", list.text, status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_vpn_list_delete(p_tarn, list);
        TARN_CONFD_CHECK(status, "Failed to delete vpn list %s, err(%d)\n", list.text, status);
    }
    return 0;
}

// One number is a range of that VPN alone.
static bool parse_vpn_range(const char *text, t_tarn_vpn_key *p_range)
{
    unsigned long min = 0;
    unsigned long max = 0;
    int count = sscanf(text, "%lu-%lu", &min, &max);
    if (count < 1)
        return false;
    *p_range = {min, count == 2 ? max : min};
    return true;
}

// -1 for a key that is no range; the store is left alone then.
int tarn_config_policy_vpn_id(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                              const confd_value_t *p_key, int num_values, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key, C_BUF);
    TARN_CONFD_TYPE(p_key + 1, C_BUF);
    t_tarn_confd_name list(p_key);
    t_tarn_confd_name text(p_key + 1);
    TARN_TRACE(TARN_DEBUG_CONFIG, "VPN list: %s, vpn: %s, oper:%d, num_values:%u", list.text, text.text, oper,
               static_cast<unsigned>(num_values));
    t_tarn_vpn_key range;
    if (!parse_vpn_range(text, &range)) {
        TARN_LOG("Invalid vpn list range %s in list %s", text.text, list.text);
        return -1;
    }
    if (oper == MOP_CREATED) {
        int status = tarn_vpn_add(p_tarn, list, range.min_vpn_id, range.max_vpn_id);
        TARN_CONFD_CHECK(status, "Failed to add vpn %s to vpn list %s, err(%d)\n", text.text, list.text,
                         status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_vpn_delete(p_tarn, list, range.min_vpn_id, range.max_vpn_id);
        TARN_CONFD_CHECK(status, "Failed to delete vpn %s from vpn list %s, err(%d)\n", text.text, list.text,
                         status);
    }
    return 0;
}
