// Actions of policies' rules: a row for each leaf that makes one.
//
// A row's value goes into the record as it is, or through a read step that looks up what it names. Rows
// without either have no value: the leaf's presence is the action.
#include "common/lum_assert.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/config/tarn_rule_private.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

struct t_action_kind {
    uint32_t tag;
    uint32_t fwding_action;
    size_t value_offset;      // in the record
    size_t value_size;        // bytes that the value's pointer leads to; 0: not copied
    f_tarn_action_read read;  // null: nothing to look up
    f_tarn_action_undo undo;  // null: nothing to give back
};

}  // namespace

// Value: the enumerator. Others than these two leave the record without a kind.
static int read_loss_protect(t_tarn *, t_tarn_config_rule *, t_tarn_config_action *p_action,
                             const void *value)
{
    uint32_t enumerator = *static_cast<const uint32_t *>(value);
    if (enumerator == 10)
        p_action->fwding_action = TARN_FILTER_ACTION_FEC_ADAPTIVE;
    else if (enumerator == 11)
        p_action->fwding_action = TARN_FILTER_ACTION_FEC_ALWAYS;
    return 0;
}

static int read_cflowd(t_tarn *p_tarn, t_tarn_config_rule *, t_tarn_config_action *, const void *)
{
    p_tarn->flow_ref++;
    return 0;
}

static void undo_cflowd(t_tarn *p_tarn, t_tarn_config_rule *, t_tarn_config_action *)
{
    p_tarn->flow_ref--;
}

static constexpr t_action_kind presence(uint32_t tag, uint32_t fwding_action)
{
    return {tag, fwding_action, 0, 0, nullptr, nullptr};
}

static constexpr t_action_kind looked_up(uint32_t tag, uint32_t fwding_action, f_tarn_action_read read,
                                         f_tarn_action_undo undo = nullptr)
{
    return {tag, fwding_action, 0, 0, read, undo};
}

#define COPIED(tag, fwding_action, member)                                                                   \
    t_action_kind                                                                                            \
    {                                                                                                        \
        tag, fwding_action, offsetof(t_tarn_config_action, member), sizeof(t_tarn_config_action::member),    \
            nullptr, nullptr                                                                                 \
    }

static constexpr t_action_kind action_kinds[] = {
    COPIED(TARN_ACTION_TAG_ACTION, TARN_FILTER_ACTION_INVALID, action),
    COPIED(TARN_ACTION_TAG_TLOC_COLOR_ENCAP, TARN_FILTER_ACTION_TLOC_WITH_COLOR_ENCAP, tloc_color_encap),
    COPIED(TARN_ACTION_TAG_NEXT_HOP, TARN_FILTER_ACTION_NEXT_HOP, nh_ip_addr),
    COPIED(TARN_ACTION_TAG_REDIRECT_DNS, TARN_FILTER_ACTION_REDIRECT_DNS, redirect_dns_nh_addr),
    COPIED(TARN_ACTION_TAG_NAT_POOL, TARN_FILTER_ACTION_NAT_POOL, nat_pool_id),
    COPIED(TARN_ACTION_TAG_LOCAL_TLOC_LIST, TARN_FILTER_ACTION_LOCAL_TLOC_LIST, local_tloc_list),
    COPIED(TARN_ACTION_TAG_DSCP, TARN_FILTER_ACTION_DSCP, dscp),
    COPIED(TARN_ACTION_TAG_TRAFFIC_CLASS, TARN_FILTER_ACTION_TRAFFIC_CLASS, traffic_class),
    COPIED(TARN_ACTION_TAG_SERVICE, TARN_FILTER_ACTION_SVC_TYPE, svc_type),
    COPIED(TARN_ACTION_TAG_BACKUP_PREFERRED_COLOR, TARN_FILTER_ACTION_BACKUP_PREFERRED_COLOR,
           backup_preferred_color),
    presence(TARN_ACTION_TAG_LOG, TARN_FILTER_ACTION_LOG),
    presence(TARN_ACTION_TAG_FALLBACK, TARN_FILTER_ACTION_FALLBACK),
    presence(TARN_ACTION_TAG_SVC_LOCAL, TARN_FILTER_ACTION_SVC_LOCAL),
    presence(TARN_ACTION_TAG_SVC_LOCAL_STRICT, TARN_FILTER_ACTION_SVC_LOCAL_STRICT),
    presence(TARN_ACTION_TAG_TCP_OPTIMIZATION, TARN_FILTER_ACTION_TCP_OPTIMIZATION),
    presence(TARN_ACTION_TAG_SSL_OPTIMIZATION, TARN_FILTER_ACTION_SSL_OPTIMIZATION),
    presence(TARN_ACTION_TAG_PKT_DUP, TARN_FILTER_ACTION_PKT_DUP),
    looked_up(TARN_ACTION_TAG_LOSS_PROTECT, TARN_FILTER_ACTION_INVALID, read_loss_protect),
    looked_up(TARN_ACTION_TAG_CFLOWD, TARN_FILTER_ACTION_CFLOWD, read_cflowd, undo_cflowd),
    looked_up(TARN_ACTION_TAG_NAT_VPN, TARN_FILTER_ACTION_NAT, tarn_action_nat_read),
    looked_up(TARN_ACTION_TAG_CLASS, TARN_FILTER_ACTION_CLASS, tarn_action_class_read),
    looked_up(TARN_ACTION_TAG_SLA_CLASS, TARN_FILTER_ACTION_SLA_CLASS, tarn_action_sla_class_read),
    looked_up(TARN_ACTION_TAG_COUNT, TARN_FILTER_ACTION_COUNT, tarn_action_counter_read,
              tarn_action_counter_undo),
    looked_up(TARN_ACTION_TAG_POLICER, TARN_FILTER_ACTION_POLICE, tarn_action_policer_read,
              tarn_action_policer_undo),
    looked_up(TARN_ACTION_TAG_MIRROR, TARN_FILTER_ACTION_MIRROR, tarn_action_mirror_read,
              tarn_action_mirror_undo),
    looked_up(TARN_ACTION_TAG_TLOC, TARN_FILTER_ACTION_TLOC, tarn_action_tloc_read, tarn_action_tloc_undo),
    looked_up(TARN_ACTION_TAG_TLOC_LIST, TARN_FILTER_ACTION_TLOC_LIST, tarn_action_tloc_list_read,
              tarn_action_tloc_list_release),
};

#undef COPIED

static const t_action_kind &kind_of(uint32_t tag)
{
    for (const t_action_kind &kind : action_kinds)
        if (kind.tag == tag)
            return kind;
    LUM_ASSERT(false, "0");
}

static t_tarn_config_action *action_of(t_dlnode *p_node)
{
    return DLL_RECORD(p_node, t_tarn_config_action, dlnode);
}

static t_tarn_config_action *find_action(const t_tarn_config_rule *p_rule, uint32_t action_type)
{
    for (t_dlnode *p_node = p_rule->action_list.p_head; p_node != nullptr; p_node = p_node->p_next)
        if (action_of(p_node)->action_type == action_type)
            return action_of(p_node);
    return nullptr;
}

static int read_value(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                      const void *value)
{
    const t_action_kind &kind = kind_of(p_action->action_type);
    p_action->fwding_action = kind.fwding_action;
    if (kind.value_size > 0)
        memcpy(reinterpret_cast<char *>(p_action) + kind.value_offset, value, kind.value_size);
    return kind.read != nullptr ? kind.read(p_tarn, p_rule, p_action, value) : 0;
}

int tarn_config_action_add(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                           const char *vpn_list_name, uint32_t rule_id, uint32_t action_type,
                           const void *action, t_tarn_config_action **pp_action)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_config_rule_lookup(p_tarn, policy_type, policy_name, vpn_list_name, rule_id, &p_rule);
    if (status != 0)
        return status;
    auto *p_action = static_cast<t_tarn_config_action *>(calloc(1, sizeof(t_tarn_config_action)));
    if (p_action == nullptr)
        return ENOMEM;
    p_action->action_type = action_type;
    status = read_value(p_tarn, p_rule, p_action, action);
    if (status != 0) {
        free(p_action);
        return status;
    }
    if (action_type == TARN_ACTION_TAG_ACTION)
        DLL_INSERT(&p_rule->action_list, nullptr, &p_action->dlnode);
    else
        DLL_ADD(&p_rule->action_list, &p_action->dlnode);
    if (pp_action != nullptr)
        *pp_action = p_action;
    return 0;
}

static void delete_action(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    const t_action_kind &kind = kind_of(p_action->action_type);
    if (kind.undo != nullptr)
        kind.undo(p_tarn, p_rule, p_action);
    DLL_REMOVE(&p_rule->action_list, &p_action->dlnode);
    free(p_action);
}

int tarn_config_action_delete(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                              const char *vpn_list_name, uint32_t rule_id, uint32_t action_type)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_config_rule_lookup(p_tarn, policy_type, policy_name, vpn_list_name, rule_id, &p_rule);
    if (status != 0)
        return status;
    t_tarn_config_action *p_action = find_action(p_rule, action_type);
    if (p_action != nullptr)
        delete_action(p_tarn, p_rule, p_action);
    return 0;
}

int tarn_config_action_find(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                            const char *vpn_list_name, uint32_t rule_id, uint32_t action_type,
                            t_tarn_config_action **pp_ret)
{
    *pp_ret = nullptr;
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_config_rule_lookup(p_tarn, policy_type, policy_name, vpn_list_name, rule_id, &p_rule);
    if (status != 0)
        return status;
    *pp_ret = find_action(p_rule, action_type);
    return *pp_ret != nullptr ? 0 : ENOENT;
}

void tarn_config_action_delete_all(t_tarn *p_tarn, t_tarn_config_rule *p_rule)
{
    while (t_dlnode *p_node = p_rule->action_list.p_head)
        delete_action(p_tarn, p_rule, action_of(p_node));
}
