#include "tarnd/config/tarn_rule.h"

#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "tarnd/config/tarn_rule_private.h"
#include "tarnd/config/tarn_tloc_list.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ttm.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

int tarn_rule_key_cmp(const void *p_key, const void *p_object)
{
    uint32_t id = static_cast<const t_tarn_config_rule *>(p_key)->key.id;
    uint32_t other = static_cast<const t_tarn_config_rule *>(p_object)->key.id;
    return (id > other) - (id < other);
}

int tarn_counter_cmp(const void *p_key, const void *p_object)
{
    return tarn_name_cmp(static_cast<const t_tarn_config_counter_ref *>(p_key)->name,
                         static_cast<const t_tarn_config_counter_ref *>(p_object)->name);
}

int tarn_rule_owner(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                    const char *vpn_list_name, t_tarn_policy **pp_policy, t_tarn_policy_vpn_list **pp_context)
{
    int status = tarn_policy_lookup(p_tarn, policy_type, policy_name, pp_policy);
    if (status != 0)
        return status;
    return tarn_vpn_list_lookup_in_policy(p_tarn, policy_type, policy_name, vpn_list_name, pp_context);
}

t_tarn_vpn_list_key2 tarn_rule_context_key(const t_tarn_config_rule *p_rule)
{
    t_tarn_vpn_list_key2 key;
    memcpy(key.name, p_rule->vpn_list->key.name, sizeof(key.name));
    memcpy(key.pol_name, p_rule->policy->key.name, sizeof(key.pol_name));
    key.pol_type = p_rule->policy->key.type;
    return key;
}

static t_tarn_config_rule *find_rule(const t_tarn_policy_vpn_list *p_context, uint32_t rule_id)
{
    t_tarn_config_rule wanted = {};
    wanted.key.id = rule_id;
    return static_cast<t_tarn_config_rule *>(avl_find(&p_context->rule_db, &wanted));
}

static void mark_changed(t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context)
{
    p_policy->changed = 1;
    p_context->changed = 1;
}

// The list's order is the rules' priority.
static void insert_by_sequence(t_dll *p_rule_list, t_tarn_config_rule *p_rule)
{
    t_dlnode *p_node = p_rule_list->p_head;
    while (p_node != nullptr && DLL_RECORD(p_node, t_tarn_config_rule, dlnode)->key.id <= p_rule->key.id)
        p_node = p_node->p_next;
    DLL_INSERT_BEFORE(p_rule_list, p_node, &p_rule->dlnode);
}

// A new rule in rule_db and rule_list, or null without memory.
static t_tarn_config_rule *make_rule(t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context,
                                     const char *name, uint32_t rule_id)
{
    auto *p_rule = static_cast<t_tarn_config_rule *>(calloc(1, sizeof(t_tarn_config_rule)));
    if (p_rule == nullptr)
        return nullptr;
    p_rule->key.id = rule_id;
    lum_strlcpy(p_rule->key.name, name, sizeof(p_rule->key.name));
    if (avl_insert(&p_context->rule_db, p_rule) != 0) {
        free(p_rule);
        return nullptr;
    }
    insert_by_sequence(&p_context->rule_list, p_rule);
    avl_create(&p_rule->tloc_ctx_db, tarn_rule_tloc_ctx_cmp, sizeof(t_tarn_config_rule_tloc_ctx),
               offsetof(t_tarn_config_rule_tloc_ctx, ctx_avl_node));
    p_rule->policy = p_policy;
    p_rule->vpn_list = p_context;
    return p_rule;
}

int tarn_config_rule_add(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                         const char *vpn_list_name, uint32_t rule_id, t_tarn_config_rule **pp_rule)
{
    t_tarn_policy *p_policy = nullptr;
    t_tarn_policy_vpn_list *p_context = nullptr;
    int status = tarn_rule_owner(p_tarn, policy_type, policy_name, vpn_list_name, &p_policy, &p_context);
    if (status != 0)
        return status;
    if (find_rule(p_context, rule_id) != nullptr)
        return EEXIST;
    t_tarn_config_rule *p_rule = make_rule(p_policy, p_context, vpn_list_name, rule_id);
    if (p_rule == nullptr)
        return ENOMEM;
    if (pp_rule != nullptr)
        *pp_rule = p_rule;
    mark_changed(p_policy, p_context);

    status = tarn_config_field_add(p_tarn, TARN_FIELD_TYPE_MATCH_ANY, &rule_id, p_rule);
    if (status != 0)
        TARN_TRACE(TARN_DEBUG_CONFIG, "Failed to add match any rule (%s, %d) err(%d)\n", policy_name,
                   static_cast<int>(rule_id), status);
    return 0;
}

int tarn_config_rule_lookup(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                            const char *vpn_list_name, uint32_t rule_id, t_tarn_config_rule **pp_rule)
{
    t_tarn_policy_vpn_list *p_context = nullptr;
    int status = tarn_vpn_list_lookup_in_policy(p_tarn, policy_type, policy_name, vpn_list_name, &p_context);
    if (status != 0)
        return status;
    t_tarn_config_rule *p_rule = find_rule(p_context, rule_id);
    if (p_rule == nullptr)
        return ENOENT;
    if (pp_rule != nullptr)
        *pp_rule = p_rule;
    return 0;
}

// The sequence's own TLOC list goes with it.
static void delete_tloc_list(t_tarn *p_tarn, const t_tarn_config_rule *p_rule)
{
    if (p_rule->policy->key.type != TARN_POLICY_TYPE_DATA)
        return;
    t_tarn_vpn_list_key2 key = tarn_rule_context_key(p_rule);
    t_tarn_tloc_list *p_list = tarn_tloc_list_find(p_tarn, &key, static_cast<uint16_t>(p_rule->key.id));
    if (p_list != nullptr)
        tarn_tloc_list_free(p_tarn, p_list);
}

int tarn_config_rule_delete(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                            const char *vpn_list_name, uint32_t rule_id)
{
    t_tarn_config_rule *p_rule = nullptr;
    int status = tarn_config_rule_lookup(p_tarn, policy_type, policy_name, vpn_list_name, rule_id, &p_rule);
    if (status != 0)
        return status;
    tarn_config_field_delete_all(p_tarn, p_rule);
    tarn_config_action_delete_all(p_tarn, p_rule);
    delete_tloc_list(p_tarn, p_rule);

    t_tarn_policy_vpn_list *p_context = p_rule->vpn_list;
    mark_changed(p_rule->policy, p_context);
    DLL_REMOVE(&p_context->rule_list, &p_rule->dlnode);
    avl_remove(&p_context->rule_db, p_rule);
    avl_destroy(&p_rule->tloc_ctx_db);
    free(p_rule);
    return 0;
}
