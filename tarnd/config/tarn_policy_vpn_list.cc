#include "common/lum_assert.h"
#include "common/strlcpy.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/compiler/tarn_ruletable.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_policer.h"
#include "tarnd/config/tarn_policy_private.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi_app_list.h"
#include "tarnd/peers/tarn_ftm.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

// ---- Look-up ----

t_tarn_policy_vpn_list *tarn_policy_vpn_list_find(const t_tarn_policy *p_policy, const char *vpn_list_name)
{
    t_tarn_policy_vpn_list key = {};
    lum_strlcpy(key.key.name, vpn_list_name, sizeof(key.key.name));
    return static_cast<t_tarn_policy_vpn_list *>(avl_find(&p_policy->vpn_list_db, &key));
}

namespace {

// A context and its policy, both null when either is absent.
struct t_found_context {
    t_tarn_policy *p_policy;
    t_tarn_policy_vpn_list *p_context;
};

}  // namespace

static t_found_context find_context(const t_tarn *p_tarn, e_tarn_policy_type type, const char *policy_name,
                                    const char *vpn_list_name)
{
    t_tarn_policy *p_policy = tarn_policy_find(p_tarn, type, policy_name);
    if (p_policy == nullptr)
        return {};
    t_tarn_policy_vpn_list *p_context = tarn_policy_vpn_list_find(p_policy, vpn_list_name);
    if (p_context == nullptr)
        return {};
    return {p_policy, p_context};
}

int tarn_vpn_list_lookup_in_policy(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                                   const char *vpn_list_name, t_tarn_policy_vpn_list **pp_vpn_list)
{
    if (p_tarn == nullptr || policy_name == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    t_tarn_policy_vpn_list *p_context =
        find_context(p_tarn, policy_type, policy_name, vpn_list_name).p_context;
    if (p_context == nullptr)
        return ENOENT;
    if (pp_vpn_list != nullptr)
        *pp_vpn_list = p_context;
    return 0;
}

static t_tarn_policy_ref *find_reference(const t_tarn_vpn_list *p_list, const t_tarn_policy *p_policy)
{
    t_tarn_policy_ref key = {};
    key.key = p_policy->key;
    return static_cast<t_tarn_policy_ref *>(avl_find(&p_list->policy_db, &key));
}

// ---- Making ----

// A class that is not known yet leaves id 0; the pass looks again.
static void write_default_action(t_tarn *p_tarn, t_tarn_config_action *p_action, uint32_t action,
                                 const char *sla_class_name)
{
    memset(p_action, 0, sizeof(*p_action));
    p_action->action = action;
    if (sla_class_name == nullptr)
        return;
    p_action->fwding_action = TARN_FILTER_ACTION_SLA_CLASS;
    p_action->action_type = TARN_ACTION_TAG_SLA_CLASS;
    lum_strlcpy(p_action->sla_class.name, sla_class_name, sizeof(p_action->sla_class.name));
    t_tarn_sla_class *p_sla_class = nullptr;
    if (tarn_sla_class_lookup(p_tarn, sla_class_name, &p_sla_class) == 0)
        p_action->sla_class.id = p_sla_class->id;
}

// An unbound context without rules, or null.
static t_tarn_policy_vpn_list *make_context(const t_tarn_policy *p_policy, const char *vpn_list_name)
{
    auto *p_context = static_cast<t_tarn_policy_vpn_list *>(calloc(1, sizeof(t_tarn_policy_vpn_list)));
    if (p_context == nullptr)
        return nullptr;
    p_context->default_action = static_cast<t_tarn_config_action *>(calloc(1, sizeof(t_tarn_config_action)));
    if (p_context->default_action == nullptr) {
        free(p_context);
        return nullptr;
    }
    lum_strlcpy(p_context->key.name, vpn_list_name, sizeof(p_context->key.name));
    p_context->filter_id = TARN_FILTER_ID_NONE;
    p_context->filter_type = TARN_FILTER_INV;
    p_context->direction = p_policy->direction;
    avl_create(&p_context->rule_db, tarn_rule_key_cmp, sizeof(t_tarn_config_rule),
               offsetof(t_tarn_config_rule, avl_node));
    avl_create(&p_context->counter_db, tarn_counter_cmp, sizeof(t_tarn_config_counter_ref),
               offsetof(t_tarn_config_counter_ref, avl_node));
    avl_create(&p_context->pfx_list_db, tarn_pfx_list_key_cmp, sizeof(t_tarn_pfx_list_ref),
               offsetof(t_tarn_pfx_list_ref, avl_node));
    avl_create(&p_context->policer_db, tarn_policer_key_cmp, sizeof(t_tarn_policer_config),
               offsetof(t_tarn_policer_config, policy_avl_node));
    avl_create(&p_context->dpi_app_list_db, tarn_dpi_app_list_ctx_cmp, sizeof(t_tarn_dpi_app_ctx),
               offsetof(t_tarn_dpi_app_ctx, avl_node));
    return p_context;
}

// The list's memory of the policy. The configuration's order of delivery guarantees the list.
static void refer_to_policy(t_tarn *p_tarn, const t_tarn_policy *p_policy, const char *vpn_list_name)
{
    t_tarn_vpn_list *p_list = tarn_vpn_list_find(p_tarn, vpn_list_name);
    LUM_ASSERT(p_list != nullptr, "p_vpn_list != NULL");
    LUM_ASSERT(find_reference(p_list, p_policy) == nullptr, "p_vpn_list_policy == NULL");
    t_tarn_policy_ref *p_ref = static_cast<t_tarn_policy_ref *>(calloc(1, sizeof(t_tarn_policy_ref)));
    LUM_ASSERT(p_ref != nullptr, "p_vpn_list_policy != NULL");
    p_ref->key = p_policy->key;
    p_ref->ref_count = 1;
    (void)avl_insert(&p_list->policy_db, p_ref);  // not there, as asserted
}

int tarn_vpn_list_add_to_policy(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                                const char *vpn_list_name, uint32_t default_action,
                                const char *default_sla_class_name)
{
    if (p_tarn == nullptr || policy_name == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    t_tarn_policy *p_policy = tarn_policy_find(p_tarn, policy_type, policy_name);
    if (p_policy == nullptr)
        return ENOENT;
    if (tarn_policy_vpn_list_find(p_policy, vpn_list_name) != nullptr)
        return EEXIST;
    t_tarn_policy_vpn_list *p_context = make_context(p_policy, vpn_list_name);
    if (p_context == nullptr)
        return ENOMEM;
    write_default_action(p_tarn, p_context->default_action, default_action, default_sla_class_name);
    (void)avl_insert(&p_policy->vpn_list_db, p_context);  // not there, as looked up
    refer_to_policy(p_tarn, p_policy, vpn_list_name);
    return 0;
}

int tarn_policy_vpn_list_change(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                                const char *vpn_list_name, uint32_t default_action,
                                const char *default_sla_class_name)
{
    if (p_tarn == nullptr || policy_name == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    auto [p_policy, p_context] = find_context(p_tarn, policy_type, policy_name, vpn_list_name);
    if (p_context == nullptr)
        return ENOENT;
    write_default_action(p_tarn, p_context->default_action, default_action, default_sla_class_name);
    p_policy->changed = 1;
    p_context->changed = 1;
    return 0;
}

// ---- Deleting ----

// What is in force goes before what it was made from.
static void drop_filter(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context,
                        bool unbind)
{
    tarn_delete_ruletable(std::exchange(p_context->p_table, nullptr));
    if (unbind && p_context->filter_id != TARN_FILTER_ID_NONE) {
        tarn_unbind_policy_from_vpnlist(p_tarn, p_policy, p_context, nullptr);
        p_context->filter_id = TARN_FILTER_ID_NONE;
        p_context->filter_type = TARN_FILTER_INV;
    }
    if (p_context->p_program != nullptr)
        tarn_mem_free(std::exchange(p_context->p_program, nullptr), g_tarn_mem_mgr);
}

static void delete_rules(t_tarn *p_tarn, const t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context)
{
    t_dlnode *p_next = nullptr;
    for (t_dlnode *p_node = p_context->rule_list.p_head; p_node != nullptr; p_node = p_next) {
        p_next = p_node->p_next;
        const t_tarn_config_rule *p_rule = DLL_RECORD(p_node, t_tarn_config_rule, dlnode);
        tarn_config_rule_delete(p_tarn, p_policy->key.type, p_policy->key.name, p_context->key.name,
                                p_rule->key.id);
    }
}

static void forget_policy(t_tarn *p_tarn, const t_tarn_policy *p_policy, const char *vpn_list_name)
{
    t_tarn_vpn_list *p_list = tarn_vpn_list_find(p_tarn, vpn_list_name);
    LUM_ASSERT(p_list != nullptr, "p_vpn_list != NULL");
    t_tarn_policy_ref *p_ref = find_reference(p_list, p_policy);
    LUM_ASSERT(p_ref != nullptr, "p_vpn_list_policy != NULL");
    avl_remove(&p_list->policy_db, p_ref);
    free(p_ref);
}

void tarn_policy_vpn_list_delete(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_context,
                                 e_tarn_context_end end)
{
    bool with_policy = end == TARN_CONTEXT_WITH_POLICY;
    drop_filter(p_tarn, p_policy, p_context, !with_policy || p_policy->key.type != TARN_POLICY_TYPE_ZBF);
    delete_rules(p_tarn, p_policy, p_context);
    avl_remove(&p_policy->vpn_list_db, p_context);
    LUM_ASSERT(avl_numnodes(&p_context->pfx_list_db) == 0, "p_vpn_list_pfx_list == NULL");
    if (with_policy)
        free(std::exchange(p_context->default_action, nullptr));
    forget_policy(p_tarn, p_policy, p_context->key.name);
    // A rule whose list of applications was empty left no field that would have given the use back.
    avl_destroy_nodes(&p_context->dpi_app_list_db, free);
    free(p_context->default_action);
    free(p_context);
}

int tarn_vpn_list_remove_from_policy(t_tarn *p_tarn, e_tarn_policy_type policy_type, const char *policy_name,
                                     const char *vpn_list_name)
{
    if (p_tarn == nullptr || policy_name == nullptr || vpn_list_name == nullptr)
        return EBADMSG;
    auto [p_policy, p_context] = find_context(p_tarn, policy_type, policy_name, vpn_list_name);
    if (p_context == nullptr)
        return ENOENT;
    tarn_policy_vpn_list_delete(p_tarn, p_policy, p_context, TARN_CONTEXT_ALONE);
    return 0;
}
