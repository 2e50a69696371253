// Compiling a configuration: the rules of /nacm, the groups of /users, the marks of the model.

#include "mgmtd/rights/mgmt_rights_private.h"

#include <algorithm>
#include <sstream>

// ---- Reading the tree ----

// The children of one name below a node; path is the children's in the model.
static std::span<const lyd_node *const> entries_of(const t_mgmt_tree &config, const lyd_node *p_parent,
                                                   const char *p_path)
{
    const t_schema_node *p_schema = schema_find(*config.p_schema, p_path);
    if (p_schema == nullptr || p_parent == nullptr)
        return {};
    return mgmt_tree_entries(config, p_parent, p_schema);
}

// A leaf's text; empty if there is none.
static std::string text_of(const lyd_node *p_parent, std::string_view name)
{
    for (const lyd_node *p_node = lyd_child(p_parent); p_node != nullptr; p_node = p_node->next)
        if (name == p_node->schema->name)
            return lyd_get_value(p_node);
    return "";
}

static const lyd_node *container_of(const t_mgmt_tree &config, const lyd_node *p_parent, const char *p_path)
{
    const t_schema_node *p_schema = schema_find(*config.p_schema, p_path);
    return p_schema != nullptr ? mgmt_tree_child(config, p_parent, p_schema) : nullptr;
}

// ---- Rules ----

static unsigned int access_read(const std::string &text)
{
    static constexpr struct {
        std::string_view name;
        unsigned int access;
    } rows[] = {{"create", ACCESS_CREATE}, {"read", ACCESS_READ}, {"update", ACCESS_UPDATE},
                {"delete", ACCESS_DELETE}, {"exec", ACCESS_EXEC}, {"*", ACCESS_ALL}};
    unsigned int access = 0;
    std::istringstream words(text.empty() ? "*" : text);
    for (std::string word; words >> word;)
        for (const auto &row : rows)
            access |= row.name == word ? row.access : 0u;
    return access;
}

static void kind_read(const t_mgmt_tree &config, const lyd_node *p_rule, t_rule *p_result)
{
    std::string path = text_of(p_rule, "path");
    std::string rpc = text_of(p_rule, "rpc-name");
    std::string notification = text_of(p_rule, "notification-name");
    if (!path.empty())
        p_result->kind = rule_path_read(config, path, p_result) ? RULE_PATH : RULE_NEVER;
    else if (!rpc.empty())
        p_result->kind = RULE_RPC;
    else if (!notification.empty())
        p_result->kind = RULE_NOTIFICATION;
    p_result->name = rpc + notification;
}

static t_rule rule_read(const t_mgmt_tree &config, const lyd_node *p_rule)
{
    t_rule rule = {.kind = RULE_ANY,
                   .name = "",
                   .steps = {},
                   .has_keys = false,
                   .module = text_of(p_rule, "module-name"),
                   .access = access_read(text_of(p_rule, "access-operations")),
                   .is_permit = text_of(p_rule, "action") == "permit"};
    if (rule.module.empty())
        rule.module.assign(1, '*');  // the compiler warns wrongly of an assigned literal
    kind_read(config, p_rule, &rule);
    return rule;
}

static void rules_read(const t_mgmt_tree &config, const lyd_node *p_nacm, t_mgmt_rights *p_rights)
{
    for (const lyd_node *p_list : entries_of(config, p_nacm, "/nacm/rule-list")) {
        t_rule_list list;
        for (const lyd_node *p_group : entries_of(config, p_list, "/nacm/rule-list/group"))
            list.groups.push_back(lyd_get_value(p_group));
        for (const lyd_node *p_rule : entries_of(config, p_list, "/nacm/rule-list/rule"))
            list.rules.push_back(rule_read(config, p_rule));
        p_rights->lists.push_back(std::move(list));
    }
}

// ---- Groups ----

static void group_add(t_mgmt_rights *p_rights, const std::string &user, const std::string &group)
{
    std::vector<std::string> &groups = p_rights->groups_by_user[user];
    if (!group.empty() && std::ranges::find(groups, group) == groups.end())
        groups.push_back(group);
}

static void groups_read(const t_mgmt_tree &config, const lyd_node *p_nacm, t_mgmt_rights *p_rights)
{
    const lyd_node *p_users = container_of(config, nullptr, "/users");
    for (const lyd_node *p_user : entries_of(config, p_users, "/users/user"))
        group_add(p_rights, text_of(p_user, "name"), text_of(p_user, "group"));
    const lyd_node *p_groups = p_nacm != nullptr ? container_of(config, p_nacm, "/nacm/groups") : nullptr;
    for (const lyd_node *p_group : entries_of(config, p_groups, "/nacm/groups/group"))
        for (const lyd_node *p_name : entries_of(config, p_group, "/nacm/groups/group/user-name"))
            group_add(p_rights, lyd_get_value(p_name), text_of(p_group, "name"));
}

// ---- Marks of the model ----

static bool is_marked(const lysc_node *p_node, std::string_view mark)
{
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_node->exts); i++)
        if (mark == p_node->exts[i].def->name &&
            std::string_view(p_node->exts[i].def->module->name) == "ietf-netconf-acm")
            return true;
    return false;
}

static void marks_read(const lysc_node *p_first, t_mgmt_rights *p_rights)
{
    for (const lysc_node *p_node = p_first; p_node != nullptr; p_node = p_node->next) {
        if (p_rights->denied.contains(p_node->parent) || is_marked(p_node, "default-deny-all"))
            p_rights->denied.insert(p_node);
        if (p_rights->denied_write.contains(p_node->parent) || is_marked(p_node, "default-deny-write"))
            p_rights->denied_write.insert(p_node);
        marks_read(lysc_node_child(p_node), p_rights);
        marks_read(reinterpret_cast<const lysc_node *>(lysc_node_actions(p_node)), p_rights);
        marks_read(reinterpret_cast<const lysc_node *>(lysc_node_notifs(p_node)), p_rights);
    }
}

static void model_read(const ly_ctx *p_context, t_mgmt_rights *p_rights)
{
    uint32_t i = 0;
    while (const lys_module *p_module = ly_ctx_get_module_iter(p_context, &i)) {
        if (!p_module->implemented || p_module->compiled == nullptr)
            continue;
        marks_read(p_module->compiled->data, p_rights);
        marks_read(reinterpret_cast<const lysc_node *>(p_module->compiled->rpcs), p_rights);
        marks_read(reinterpret_cast<const lysc_node *>(p_module->compiled->notifs), p_rights);
    }
}

// ---- All ----

mgmt_rights_ptr mgmt_rights_new(const t_mgmt_tree &config, const mgmt_rights_ptr &before)
{
    auto rights = std::make_shared<t_mgmt_rights>();
    rights->p_schema = config.p_schema;
    rights->denials = before != nullptr ? before->denials : std::make_shared<t_denials>();
    const lyd_node *p_nacm = container_of(config, nullptr, "/nacm");
    if (p_nacm != nullptr) {
        rights->permits_read = text_of(p_nacm, "read-default") == "permit";
        rights->permits_write = text_of(p_nacm, "write-default") == "permit";
        rights->permits_exec = text_of(p_nacm, "exec-default") == "permit";
        if (text_of(p_nacm, "enable-nacm") != "false")
            rules_read(config, p_nacm, rights.get());
    }
    groups_read(config, p_nacm, rights.get());
    model_read(config.p_context, rights.get());
    return rights;
}
