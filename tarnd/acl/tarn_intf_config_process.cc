// Access lists in the pass: what rules took from lists and mirrors is taken anew, then the list is compiled
// and announced.
//
// Classes and applications are not taken anew: rules keep what they were made with. A list without rules has
// no program and is announced to nobody, but keeps the id of its last program.
#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "common/priority_timers.h"
#include "fp_api/fp_scaling.h"
#include "tarnd/acl/tarn_access_list_lists.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/compiler/tarn_compiler.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/core/tarn.h"
#include "tarnd/core/tarn_system_message.h"
#include "tarnd/oper/tarn_notify.h"
#include "tarnd/peers/tarn_ftm.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>

static t_tarn_config_rule *rule_of(t_dlnode *p_node)
{
    return DLL_RECORD(p_node, t_tarn_config_rule, dlnode);
}

// ---- Compilation ----

static t_tarn_ruletable *create_table(const t_tarn_access_list *p_access_list)
{
    t_tarn_filter_action slots[MAX_ACTIONS_IN_RULE];
    static_assert(sizeof(slots) == 3072);
    memset(slots, 0, sizeof(slots));
    slots[0].action = p_access_list->default_action->action;
    char alias[16];
    snprintf(alias, sizeof(alias), "%d", static_cast<int>(p_access_list->key.af_type));
    return tarn_ruletable_create(p_access_list->key.name, alias, sizeof(slots), slots);
}

// False without memory. A long list must not hold the urgent timers up.
static bool fill_table(t_tarn *p_tarn, t_tarn_ruletable *p_table, const t_tarn_access_list *p_access_list)
{
    for (t_dlnode *p_node = p_access_list->rule_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        char name[16];
        snprintf(name, sizeof(name), "%" PRIu32, rule_of(p_node)->key.id);
        t_tarn_rule *p_rule = tarn_rule_create(p_table, name);
        if (p_rule == nullptr)
            return false;
        tarn_process_rule(p_tarn, p_rule, rule_of(p_node));
        tarn_exec_priority_timers();
    }
    return true;
}

static void wait_for_memory(t_tarn *p_tarn, t_tarn_access_list *p_access_list, int length)
{
    static constexpr int filter_block_size = 128;
    const char *name = p_access_list->key.name;
    p_access_list->filter_id = g_fp_scaling.num_filters;
    TARN_LOG("Failed to allocate program memory [%d/%d] for access list - %s. Continuing without the "
             "access-list.",
             length, (length + filter_block_size - 1) / filter_block_size, name);
    tarn_system_message(TARN_MSG_ACL_NO_MEMORY, name);
    tarn_notify_access_list_association_notification(p_tarn, name, "Failed");
}

static void take_filter(t_tarn *p_tarn, t_tarn_access_list *p_access_list, bool had_waited)
{
    p_access_list->filter_id = p_tarn->p_context->c_filter_id;
    if (!had_waited)
        return;
    tarn_system_message(TARN_MSG_ACL_REPROGRAMMED, p_access_list->key.name);
    tarn_notify_access_list_association_notification(p_tarn, p_access_list->key.name, "Success");
}

static void compile(t_tarn *p_tarn, t_tarn_access_list *p_access_list, bool had_waited)
{
    void *p_program = nullptr;
    int length = 0;
    e_tarn_status status = tarn_compile(p_tarn->p_context, p_access_list->p_table, &p_program, &length);
    p_access_list->p_program = static_cast<t_tarn_program_hdr *>(p_program);
    if (status == tarn_status_ok)
        take_filter(p_tarn, p_access_list, had_waited);
    else
        wait_for_memory(p_tarn, p_access_list, length);
}

int tarn_process_access_list_add(t_tarn *p_tarn, t_tarn_access_list *p_access_list)
{
    bool had_waited = p_access_list->filter_id == g_fp_scaling.num_filters;
    tarn_exec_priority_timers();
    LUM_ASSERT(p_access_list->p_program == nullptr, "p_access_list->p_program == NULL");
    if (p_access_list->rule_list.count == 0)
        return 0;

    t_tarn_ruletable *p_table = create_table(p_access_list);
    if (p_table == nullptr)
        return ENOMEM;
    if (!fill_table(p_tarn, p_table, p_access_list)) {
        tarn_delete_ruletable(p_table);
        p_access_list->p_table = nullptr;
        tarn_reinit_context(p_tarn->p_context);
        return ENOMEM;
    }
    p_access_list->p_table = p_table;
    compile(p_tarn, p_access_list, had_waited);
    // One that waits is announced too, so that the forwarding side knows that it has no program.
    tarn_bind_acl(p_access_list, p_tarn, nullptr);
    tarn_reinit_context(p_tarn->p_context);
    tarn_delete_ruletable(std::exchange(p_access_list->p_table, nullptr));
    tarn_reinit_context(p_tarn->p_context);
    return 0;
}

// ---- Taking anew ----

namespace {

// The prefix lists that a rule named, while its fields are away.
struct t_named_lists {
    std::set<std::string> src;
    std::set<std::string> dst;
};

}  // namespace

static t_named_lists remove_list_fields(t_tarn *p_tarn, t_tarn_config_rule *p_rule)
{
    t_named_lists names;
    for (t_dlnode *p_node = p_rule->field_list.p_head; p_node != nullptr;) {
        t_tarn_config_field *p_field = DLL_RECORD(p_node, t_tarn_config_field, dlnode);
        p_node = p_node->p_next;
        bool is_src = p_field->f_config_type == TARN_FIELD_TYPE_SRC_PFX_LIST;
        if (!is_src && p_field->f_config_type != TARN_FIELD_TYPE_DST_PFX_LIST)
            continue;
        (is_src ? names.src : names.dst).insert(p_field->name);
        tarn_intf_config_remove_pfx_list_from_acl(p_tarn, p_field->name, p_rule->access_list);
        DLL_REMOVE(&p_rule->field_list, &p_field->dlnode);
        free(p_field);
        tarn_exec_priority_timers();  // lists have thousands of members
    }
    return names;
}

// A list that has gone leaves the rule in silence.
static void expand(t_tarn *p_tarn, t_tarn_config_rule *p_rule, e_tarn_field_type f_type,
                   const std::set<std::string> &names)
{
    for (const std::string &name : names) {
        t_tarn_pfx_list *p_list = tarn_pfx_list_find(p_tarn, name.c_str(), TARN_POLICY_PFX_LIST_TYPE_LOCAL);
        if (p_list != nullptr)
            tarn_config_pfx_list_fields(p_tarn, f_type, p_list, p_rule);
    }
}

static void refresh_mirrors(t_tarn *p_tarn, t_tarn_config_rule *p_rule)
{
    for (t_dlnode *p_node = p_rule->action_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        t_tarn_config_action *p_action = DLL_RECORD(p_node, t_tarn_config_action, dlnode);
        if (p_action->fwding_action != TARN_FILTER_ACTION_MIRROR)
            continue;
        const t_tarn_mirror_config *p_mirror = tarn_mirror_find(p_tarn, p_action->mirror_config.key.name);
        LUM_ASSERT(p_mirror != nullptr, "p_mirror");
        p_action->mirror_config = *p_mirror;
    }
}

static void refresh_rules(t_tarn *p_tarn, t_tarn_access_list *p_access_list)
{
    for (t_dlnode *p_node = p_access_list->rule_list.p_head; p_node != nullptr; p_node = p_node->p_next) {
        t_named_lists names = remove_list_fields(p_tarn, rule_of(p_node));
        expand(p_tarn, rule_of(p_node), TARN_FIELD_TYPE_SRC_PFX_LIST, names.src);
        expand(p_tarn, rule_of(p_node), TARN_FIELD_TYPE_DST_PFX_LIST, names.dst);
        refresh_mirrors(p_tarn, rule_of(p_node));
    }
}

int tarn_process_access_list_change(t_tarn *p_tarn, t_tarn_access_list *p_access_list)
{
    tarn_exec_priority_timers();
    if (p_access_list->filter_id != g_fp_scaling.num_filters && !p_access_list->added &&
        !p_access_list->changed)
        return 0;
    if (p_access_list->filter_id != TARN_FILTER_ID_NONE) {
        int status = tarn_unbind_acl(p_tarn, p_access_list);
        if (status != 0) {
            TARN_LOG("Failed to unbind filter %d from all interfaces\n", p_access_list->filter_id);
            return status;
        }
    }
    if (p_access_list->p_program != nullptr)
        tarn_mem_free(std::exchange(p_access_list->p_program, nullptr), g_tarn_mem_mgr);
    tarn_delete_ruletable(std::exchange(p_access_list->p_table, nullptr));
    if (p_access_list->rule_list.count == 0)
        return 0;
    refresh_rules(p_tarn, p_access_list);
    return tarn_process_access_list_add(p_tarn, p_access_list);
}

int tarn_process_access_list(void *p_node, void *arg1, void *)
{
    auto *p_access_list = static_cast<t_tarn_access_list *>(p_node);
    auto *p_tarn = static_cast<t_tarn *>(arg1);
    if (!p_access_list->added && !p_access_list->changed)
        return 0;
    int status = p_access_list->added ? tarn_process_access_list_add(p_tarn, p_access_list)
                                      : tarn_process_access_list_change(p_tarn, p_access_list);
    p_access_list->added = 0;
    p_access_list->changed = 0;
    return status;
}
