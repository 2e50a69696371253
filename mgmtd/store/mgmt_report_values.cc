// The values of reports.

#include "mgmtd/store/mgmt_report.h"
#include "mgmtd/store/mgmt_tree_private.h"

static confd_value_t plain_value(confd_vtype type)
{
    confd_value_t value = {};
    value.type = type;
    return value;
}

static void value_add(t_mgmt_values *p_values, const t_schema_node *p_schema, const confd_value_t &value)
{
    p_values->items.push_back({{p_schema->tag, p_schema->ns}, value});
}

// The bracket of a container.
static void bracket_add(t_mgmt_values *p_values, const t_schema_node *p_schema, confd_vtype type)
{
    confd_value_t value = plain_value(type);
    value.val.xmltag = {p_schema->tag, p_schema->ns};
    value_add(p_values, p_schema, value);
}

// Takes back the opening bracket of a container if nothing followed it; closes it otherwise.
static void bracket_close(t_mgmt_values *p_values, const t_schema_node *p_schema, size_t start)
{
    if (p_values->items.size() == start + 1)
        p_values->items.pop_back();
    else
        bracket_add(p_values, p_schema, C_XMLEND);
}

static confd_value_t term_value(const t_mgmt_tree &tree, const t_schema_node *p_schema,
                                const lyd_node *p_node, t_mgmt_values *p_values)
{
    if (p_node == nullptr || !(p_schema->kind == SCHEMA_KIND_LEAF || p_schema->kind == SCHEMA_KIND_LEAF_LIST))
        return plain_value(C_NOEXISTS);
    if (p_schema->kind == SCHEMA_KIND_LEAF)
        return mgmt_value_of(p_schema, p_node);
    return mgmt_value_of_list(tree, lyd_parent(p_node), p_schema, p_values);
}

// All leaves of an instance and its containers, or, when it is gone, their absence.
static void content_add(const t_mgmt_tree &tree, const lyd_node *p_instance, bool is_gone,
                        t_mgmt_values *p_values)
{
    const lysc_node *p_last = nullptr;
    for (const lyd_node *p_node = lyd_child(p_instance); p_node != nullptr; p_node = p_node->next) {
        const t_schema_node *p_schema = p_node->schema != p_last ? mgmt_node_schema(tree, p_node) : nullptr;
        p_last = p_node->schema;
        if (p_schema == nullptr || p_schema->kind == SCHEMA_KIND_LIST)
            continue;
        if (p_schema->kind == SCHEMA_KIND_CONTAINER) {
            size_t start = p_values->items.size();
            bracket_add(p_values, p_schema, C_XMLBEGIN);
            content_add(tree, p_node, is_gone, p_values);
            bracket_close(p_values, p_schema, start);
            continue;
        }
        value_add(p_values, p_schema,
                  is_gone ? plain_value(C_NOEXISTS) : term_value(tree, p_schema, p_node, p_values));
    }
}

static void changes_add(const t_mgmt_diff &diff, const std::vector<t_mgmt_diff_node> &changes,
                        t_mgmt_values *p_values)
{
    for (const t_mgmt_diff_node &change : changes) {
        if (change.schema->kind == SCHEMA_KIND_LIST)
            continue;
        if (change.schema->kind != SCHEMA_KIND_CONTAINER) {
            value_add(p_values, change.schema,
                      term_value(*diff.new_tree, change.schema, change.p_new, p_values));
            continue;
        }
        size_t start = p_values->items.size();
        bracket_add(p_values, change.schema, C_XMLBEGIN);
        changes_add(diff, change.children, p_values);
        bracket_close(p_values, change.schema, start);
    }
}

t_mgmt_values mgmt_report_modifications(const t_mgmt_diff &diff, const t_mgmt_report &report)
{
    t_mgmt_values values;
    if (report.schema->kind == SCHEMA_KIND_LEAF || report.schema->kind == SCHEMA_KIND_LEAF_LIST)
        value_add(&values, report.schema, term_value(*diff.new_tree, report.schema, report.p_new, &values));
    else if (report.p_diff != nullptr)
        changes_add(diff, report.p_diff->children, &values);
    else if (report.op == MGMT_REPORT_CREATED)
        content_add(*diff.new_tree, report.p_new, false, &values);
    else
        content_add(*diff.old_tree, report.p_old, true, &values);
    return values;
}

confd_value_t mgmt_report_old_value(const t_mgmt_diff &diff, const t_mgmt_report &report,
                                    t_mgmt_values *p_values)
{
    return term_value(*diff.old_tree, report.schema, report.p_old, p_values);
}

confd_value_t mgmt_report_new_value(const t_mgmt_diff &diff, const t_mgmt_report &report,
                                    t_mgmt_values *p_values)
{
    return term_value(*diff.new_tree, report.schema, report.p_new, p_values);
}
