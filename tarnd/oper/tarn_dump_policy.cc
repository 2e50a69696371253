// Policies with their contexts, rules and uses.
#include "common/priority_timers.h"
#include "tarnd/config/tarn_policy.h"
#include "tarnd/dpi/tarn_dpi_app_list.h"
#include "tarnd/oper/tarn_dump_private.h"
#include "tarnd/peers/tarn_ttm.h"

#include <arpa/inet.h>
#include <cstdio>
#include <iterator>

// ---- Rules ----

static constexpr const char *field_names[] = {
    "min",
    "protocol",
    "source-port",
    "destination-port",
    "source-ip",
    "destination-ip",
    "source-data-prefix-list",
    "destination-data-prefix-list",
    "dscp",
    "class",
    "tcp",
    "packet-length",
    "app",
    "app-family",
    "app-list",
    "any",
    "traffic-class",
    "next-header",
    "plp",
    "dns-app",
    "dns-app-family",
    "dns-app-list",
    "dns",
};
static_assert(std::size(field_names) == TARN_FIELD_TYPE_MAX);

static bool is_prefix(e_tarn_field_type type)
{
    return type == TARN_FIELD_TYPE_SRC_ADDR || type == TARN_FIELD_TYPE_DST_ADDR;
}

static t_tarn_dump_text field_value(const t_tarn_config_field &field)
{
    t_tarn_dump_text result;
    if (is_prefix(field.field_type)) {
        char address[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, field.pfx.prefix_str, address, sizeof(address));
        snprintf(result.text, sizeof(result.text), "%s/%d", address, field.pfx.prefix_len);
    } else {
        snprintf(result.text, sizeof(result.text), "%d-%d", field.range.min_val, field.range.max_val);
    }
    return result;
}

// The type that the compiler sees, the one that was configured with the list that the field came from, the
// value.
static void dump_field(const t_tarn_dump &dump, const t_tarn_config_field &field)
{
    DUMP(dump, "            [%d] %s [%d] %s : %s\n", static_cast<int>(field.field_type),
         field_names[field.field_type], static_cast<int>(field.f_config_type), field.name,
         field_value(field).text);
}

static void dump_rule_line(const t_tarn_dump &dump, const t_tarn_config_rule &rule)
{
    DUMP(dump, "        [%u] %s Match/Field [%d] Action [%d] tloc_db [%d]\n", rule.key.id, rule.key.name,
         rule.field_list.count, rule.action_list.count, tarn_dump_size(rule.tloc_ctx_db));
}

static void dump_actions(const t_tarn_dump &dump, const t_tarn_config_rule &rule)
{
    tarn_dump_list<t_tarn_config_action>(rule.action_list, [&](const t_tarn_config_action &action) {
        tarn_dump_action(dump.ctx, dump.usid, &action);
    });
}

static void dump_rule(const t_tarn_dump &dump, const t_tarn_config_rule &rule)
{
    dump_rule_line(dump, rule);
    DUMP(dump, "          Match Conditions: \n");
    tarn_dump_list<t_tarn_config_field>(rule.field_list,
                                        [&](const t_tarn_config_field &field) { dump_field(dump, field); });
    DUMP(dump, "          Actions:\n");
    dump_actions(dump, rule);
    DUMP(dump, "          TLOC Ctx db (#%d)\n", tarn_dump_size(rule.tloc_ctx_db));
    tarn_dump_tree<t_tarn_config_rule_tloc_ctx>(
        rule.tloc_ctx_db, [&](const t_tarn_config_rule_tloc_ctx &ctx) {
            DUMP(dump, "            Idx: %d %s (#%d)\n", ctx.p_tloc->tloc_index,
                 tarn_dump_tloc_id(ctx.p_tloc->tloc).text, static_cast<int>(ctx.ref_count));
        });
}

// ---- Contexts ----

static void dump_app_lists(const t_tarn_dump &dump, const avl_tree_t &app_lists)
{
    DUMP(dump, "      DPI APP list context db [%d]\n", tarn_dump_size(app_lists));
    tarn_dump_tree<t_tarn_dpi_app_ctx>(app_lists, [&](const t_tarn_dpi_app_ctx &ctx) {
        const t_tarn_dpi_app_list &list = *ctx.p_app_list;
        DUMP(dump, "          AppList: %s Location: %d Ref: %d\n", list.key.name,
             static_cast<int>(list.key.location), ctx.ref_count);
        DUMP(dump, "            Type: %d\n", static_cast<int>(list.type));
    });
}

static void dump_uses(const t_tarn_dump &dump, const t_tarn_policy_vpn_list &context)
{
    DUMP(dump, "      Counter db (#%d)\n", tarn_dump_size(context.counter_db));
    tarn_dump_tree<t_tarn_config_counter_ref>(
        context.counter_db, [&](const t_tarn_config_counter_ref &counter) {
            DUMP(dump, "      [%p] %s (#%d)\n", static_cast<const void *>(&counter), counter.name,
                 static_cast<int>(counter.ref_count));
        });
    dump_app_lists(dump, context.dpi_app_list_db);
}

static void dump_context(const t_tarn_dump &dump, const t_tarn_policy_vpn_list &context)
{
    DUMP(dump, "      Name: %s, FilterId: %d, FilterType: %d, Direction: %d\n", context.key.name,
         context.filter_id, context.filter_type, static_cast<int>(context.direction));
    DUMP(dump, "          Changed: %d\n", context.changed);
    DUMP(dump, "      Rule db #%d\n", tarn_dump_size(context.rule_db));
    tarn_dump_tree<t_tarn_config_rule>(context.rule_db, [&](const t_tarn_config_rule &rule) {
        dump_rule_line(dump, rule);
        dump_actions(dump, rule);
    });
    DUMP(dump, "        Default action %u\n", context.default_action->action);
    // The same rules as the pass goes through them.
    DUMP(dump, "      Rule List\n");
    tarn_dump_list<t_tarn_config_rule>(context.rule_list,
                                       [&](const t_tarn_config_rule &rule) { dump_rule(dump, rule); });
    dump_uses(dump, context);
}

static void dump_policy(const t_tarn_dump &dump, const t_tarn_policy &policy)
{
    DUMP(dump, "  Policy: %s Type: %d Direction: %d Old: %d\n", policy.key.name,
         static_cast<int>(policy.key.type), static_cast<int>(policy.direction),
         static_cast<int>(policy.old_direction));
    DUMP(dump, "    Added: %d Changed: %d\n", policy.added, policy.changed);
    DUMP(dump, "    VPN List db: [%d]\n", tarn_dump_size(policy.vpn_list_db));
    tarn_dump_tree<t_tarn_policy_vpn_list>(
        policy.vpn_list_db, [&](const t_tarn_policy_vpn_list &context) { dump_context(dump, context); });
}

int tarn_dump_policy(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nPolicy Database\n");
    tarn_dump_tree<t_tarn_policy>(dump.p_tarn->policy_db, [&](const t_tarn_policy &policy) {
        tarn_exec_priority_timers();
        dump_policy(dump, policy);
    });
    return 0;
}
