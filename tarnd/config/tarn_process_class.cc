// Who must be compiled again: the contexts that use a class, or that a list's record of its users names.
#include "common/dll.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/config/tarn_process_private.h"
#include "tarnd/config/tarn_rule.h"

#include <cstring>

static bool is_same_class(const char *name1, const char *name2)
{
    return strncmp(name1, name2, TARN_CLASS_NAME_SIZE) == 0;
}

// visit(p_action) for every action of the context's rules.
template <typename F>
static void actions_foreach(const t_tarn_policy_vpn_list *p_vpn_list, F visit)
{
    for (t_dlnode *p_link = p_vpn_list->rule_list.p_head; p_link != nullptr; p_link = p_link->p_next) {
        t_tarn_config_rule *p_rule = DLL_RECORD(p_link, t_tarn_config_rule, dlnode);
        for (t_dlnode *p_node = p_rule->action_list.p_head; p_node != nullptr; p_node = p_node->p_next)
            visit(DLL_RECORD(p_node, t_tarn_config_action, dlnode));
    }
}

void tarn_process_class_change(t_tarn *p_tarn, const t_tarn_class *p_class)
{
    tarn_contexts_foreach(p_tarn, [=](t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list) {
        actions_foreach(p_vpn_list, [=](const t_tarn_config_action *p_action) {
            if (p_action->fwding_action == TARN_FILTER_ACTION_CLASS &&
                is_same_class(p_action->fc.name, p_class->name))
                tarn_mark_changed(p_policy, p_vpn_list);
        });
    });
}

void tarn_process_sla_class_change(t_tarn *p_tarn, const t_tarn_sla_class *p_sla_class, uint8_t sla_class_id)
{
    tarn_contexts_foreach(p_tarn, [=](t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list) {
        if (p_policy->key.type != TARN_POLICY_TYPE_PFR)
            return;
        auto renumber = [=](t_tarn_config_action *p_action) {
            if (p_action->fwding_action != TARN_FILTER_ACTION_SLA_CLASS ||
                !is_same_class(p_action->sla_class.name, p_sla_class->key.name))
                return;
            p_action->sla_class.id = sla_class_id;
            tarn_mark_changed(p_policy, p_vpn_list);
        };
        actions_foreach(p_vpn_list, renumber);
        renumber(p_vpn_list->default_action);
    });
}

void tarn_process_context_change(t_tarn *p_tarn, const t_tarn_vpn_list_key2 *p_key)
{
    t_tarn_policy *p_policy = nullptr;
    if (tarn_policy_lookup(p_tarn, p_key->pol_type, p_key->pol_name, &p_policy) != 0)
        return;
    p_policy->changed = 1;
    t_tarn_policy_vpn_list *p_vpn_list = nullptr;
    if (tarn_vpn_list_lookup_in_policy(p_tarn, p_key->pol_type, p_key->pol_name, p_key->name, &p_vpn_list) ==
        0)
        p_vpn_list->changed = 1;
}
