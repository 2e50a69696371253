// Actions that name transport locators: counted on both sides, so that a locator's change finds its rules.
#include "tarnd/config/tarn_rule.h"
#include "tarnd/config/tarn_rule_private.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tarnd/peers/tarn_ttm.h"

#include <algorithm>
#include <cerrno>

int tarn_action_tloc_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                          const void *value)
{
    const auto &args = *static_cast<const t_tarn_tloc_args *>(value);
    t_tarn_tloc *p_tloc = tarn_tloc_take(p_tarn, &args.tloc, p_rule);
    if (p_tloc == nullptr)
        return ENOMEM;
    p_action->tloc_config[0] = {
        .vpn_label = args.vpn_label, .preference = 0, .vpn_id = p_rule->rule_vpn_id, .tloc = p_tloc};
    return 0;
}

void tarn_action_tloc_undo(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    tarn_tloc_give(p_tarn, p_action->tloc_config[0].tloc, p_rule);
}

static bool tarn_tloc_pref_cmp(const t_tarn_tloc_config &a, const t_tarn_tloc_config &b)
{
    return a.preference > b.preference;
}

void tarn_action_tloc_list_release(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    for (uint32_t i = 0; i < p_action->num_tlocs; i++)
        tarn_tloc_give(p_tarn, p_action->tloc_config[i].tloc, p_rule);
    p_action->num_tlocs = 0;
}

static int take_elements(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                         const t_tarn_tloc_list &list)
{
    const avl_tree_t &elements = list.tloc_db;
    void *p = avl_first(&elements);
    for (; p != nullptr && p_action->num_tlocs < TARN_TLOC_LIST_MAX; p = avl_walk(&elements, p)) {
        const auto &element = *static_cast<t_tarn_tloc_elem *>(p);
        t_tarn_tloc *p_tloc = tarn_tloc_take(p_tarn, &element.tloc, p_rule);
        if (p_tloc == nullptr)
            return ENOMEM;
        p_action->tloc_config[p_action->num_tlocs++] = {.vpn_label = element.vpn_label,
                                                        .preference = element.preference,
                                                        .vpn_id = p_rule->rule_vpn_id,
                                                        .tloc = p_tloc};
    }
    return 0;
}

int tarn_action_tloc_list_take(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    p_action->num_tlocs = 0;
    t_tarn_vpn_list_key2 key = tarn_rule_context_key(p_rule);
    const t_tarn_tloc_list *p_list = tarn_tloc_list_find(p_tarn, &key, static_cast<uint16_t>(p_rule->key.id));
    if (p_list == nullptr)
        return 0;
    int status = take_elements(p_tarn, p_rule, p_action, *p_list);
    if (status != 0) {
        tarn_action_tloc_list_release(p_tarn, p_rule, p_action);
        return status;
    }
    std::stable_sort(p_action->tloc_config, p_action->tloc_config + p_action->num_tlocs, tarn_tloc_pref_cmp);
    return 0;
}

int tarn_action_tloc_list_read(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action,
                               const void *)
{
    t_tarn_vpn_list_key2 key = tarn_rule_context_key(p_rule);
    tarn_tloc_list_find_or_make(p_tarn, &key, static_cast<uint16_t>(p_rule->key.id));
    return tarn_action_tloc_list_take(p_tarn, p_rule, p_action);
}
