// Verdicts: rules first, then marks of the model, then built-in groups, then the defaults.

#include "mgmtd/rights/mgmt_rights.h"

#include "mgmtd/engine/mgmt_engine.h"
#include "mgmtd/rights/mgmt_rights_private.h"

#include <algorithm>

// ---- Who asks ----

t_mgmt_subject mgmt_rights_subject(const t_mgmt_rights &rights, const std::string &user)
{
    t_mgmt_subject subject = {.user = user, .groups = {}, .is_recovery = false};
    auto groups = rights.groups_by_user.find(user);
    if (groups != rights.groups_by_user.end())
        subject.groups = groups->second;
    return subject;
}

static bool has_group(const t_mgmt_subject &subject, std::string_view group)
{
    return std::ranges::find(subject.groups, group) != subject.groups.end();
}

t_asker rights_asker(const t_mgmt_rights &rights, const t_mgmt_subject &subject)
{
    t_asker asker = {.rights = rights,
                     .rules = {},
                     .is_anybody = !subject.groups.empty(),
                     .is_admin = has_group(subject, "admin"),
                     .is_operator = has_group(subject, "operator"),
                     .is_reader = false};
    asker.is_reader = asker.is_admin || asker.is_operator || has_group(subject, "read-only");
    if (!asker.is_anybody)
        return asker;
    for (const t_rule_list &list : rights.lists) {
        bool is_meant = std::ranges::any_of(
            list.groups, [&](const std::string &group) { return group == "*" || has_group(subject, group); });
        for (const t_rule &rule : list.rules)
            if (is_meant && rule.kind != RULE_NEVER)
                asker.rules.push_back(&rule);
    }
    return asker;
}

bool rights_all(const t_asker &asker, unsigned int access)
{
    return asker.is_admin && std::ranges::none_of(asker.rules, [&](const t_rule *p_rule) {
               return !p_rule->is_permit && (p_rule->access & access) != 0;
           });
}

// ---- Rules ----

static bool is_named(const std::string &wanted, const char *p_name)
{
    return wanted == "*" || wanted == p_name;
}

// As rule_path_matches.
static e_verdict rule_matches(const t_rule &rule, e_access access, const lysc_node *p_schema,
                              const lyd_node *p_node)
{
    if ((rule.access & access) == 0 || !is_named(rule.module, p_schema->module->name))
        return VERDICT_DENY;
    bool fits = true;
    if (rule.kind == RULE_PATH)
        return rule_path_matches(rule, p_schema, p_node);
    if (rule.kind == RULE_RPC)
        fits = p_schema->nodetype == LYS_RPC && is_named(rule.name, p_schema->name);
    if (rule.kind == RULE_NOTIFICATION)
        fits = p_schema->nodetype == LYS_NOTIF && is_named(rule.name, p_schema->name);
    return fits ? VERDICT_PERMIT : VERDICT_DENY;
}

// What the first rule that matches says; VERDICT_DENY if none does.
static e_verdict rules_verdict(const t_asker &asker, e_access access, const lysc_node *p_schema,
                               const lyd_node *p_node)
{
    for (const t_rule *p_rule : asker.rules) {
        e_verdict match = rule_matches(*p_rule, access, p_schema, p_node);
        if (match == VERDICT_DEPENDS)
            return match;
        if (match == VERDICT_PERMIT)
            return p_rule->is_permit ? VERDICT_PERMIT : VERDICT_DENY_RULE;
    }
    return VERDICT_DENY;
}

static e_verdict verdict_of(bool permits)
{
    return permits ? VERDICT_PERMIT : VERDICT_DENY;
}

e_verdict rights_data(const t_asker &asker, e_access access, const lysc_node *p_schema,
                      const lyd_node *p_node)
{
    e_verdict verdict = rules_verdict(asker, access, p_schema, p_node);
    if (verdict != VERDICT_DENY || asker.is_admin)
        return verdict != VERDICT_DENY ? verdict : VERDICT_PERMIT;
    bool is_read = access == ACCESS_READ;
    if (!asker.is_anybody || asker.rights.denied.contains(p_schema) ||
        (!is_read && asker.rights.denied_write.contains(p_schema)))
        return VERDICT_DENY;
    return verdict_of(is_read ? asker.is_reader || asker.rights.permits_read : asker.rights.permits_write);
}

// ---- Operations ----

namespace {

struct t_operation {
    std::string_view module;
    std::string_view name;
};

}  // namespace

static constexpr t_operation close_session = {"ietf-netconf", "close-session"};

// What who may only read can call.
static constexpr t_operation readers_operations[] = {{"ietf-netconf", "get"},
                                                     {"ietf-netconf", "get-config"},
                                                     {"ietf-netconf-monitoring", "get-schema"},
                                                     {"notifications", "create-subscription"}};

// As if they had a default-deny-all mark.
static constexpr t_operation admins_operations[] = {{"ietf-netconf", "kill-session"},
                                                    {"ietf-netconf", "delete-config"}};

static bool is_operation(const lysc_node *p_node, const t_operation &operation)
{
    return operation.name == p_node->name && operation.module == p_node->module->name;
}

static bool is_among(const lysc_node *p_node, std::span<const t_operation> operations)
{
    return std::ranges::any_of(operations, [&](const t_operation &row) { return is_operation(p_node, row); });
}

// Whether "clear", "debug" or "dump" is a word of the action's name: "tarn-clear-policy-acl".
static bool is_operators(const t_mgmt_rights &rights, const lysc_node *p_operation)
{
    std::string name = "-" + std::string(p_operation->name) + "-";
    return schema_node_of(*rights.p_schema, p_operation) != nullptr &&
           (name.find("-clear-") != std::string::npos || name.find("-debug-") != std::string::npos ||
            name.find("-dump-") != std::string::npos);
}

static bool exec_is_permitted(const t_asker &asker, const lysc_node *p_operation)
{
    if (is_operation(p_operation, close_session))
        return true;
    if (!asker.is_anybody)
        return false;
    // No instance is known here: a rule with keys counts when it denies.
    for (const t_rule *p_rule : asker.rules) {
        e_verdict match = rule_matches(*p_rule, ACCESS_EXEC, p_operation, nullptr);
        if (match == VERDICT_PERMIT || (match == VERDICT_DEPENDS && !p_rule->is_permit))
            return p_rule->is_permit;
    }
    if (asker.is_admin)
        return true;
    if (asker.rights.denied.contains(p_operation) || is_among(p_operation, admins_operations))
        return false;
    return (asker.is_reader && is_among(p_operation, readers_operations)) ||
           (asker.is_operator && is_operators(asker.rights, p_operation)) || asker.rights.permits_exec;
}

bool mgmt_rights_exec(const t_mgmt_rights &rights, const t_mgmt_subject &subject,
                      const lysc_node *p_operation, t_mgmt_error *p_error)
{
    if (subject.is_recovery || exec_is_permitted(rights_asker(rights, subject), p_operation))
        return true;
    rights.denials->operations++;
    const t_schema_node *p_schema = schema_node_of(*rights.p_schema, p_operation);
    return mgmt_fail(p_error, MGMT_ERR_ACCESS_DENIED,
                     p_schema != nullptr ? p_schema->path : "/" + std::string(p_operation->name),
                     "access denied: user " + subject.user + " may not call it");
}

// ---- Notifications ----

static bool notification_is_permitted(const t_asker &asker, const lysc_node *p_notification)
{
    // They end what the subscriber was permitted to begin.
    if (std::string_view(p_notification->module->name) == "nc-notifications")
        return true;
    return rights_data(asker, ACCESS_READ, p_notification, nullptr) == VERDICT_PERMIT;
}

bool mgmt_rights_notified(const t_mgmt_rights &rights, const t_mgmt_subject &subject,
                          const lysc_node *p_notification)
{
    if (subject.is_recovery || notification_is_permitted(rights_asker(rights, subject), p_notification))
        return true;
    rights.denials->notifications++;
    return false;
}

// ---- Counters ----

t_mgmt_denials mgmt_rights_denials(const t_mgmt_rights &rights)
{
    return {rights.denials->operations, rights.denials->writes, rights.denials->notifications};
}

void mgmt_rights_add_state(const t_mgmt_rights &rights, t_mgmt_tree *p_tree)
{
    t_mgmt_denials denials = mgmt_rights_denials(rights);
    const std::pair<const char *, uint32_t> rows[] = {
        {"/ietf-netconf-acm:nacm/denied-operations", denials.operations},
        {"/ietf-netconf-acm:nacm/denied-data-writes", denials.writes},
        {"/ietf-netconf-acm:nacm/denied-notifications", denials.notifications},
    };
    for (const auto &[p_path, count] : rows) {
        lyd_node *p_new = nullptr;
        std::string text = std::to_string(count);
        if (lyd_new_path(p_tree->p_first, p_tree->p_context, p_path, text.c_str(), LYD_NEW_PATH_UPDATE,
                         &p_new) == LY_SUCCESS &&
            p_new != nullptr && lyd_parent(p_new) == nullptr)
            lyd_insert_sibling(p_tree->p_first, p_new, &p_tree->p_first);
    }
    mgmt_tree_changed(p_tree);
}
