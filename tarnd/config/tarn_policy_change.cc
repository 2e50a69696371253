// A context made ready for compilation: its filter goes, and what its rules took from elsewhere is taken
// anew.
//
// Match fields that were expanded from lists are thrown away and expanded again, at the end of the rule's
// field list; fields that were configured directly stay. Actions that hold a copy of a class, a mirror, an
// SLA class's id or a TLOC list's elements are refreshed in place.
#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "common/priority_timers.h"
#include "common/strlcpy.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/compiler/tarn_ruletable.h"
#include "tarnd/config/tarn_app_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/peers/tarn_ftm.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// The lists that a rule named, while its fields are away. Records hold no more than a key.
struct t_named_lists {
    avl_tree_t src_pfx;  // t_tarn_pfx_list_ref
    avl_tree_t dst_pfx;
    avl_tree_t app;  // t_tarn_dpi_app_list
    avl_tree_t dns_app;
};

// The context that is being rebuilt.
struct t_rebuild {
    t_tarn *p_tarn;
    t_tarn_policy *p_policy;
    t_tarn_policy_vpn_list *p_vpn_list;
    t_named_lists lists;
};

}  // namespace

static void release_filter(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list)
{
    if (p_vpn_list->filter_id != TARN_FILTER_ID_NONE) {
        tarn_unbind_policy_from_vpnlist(p_tarn, p_policy, p_vpn_list, nullptr);
        p_vpn_list->filter_id = TARN_FILTER_ID_NONE;
        p_vpn_list->filter_type = TARN_FILTER_INV;
    }
    if (p_vpn_list->p_program != nullptr)
        tarn_mem_free(std::exchange(p_vpn_list->p_program, nullptr), g_tarn_mem_mgr);
    tarn_delete_ruletable(std::exchange(p_vpn_list->p_table, nullptr));
}

// Id 0 means that the class was not known when the action was made, except for the class whose id it is.
static void refresh_default_action(t_tarn *p_tarn, t_tarn_config_action *p_action)
{
    if (p_action->fwding_action != TARN_FILTER_ACTION_SLA_CLASS || p_action->sla_class.id != 0 ||
        strncmp(p_action->sla_class.name, TARN_ALL_TUNNELS, TARN_CLASS_NAME_SIZE) == 0)
        return;
    t_tarn_sla_class *p_sla_class = nullptr;
    if (tarn_sla_class_lookup(p_tarn, p_action->sla_class.name, &p_sla_class) == 0)
        p_action->sla_class.id = p_sla_class->id;
}

// ---- Fields ----

// Enters a record that holds the key, unless an equal one is there. Returns whether it was entered.
template <typename T>
static bool remember(avl_tree_t *p_names, const T &wanted)
{
    if (avl_find(p_names, &wanted) != nullptr)
        return false;
    T *p_record = static_cast<T *>(malloc(sizeof(T)));
    LUM_ASSERT(p_record, "p_record");
    *p_record = wanted;
    return avl_insert(p_names, p_record) == 0;
}

// Takes out the first record, or gives null. The caller frees it.
template <typename T>
static T *take_first(avl_tree_t *p_names)
{
    T *p_record = static_cast<T *>(avl_first(p_names));
    if (p_record != nullptr)
        avl_remove(p_names, p_record);
    return p_record;
}

static void forget_pfx_list(t_rebuild *p_rebuild, avl_tree_t *p_names, const char *name)
{
    t_tarn_pfx_list_ref wanted = {};
    lum_strlcpy(wanted.key.name, name, sizeof(wanted.key.name));
    wanted.key.pfx_list_type = tarn_get_pfx_list_type_from_policy_type(p_rebuild->p_policy->key.type);
    remember(p_names, wanted);
    tarn_config_remove_pfx_list_from_policy(p_rebuild->p_tarn, name, p_rebuild->p_policy,
                                            p_rebuild->p_vpn_list);
}

// The rule holds one reference for all of a list's fields.
static void forget_app_list(t_rebuild *p_rebuild, avl_tree_t *p_names, const char *name)
{
    const t_tarn_policy *p_policy = p_rebuild->p_policy;
    if (tarn_app_list_find(p_rebuild->p_tarn, name, TARN_DPI_KEY_LOC_KEELSON) == nullptr)
        return;
    t_tarn_dpi_app_list wanted = {};
    lum_strlcpy(wanted.key.name, name, sizeof(wanted.key.name));
    wanted.key.location = TARN_DPI_KEY_LOC_KEELSON;
    if (remember(p_names, wanted))
        tarn_config_remove_app_list_from_policy(p_rebuild->p_tarn, name, TARN_DPI_KEY_LOC_KEELSON,
                                                p_policy->key.type, p_policy->key.name,
                                                p_rebuild->p_vpn_list->key.name);
}

// Whether the field came from a list; then the list is remembered and the reference given back.
static bool forget_list_of(t_rebuild *p_rebuild, const t_tarn_config_field *p_field)
{
    switch (p_field->f_config_type) {
    case TARN_FIELD_TYPE_SRC_PFX_LIST:
        forget_pfx_list(p_rebuild, &p_rebuild->lists.src_pfx, p_field->name);
        return true;
    case TARN_FIELD_TYPE_DST_PFX_LIST:
        forget_pfx_list(p_rebuild, &p_rebuild->lists.dst_pfx, p_field->name);
        return true;
    case TARN_FIELD_TYPE_DPI_APP_LIST:
        forget_app_list(p_rebuild, &p_rebuild->lists.app, p_field->name);
        return true;
    case TARN_FIELD_TYPE_DPI_DNS_APP_LIST:
        forget_app_list(p_rebuild, &p_rebuild->lists.dns_app, p_field->name);
        return true;
    default:
        return false;
    }
}

static void remove_list_fields(t_rebuild *p_rebuild, t_tarn_config_rule *p_rule)
{
    for (t_dlnode *p_link = p_rule->field_list.p_head; p_link != nullptr;) {
        t_tarn_config_field *p_field = DLL_RECORD(p_link, t_tarn_config_field, dlnode);
        p_link = p_link->p_next;
        if (!forget_list_of(p_rebuild, p_field))
            continue;
        DLL_REMOVE(&p_rule->field_list, &p_field->dlnode);
        free(p_field);
        tarn_exec_priority_timers();  // lists have thousands of members
    }
}

// A list that has gone leaves the rule in silence.
static void expand_pfx_lists(t_rebuild *p_rebuild, t_tarn_config_rule *p_rule, avl_tree_t *p_names,
                             e_tarn_field_type f_type)
{
    while (auto *p_name = take_first<t_tarn_pfx_list_ref>(p_names)) {
        t_tarn_pfx_list *p_list =
            tarn_pfx_list_find(p_rebuild->p_tarn, p_name->key.name, p_name->key.pfx_list_type);
        if (p_list != nullptr)
            tarn_config_pfx_list_fields(p_rebuild->p_tarn, f_type, p_list, p_rule);
        free(p_name);
    }
}

static void expand_app_lists(t_rebuild *p_rebuild, t_tarn_config_rule *p_rule, avl_tree_t *p_names,
                             e_tarn_field_type f_type)
{
    const t_tarn_policy *p_policy = p_rebuild->p_policy;
    while (auto *p_name = take_first<t_tarn_dpi_app_list>(p_names)) {
        int status = tarn_config_add_app_list_to_policy(p_rebuild->p_tarn, p_name->key.name,
                                                        TARN_DPI_KEY_LOC_KEELSON, p_policy->key.type,
                                                        p_policy->key.name, p_rebuild->p_vpn_list->key.name);
        if (status != 0)
            TARN_LOG("Could not add %sapp list %s to policy %s",
                     f_type == TARN_FIELD_TYPE_DPI_DNS_APP_LIST ? "DNS " : "", p_name->key.name,
                     p_policy->key.name);
        tarn_config_field_add(p_rebuild->p_tarn, f_type, &p_name->key, p_rule);
        free(p_name);
    }
}

static void rebuild_fields(t_rebuild *p_rebuild, t_tarn_config_rule *p_rule)
{
    remove_list_fields(p_rebuild, p_rule);
    expand_pfx_lists(p_rebuild, p_rule, &p_rebuild->lists.src_pfx, TARN_FIELD_TYPE_SRC_PFX_LIST);
    expand_pfx_lists(p_rebuild, p_rule, &p_rebuild->lists.dst_pfx, TARN_FIELD_TYPE_DST_PFX_LIST);
    expand_app_lists(p_rebuild, p_rule, &p_rebuild->lists.app, TARN_FIELD_TYPE_DPI_APP_LIST);
    expand_app_lists(p_rebuild, p_rule, &p_rebuild->lists.dns_app, TARN_FIELD_TYPE_DPI_DNS_APP_LIST);
}

// ---- Actions ----

static void refresh_mirror(t_tarn *p_tarn, t_tarn_config_action *p_action)
{
    const t_tarn_mirror_config *p_mirror = tarn_mirror_find(p_tarn, p_action->mirror_config.key.name);
    LUM_ASSERT(p_mirror, "p_mirror");
    p_action->mirror_config = *p_mirror;
}

static void refresh_class(t_tarn *p_tarn, t_tarn_config_action *p_action)
{
    const t_tarn_class *p_class = tarn_class_lookup(p_tarn, p_action->fc.name);
    if (p_class != nullptr)
        p_action->fc = *p_class;
    else
        p_action->fc.ignore = 1;
}

static void refresh_sla_class(t_tarn *p_tarn, t_tarn_config_action *p_action)
{
    t_tarn_sla_class *p_sla_class = nullptr;
    bool found = tarn_sla_class_lookup(p_tarn, p_action->sla_class.name, &p_sla_class) == 0;
    p_action->sla_class.id = found ? p_sla_class->id : 0;
}

static void refresh_tloc_list(t_tarn *p_tarn, t_tarn_config_rule *p_rule, t_tarn_config_action *p_action)
{
    tarn_action_tloc_list_release(p_tarn, p_rule, p_action);
    int status = tarn_action_tloc_list_take(p_tarn, p_rule, p_action);
    LUM_ASSERT(status == 0, "p_tloc");
}

static void refresh_actions(t_tarn *p_tarn, t_tarn_config_rule *p_rule)
{
    for (t_dlnode *p_link = p_rule->action_list.p_head; p_link != nullptr; p_link = p_link->p_next) {
        t_tarn_config_action *p_action = DLL_RECORD(p_link, t_tarn_config_action, dlnode);
        switch (p_action->fwding_action) {
        case TARN_FILTER_ACTION_MIRROR:
            refresh_mirror(p_tarn, p_action);
            break;
        case TARN_FILTER_ACTION_TLOC_LIST:
            refresh_tloc_list(p_tarn, p_rule, p_action);
            break;
        case TARN_FILTER_ACTION_CLASS:
            refresh_class(p_tarn, p_action);
            break;
        case TARN_FILTER_ACTION_SLA_CLASS:
            refresh_sla_class(p_tarn, p_action);
            break;
        default:
            break;
        }
    }
}

static void create_names(t_named_lists *p_lists)
{
    for (avl_tree_t *p_names : {&p_lists->src_pfx, &p_lists->dst_pfx})
        avl_create(p_names, tarn_pfx_list_key_cmp, sizeof(t_tarn_pfx_list_ref),
                   offsetof(t_tarn_pfx_list_ref, avl_node));
    for (avl_tree_t *p_names : {&p_lists->app, &p_lists->dns_app})
        avl_create(p_names, tarn_dpi_app_list_cmp, sizeof(t_tarn_dpi_app_list),
                   offsetof(t_tarn_dpi_app_list, avl_node));
}

int tarn_policy_change(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_policy_vpn_list)
{
    release_filter(p_tarn, p_policy, p_policy_vpn_list);
    refresh_default_action(p_tarn, p_policy_vpn_list->default_action);

    t_rebuild rebuild = {p_tarn, p_policy, p_policy_vpn_list, {}};
    create_names(&rebuild.lists);  // each rule leaves them empty
    t_dlnode *p_link = p_policy_vpn_list->rule_list.p_head;
    for (; p_link != nullptr; p_link = p_link->p_next) {
        t_tarn_config_rule *p_rule = DLL_RECORD(p_link, t_tarn_config_rule, dlnode);
        rebuild_fields(&rebuild, p_rule);
        refresh_actions(p_tarn, p_rule);
        tarn_exec_priority_timers();
    }
    return 0;
}
