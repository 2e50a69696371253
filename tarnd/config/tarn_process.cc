#include "tarnd/config/tarn_process.h"

#include "common/lum_log.h"
#include "common/priority_timers.h"
#include "fp_api/fp_scaling.h"
#include "lconfd/lconfd_api.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/compiler/tarn_compiler.h"
#include "tarnd/config/tarn_flow.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/core/tarn_system_message.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/oper/tarn_notify.h"
#include "tarnd/peers/tarn_ftm.h"
#include "tarnd/zone/tarn_zbf.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

static constexpr int64_t filter_block_size = 128;

int tarn_process_config(t_tarn *p_tarn)
{
    int status = avl_foreach(&p_tarn->policy_db, tarn_process_policy, p_tarn, nullptr);
    if (status == 0)
        status = avl_foreach(&p_tarn->access_list_db, tarn_process_access_list, p_tarn, nullptr);
    if (status == 0)
        status = avl_foreach(&p_tarn->access_list6_db, tarn_process_access_list, p_tarn, nullptr);
    // Last, since pairs of zones carry the filter ids of policies.
    return status == 0 ? tarn_process_zbf_config(p_tarn) : status;
}

void tarn_confd_sub_end_cb(t_lconfd_context *p_lconfd_ctx, int)
{
    t_tarn *p_tarn = static_cast<t_tarn *>(p_lconfd_ctx->module_data.opaque_p);
    tarn_process_config(p_tarn);
    tarn_dpi_update_knob(p_tarn);
    tarn_config_flow_update_knob(p_tarn);
}

int tarn_process_policy(void *p_node, void *arg1, void *)
{
    t_tarn_policy *p_policy = static_cast<t_tarn_policy *>(p_node);
    if (!p_policy->added && !p_policy->changed)
        return 0;
    int status = avl_foreach(&p_policy->vpn_list_db, tarn_process_policy_vpn_list, arg1, p_policy);
    p_policy->added = 0;
    p_policy->changed = 0;
    return status;
}

// The table's default action is slot 0 of an action record like the rules'.
static t_tarn_ruletable *create_table(const t_tarn_policy *p_policy, const t_tarn_policy_vpn_list *p_vpn_list)
{
    const t_tarn_config_action *p_default = p_vpn_list->default_action;
    t_tarn_filter_action slots[MAX_ACTIONS_IN_RULE];
    memset(slots, 0, sizeof(slots));
    slots[0].action = p_default->action;
    slots[0].fwding_action = p_default->fwding_action;
    if (p_default->fwding_action == TARN_FILTER_ACTION_SLA_CLASS)
        tarn_sla_class_fill(&slots[0].sla_class, &p_default->sla_class);
    char alias[TARN_NAME_SIZE + 16];
    snprintf(alias, sizeof(alias), "%d%s", static_cast<int>(p_policy->key.type), p_vpn_list->key.name);
    return tarn_ruletable_create(p_policy->key.name, alias, sizeof(slots), slots);
}

// False without memory.
static bool fill_table(t_tarn *p_tarn, t_tarn_ruletable *p_table, const t_tarn_policy_vpn_list *p_vpn_list)
{
    for (t_dlnode *p_link = p_vpn_list->rule_list.p_head; p_link != nullptr; p_link = p_link->p_next) {
        const t_tarn_config_rule *p_config_rule = DLL_RECORD(p_link, t_tarn_config_rule, dlnode);
        char name[16];
        snprintf(name, sizeof(name), "%" PRIu32, p_config_rule->key.id);
        t_tarn_rule *p_rule = tarn_rule_create(p_table, name);
        if (p_rule == nullptr)
            return false;
        tarn_process_rule(p_tarn, p_rule, p_config_rule);
        tarn_exec_priority_timers();
    }
    return true;
}

static void wait_for_memory(t_tarn *p_tarn, const t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list,
                            int length)
{
    const char *policy_name = p_policy->key.name;
    const char *list_name = p_vpn_list->key.name;
    int blocks = static_cast<int>((length + filter_block_size - 1) / filter_block_size);
    p_vpn_list->filter_id = g_fp_scaling.num_filters;
    TARN_LOG("Failed to allocate memory [%d/%d] for policy %s - %s. Continuing without the policy.", length,
             blocks, policy_name, list_name);
    tarn_system_message(TARN_MSG_POLICY_NO_MEMORY, policy_name, list_name);
    tarn_notify_data_policy_association_notification(p_tarn, list_name, policy_name, "Failed");
}

static void take_filter(t_tarn *p_tarn, const t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list,
                        bool had_waited)
{
    p_vpn_list->filter_id = p_tarn->p_context->c_filter_id;
    if (!had_waited)
        return;
    tarn_system_message(TARN_MSG_POLICY_REPROGRAMMED, p_policy->key.name, p_vpn_list->key.name);
    tarn_notify_data_policy_association_notification(p_tarn, p_vpn_list->key.name, p_policy->key.name,
                                                     "Success");
}

// Tells who installs the filter. One that waits for memory is announced too, so that the forwarding side
// knows that the policy has none.
static void announce(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list)
{
    if (p_policy->key.type != TARN_POLICY_TYPE_ZBF) {
        tarn_bind_policy_to_vpnlist(p_tarn, p_policy, p_vpn_list, nullptr);
        return;
    }
    p_tarn->process_zbf_config = 1;
    TARN_TRACE(TARN_DEBUG_POLICY, "zone-based policy %s program built filter_id %d\n", p_policy->key.name,
               p_vpn_list->filter_id);
}

static void compile_filter(t_tarn *p_tarn, const t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list,
                           bool had_waited)
{
    void *p_program = p_vpn_list->p_program;
    int length = 0;
    e_tarn_status status = tarn_compile(p_tarn->p_context, p_vpn_list->p_table, &p_program, &length);
    p_vpn_list->p_program = static_cast<t_tarn_program_hdr *>(p_program);
    p_vpn_list->filter_type = tarn_get_filter_type(p_policy->key.type);
    if (status == tarn_status_ok)
        take_filter(p_tarn, p_policy, p_vpn_list, had_waited);
    else
        wait_for_memory(p_tarn, p_policy, p_vpn_list, length);
}

// Rule table, program and binding of a context with rules. 12 without memory for the table; a program that
// finds none is no error.
static int build_filter(t_tarn *p_tarn, t_tarn_policy *p_policy, t_tarn_policy_vpn_list *p_vpn_list,
                        bool had_waited)
{
    t_tarn_ruletable *p_table = create_table(p_policy, p_vpn_list);
    if (p_table == nullptr)
        return ENOMEM;
    if (!fill_table(p_tarn, p_table, p_vpn_list)) {
        tarn_delete_ruletable(p_table);
        p_vpn_list->p_table = nullptr;
        tarn_reinit_context(p_tarn->p_context);
        return ENOMEM;
    }
    p_vpn_list->p_table = p_table;
    compile_filter(p_tarn, p_policy, p_vpn_list, had_waited);
    announce(p_tarn, p_policy, p_vpn_list);
    tarn_reinit_context(p_tarn->p_context);
    return 0;
}

int tarn_process_policy_vpn_list(void *p_node, void *arg1, void *arg2)
{
    t_tarn_policy_vpn_list *p_vpn_list = static_cast<t_tarn_policy_vpn_list *>(p_node);
    t_tarn *p_tarn = static_cast<t_tarn *>(arg1);
    t_tarn_policy *p_policy = static_cast<t_tarn_policy *>(arg2);
    tarn_exec_priority_timers();

    bool had_waited = p_vpn_list->filter_id == g_fp_scaling.num_filters;
    if (p_policy->changed && p_vpn_list->changed)
        tarn_policy_change(p_tarn, p_policy, p_vpn_list);
    if (!p_policy->added && !p_vpn_list->changed)
        return 0;

    // A context emptied of its rules has just lost its filter, and stays so.
    int status = 0;
    if (p_vpn_list->rule_list.count != 0)
        status = build_filter(p_tarn, p_policy, p_vpn_list, had_waited);
    p_vpn_list->changed = 0;
    return status;
}
