// Parser of the sequences of all policies; access lists have their own.
#include "common/strlcpy.h"
#include "tarnd/config/tarn_confd_seq_private.h"
#include "tarnd/core/tarn.h"

#include <cstring>

// Data and application-route policies: policy, VPN list, number. Zone-based ones have one context, which is
// not a key.
static void read_keys(t_tarn_seq *p_seq, int num_keys, const confd_value_t *p_key)
{
    bool zone_based = p_seq->type == TARN_POLICY_TYPE_ZBF;
    LUM_ASSERT(num_keys == (zone_based ? 2 : 3), "num_keys == (zone_based ? 2 : 3)");
    TARN_CONFD_TYPE(p_key, C_BUF);
    lum_strlcpy(p_seq->policy, t_tarn_confd_name(p_key), sizeof(p_seq->policy));
    p_key++;
    if (zone_based) {
        lum_strlcpy(p_seq->vpn_list, TARN_ZBF_VPN_LIST, sizeof(p_seq->vpn_list));
    } else {
        TARN_CONFD_TYPE(p_key, C_BUF);
        lum_strlcpy(p_seq->vpn_list, t_tarn_confd_name(p_key), sizeof(p_seq->vpn_list));
        p_key++;
    }
    TARN_CONFD_TYPE(p_key, C_UINT16);
    p_seq->id = p_key->val.u16;
}

// Leaves that no part knows, the key among them, are passed over.
static void walk(t_tarn_seq *p_seq, std::span<const confd_tag_value_t> values)
{
    for (const confd_tag_value_t &value : values)
        if (!p_seq->scope.step(value) && !tarn_seq_gather(p_seq, value) && !tarn_seq_match(p_seq, value))
            tarn_seq_action(p_seq, value);
    tarn_seq_write_gathered(p_seq);
}

static void create_rule(t_tarn_seq *p_seq, std::span<const confd_tag_value_t> values)
{
    int status = tarn_config_rule_add(p_seq->p_tarn, p_seq->type, p_seq->policy, p_seq->vpn_list, p_seq->id,
                                      &p_seq->p_rule);
    TARN_CONFD_CHECK(status, "Failed to add rule (%s, %d) err(%d)\n", p_seq->policy, p_seq->id, status);
    p_seq->created = true;
    walk(p_seq, values);
}

static int find_rule(t_tarn_seq *p_seq, t_tarn_policy **pp_policy, t_tarn_policy_vpn_list **pp_context)
{
    t_tarn *p_tarn = p_seq->p_tarn;
    int status = tarn_policy_lookup(p_tarn, p_seq->type, p_seq->policy, pp_policy);
    if (status == 0)
        status =
            tarn_vpn_list_lookup_in_policy(p_tarn, p_seq->type, p_seq->policy, p_seq->vpn_list, pp_context);
    if (status == 0)
        status = tarn_config_rule_lookup(p_tarn, p_seq->type, p_seq->policy, p_seq->vpn_list, p_seq->id,
                                         &p_seq->p_rule);
    return status;
}

static void change_rule(t_tarn_seq *p_seq, std::span<const confd_tag_value_t> values)
{
    t_tarn_policy *p_policy = nullptr;
    t_tarn_policy_vpn_list *p_context = nullptr;
    int status = find_rule(p_seq, &p_policy, &p_context);
    TARN_CONFD_CHECK(status, "Failed to change rule (%s, %d) err(%d)\n", p_seq->policy, p_seq->id, status);
    p_policy->changed = 1;
    p_context->changed = 1;
    walk(p_seq, values);
}

static void delete_rule(t_tarn_seq *p_seq)
{
    int status = tarn_config_rule_lookup(p_seq->p_tarn, p_seq->type, p_seq->policy, p_seq->vpn_list,
                                         p_seq->id, &p_seq->p_rule);
    if (status == 0)
        status =
            tarn_config_rule_delete(p_seq->p_tarn, p_seq->type, p_seq->policy, p_seq->vpn_list, p_seq->id);
    TARN_CONFD_CHECK(status, "Failed to delete rule (%s, %d) err(%d)\n", p_seq->policy, p_seq->id, status);
}

static int tarn_config_fwding_policy_seq(e_tarn_policy_type policy_type, t_lconfd_sub_entry *p_lconfd_sub,
                                         confd_iter_op oper, int num_keys, const confd_value_t *p_key,
                                         int num_values, const confd_tag_value_t *p_val)
{
    LUM_ASSERT(
        policy_type == TARN_POLICY_TYPE_DATA || policy_type == TARN_POLICY_TYPE_PFR ||
            policy_type == TARN_POLICY_TYPE_ZBF,
        "policy_type == TARN_POLICY_TYPE_DATA || policy_type == TARN_POLICY_TYPE_PFR || policy_type == "
        "TARN_POLICY_TYPE_ZBF");
    t_tarn_seq seq = {};
    seq.p_tarn = tarn_confd_tarn(p_lconfd_sub);
    seq.type = policy_type;
    read_keys(&seq, num_keys, p_key);
    TARN_TRACE(TARN_DEBUG_CONFIG, "Fwding Policy: %s, vpn-list: %s, seq: %d, oper:%d, num_values:%u",
               seq.policy, seq.vpn_list, seq.id, oper, static_cast<unsigned>(num_values));
    if (policy_type == TARN_POLICY_TYPE_ZBF)
        seq.p_tarn->process_zbf_config = 1;
    if (oper == MOP_CREATED)
        create_rule(&seq, tarn_confd_values(num_values, p_val));
    else if (oper == MOP_MODIFIED)
        change_rule(&seq, tarn_confd_values(num_values, p_val));
    else if (oper == MOP_DELETED)
        delete_rule(&seq);
    tarn_confd_count_policy_change();
    return 0;
}

int tarn_config_data_policy_seq(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    return tarn_config_fwding_policy_seq(TARN_POLICY_TYPE_DATA, p_lconfd_sub, oper, num_keys, p_key,
                                         num_values, p_val);
}

int tarn_config_app_route_policy_seq(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                     const confd_value_t *p_key, int num_values,
                                     const confd_tag_value_t *p_val)
{
    return tarn_config_fwding_policy_seq(TARN_POLICY_TYPE_PFR, p_lconfd_sub, oper, num_keys, p_key,
                                         num_values, p_val);
}

int tarn_config_zone_policy_seq(t_lconfd_sub_entry *p_lconfd_sub, confd_iter_op oper, int num_keys,
                                const confd_value_t *p_key, int num_values, const confd_tag_value_t *p_val)
{
    return tarn_config_fwding_policy_seq(TARN_POLICY_TYPE_ZBF, p_lconfd_sub, oper, num_keys, p_key,
                                         num_values, p_val);
}
