// Zones, their VPNs and pairs of zones as the configuration brings them.
#include "common/lum_log.h"
#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/zone/tarn_zbf.h"

#include <cerrno>
#include <optional>
#include <span>

// ---- Zones ----

// A zone has no leaf but its name, so that a modification is as wrong as a second creation.
int tarn_config_zone(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                     const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    if (oper == MOP_CREATED || oper == MOP_MODIFIED) {
        int status = tarn_config_zone_add(p_tarn, name);
        TARN_CONFD_CHECK(status, "Failed to add Zone %s err(%d)\n", name.text, status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_config_zone_delete(p_tarn, name);
        TARN_CONFD_CHECK(status, "Failed to delete Zone %s err(%d)\n", name.text, status);
    }
    return 0;
}

int tarn_config_zone_vpn(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                         const confd_value_t *p_key, int, const confd_tag_value_t *)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 2, "num_keys == 2");
    TARN_CONFD_TYPE(p_key, C_BUF);
    TARN_CONFD_TYPE(p_key + 1, C_UINT32);
    t_tarn_confd_name name(p_key);
    uint32_t vpn_id = p_key[1].val.u32;
    if (oper == MOP_CREATED) {
        int status = tarn_config_zone_vpn_add(p_tarn, name, vpn_id);
        TARN_CONFD_CHECK(status, "Failed to add to zone %s vpn %d err(%d)\n", name.text,
                         static_cast<int>(vpn_id), status);
    } else if (oper == MOP_DELETED) {
        int status = tarn_config_zone_vpn_delete(p_tarn, name, vpn_id);
        TARN_CONFD_CHECK(status, "Failed to delete from zone %s vpn %d err(%d)\n", name.text,
                         static_cast<int>(vpn_id), status);
    }
    return 0;
}

// ---- Pairs of zones ----

namespace {

// What a change says of a pair; null members stay as they are.
struct t_pair_values {
    std::optional<t_tarn_confd_name> src_zone;
    std::optional<t_tarn_confd_name> dst_zone;
    std::optional<t_tarn_confd_name> zb_policy;
    uint32_t pair_id = 0;
};

}  // namespace

static void read_name(std::optional<t_tarn_confd_name> *p_name, const confd_value_t *p_value)
{
    TARN_CONFD_TYPE(p_value, C_BUF);
    p_name->emplace(p_value);
}

static t_pair_values read_pair(std::span<const confd_tag_value_t> values)
{
    t_pair_values pair;
    for (const confd_tag_value_t &value : values) {
        if (value.v.type == C_NOEXISTS)
            continue;
        switch (value.tag.tag) {
        case LUMORA_TAG_SOURCE_ZONE:
            read_name(&pair.src_zone, &value.v);
            break;
        case LUMORA_TAG_DESTINATION_ZONE:
            read_name(&pair.dst_zone, &value.v);
            break;
        case LUMORA_TAG_ZONE_POLICY:
            read_name(&pair.zb_policy, &value.v);
            break;
        case LUMORA_TAG_PAIR_ID:
            TARN_CONFD_TYPE(&value.v, C_UINT32);
            pair.pair_id = value.v.val.u32;
            break;
        default:
            break;
        }
    }
    return pair;
}

static const char *text_or_null(const std::optional<t_tarn_confd_name> &name)
{
    return name ? name->text : nullptr;
}

static const char *text_to_print(const std::optional<t_tarn_confd_name> &name)
{
    return name ? name->text : "(null)";
}

static void create_pair(t_tarn *p_tarn, const char *name, std::span<const confd_tag_value_t> values)
{
    t_pair_values pair = read_pair(values);
    tarn_confd_zone_pair_id_seen(pair.pair_id);
    int status =
        tarn_config_zone_pair_create(p_tarn, name, text_or_null(pair.src_zone), text_or_null(pair.dst_zone),
                                     text_or_null(pair.zb_policy), pair.pair_id);
    TARN_CONFD_CHECK(status,
                     "Failed to create zone-pair %s for src_zone %s,                                dst_zone "
                     "%s and zb-policy %s err(%d)\n",
                     name, text_to_print(pair.src_zone), text_to_print(pair.dst_zone),
                     text_to_print(pair.zb_policy), status);
}

static void modify_pair(t_tarn *p_tarn, const char *name, std::span<const confd_tag_value_t> values)
{
    t_pair_values pair = read_pair(values);
    int status = tarn_config_zone_pair_modify(p_tarn, name, text_or_null(pair.src_zone),
                                              text_or_null(pair.dst_zone), text_or_null(pair.zb_policy));
    TARN_CONFD_CHECK(status, "Failed to modify zone-pair %s err(%d)\n", name, status);
}

// The table is rebuilt, whether or not there was such a pair.
static void delete_pair(t_tarn *p_tarn, const char *name)
{
    int status = tarn_config_zone_pair_delete(p_tarn, name);
    if (status != 0)
        TARN_LOG("Failed to delete zone pair %s err(%d)\n", name, status);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Success delete zone pair %s\n", name);
}

int tarn_config_zone_pair(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                          const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    t_tarn *p_tarn = tarn_confd_tarn(p_lconfd_sub);
    LUM_ASSERT(num_keys == 1, "num_keys == 1");
    TARN_CONFD_TYPE(p_key, C_BUF);
    t_tarn_confd_name name(p_key);
    std::span<const confd_tag_value_t> values = tarn_confd_values(num_values, p_val);
    if (oper == MOP_CREATED)
        create_pair(p_tarn, name, values);
    else if (oper == MOP_MODIFIED)
        modify_pair(p_tarn, name, values);
    else if (oper == MOP_DELETED)
        delete_pair(p_tarn, name);
    else
        return 0;
    p_tarn->process_zbf_config = 1;
    return 0;
}

// ---- Zone-based policies ----

int tarn_config_zbf_policy_get_action(const confd_tag_value_t *p_val, u_int16_t num_values,
                                      e_tarn_filter_action *default_action)
{
    if (p_val == nullptr || default_action == nullptr)
        return EBADMSG;
    *default_action = TARN_FILTER_ACTION_INVALID;
    for (const confd_tag_value_t &value : tarn_confd_values(num_values, p_val)) {
        if (value.tag.tag == LUMORA_TAG_DEFAULT_ACTION && value.v.type == C_ENUM_VALUE)
            *default_action = static_cast<e_tarn_filter_action>(
                tarn_yang_action_to_filter_action(static_cast<uint32_t>(value.v.val.enumvalue)));
    }
    return 0;
}

int tarn_config_zone_based_policy_change(t_tarn *p_tarn, const char *policy_name,
                                         const confd_tag_value_t *p_val, u_int16_t num_values)
{
    if (p_tarn == nullptr || policy_name == nullptr)
        return EBADMSG;
    e_tarn_filter_action action = TARN_FILTER_ACTION_INVALID;
    int status = tarn_config_zbf_policy_get_action(p_val, num_values, &action);
    if (status != 0 || action == TARN_FILTER_ACTION_INVALID)
        return status;
    status = tarn_policy_vpn_list_change(p_tarn, TARN_POLICY_TYPE_ZBF, policy_name, TARN_ZBF_VPN_LIST, action,
                                         nullptr);
    if (status != 0)
        TARN_LOG("Failed to update default action on zbf                      Policy %s, err(%d)\n",
                 policy_name, status);
    return status;
}
