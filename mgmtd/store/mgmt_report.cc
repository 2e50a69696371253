#include "mgmtd/store/mgmt_report.h"

#include "mgmtd/store/mgmt_tree_private.h"

// The nodes from the top to a subscription's node.
static std::vector<const t_schema_node *> chain_of(const t_schema_node *p_path)
{
    std::vector<const t_schema_node *> chain;
    for (; p_path != nullptr; p_path = p_path->parent)
        chain.insert(chain.begin(), p_path);
    return chain;
}

static bool is_term(const t_schema_node *p_schema)
{
    return p_schema->kind == SCHEMA_KIND_LEAF || p_schema->kind == SCHEMA_KIND_LEAF_LIST;
}

// ---- Instances ----

// All instances of the chain's rest below a created node.
static void created_collect(const t_mgmt_tree &tree, const lyd_node *p_parent,
                            std::span<const t_schema_node *const> chain,
                            std::vector<t_mgmt_report> *p_reports)
{
    const t_schema_node *p_schema = chain[0];
    const lyd_node *p_first = mgmt_tree_child(tree, p_parent, p_schema);
    if (p_first == nullptr)
        return;
    e_mgmt_report op = is_term(p_schema) ? MGMT_REPORT_VALUE_SET : MGMT_REPORT_CREATED;
    if (p_schema->kind != SCHEMA_KIND_LIST) {
        if (chain.size() == 1)
            p_reports->push_back({op, p_schema, nullptr, p_first, nullptr});
        else
            created_collect(tree, p_first, chain.subspan(1), p_reports);
        return;
    }
    for (const lyd_node *p_entry : mgmt_sorted_instances(p_first, p_schema)) {
        if (chain.size() == 1)
            p_reports->push_back({op, p_schema, nullptr, p_entry, nullptr});
        else
            created_collect(tree, p_entry, chain.subspan(1), p_reports);
    }
}

t_mgmt_report mgmt_report_of(const t_mgmt_diff_node &change)
{
    e_mgmt_report op = static_cast<e_mgmt_report>(change.change);
    if (is_term(change.schema) && change.change != MGMT_DELETED)
        op = MGMT_REPORT_VALUE_SET;
    return {op, change.schema, change.p_old, change.p_new,
            change.change == MGMT_MODIFIED ? &change : nullptr};
}

static void changes_collect(const t_mgmt_diff &diff, const std::vector<t_mgmt_diff_node> &changes,
                            std::span<const t_schema_node *const> chain,
                            std::vector<t_mgmt_report> *p_reports)
{
    for (const t_mgmt_diff_node &change : changes) {
        if (change.schema != chain[0])
            continue;
        if (chain.size() == 1)
            p_reports->push_back(mgmt_report_of(change));
        else if (change.change == MGMT_CREATED)
            created_collect(*diff.new_tree, change.p_new, chain.subspan(1), p_reports);
        else if (change.change == MGMT_MODIFIED)
            changes_collect(diff, change.children, chain.subspan(1), p_reports);
    }
}

std::vector<t_mgmt_report> mgmt_report_instances(const t_mgmt_diff &diff, const t_schema_node *p_path)
{
    std::vector<t_mgmt_report> reports;
    changes_collect(diff, diff.tops, chain_of(p_path), &reports);
    return reports;
}

// ---- Concern ----

static bool created_concerns(const t_mgmt_tree &tree, const lyd_node *p_parent,
                             std::span<const t_schema_node *const> chain)
{
    const t_schema_node *p_schema = chain[0];
    const lyd_node *p_node = mgmt_tree_child(tree, p_parent, p_schema);
    if (p_node == nullptr || chain.size() == 1)
        return p_node != nullptr;
    bool is_list = p_schema->kind == SCHEMA_KIND_LIST;
    for (; p_node != nullptr && p_node->schema == p_schema->yang; p_node = is_list ? p_node->next : nullptr) {
        if (created_concerns(tree, p_node, chain.subspan(1)))
            return true;
    }
    return false;
}

static bool changes_concern(const t_mgmt_diff &diff, const std::vector<t_mgmt_diff_node> &changes,
                            std::span<const t_schema_node *const> chain)
{
    for (const t_mgmt_diff_node &change : changes) {
        if (change.schema != chain[0])
            continue;
        if (chain.size() == 1)
            return true;
        if (change.change == MGMT_CREATED && created_concerns(*diff.new_tree, change.p_new, chain.subspan(1)))
            return true;
        if (change.change == MGMT_MODIFIED && changes_concern(diff, change.children, chain.subspan(1)))
            return true;
    }
    return false;
}

bool mgmt_report_concerns(const t_mgmt_diff &diff, const t_schema_node *p_path)
{
    return p_path == nullptr ? !diff.tops.empty() : changes_concern(diff, diff.tops, chain_of(p_path));
}

// ---- One level below ----

std::vector<t_mgmt_report> mgmt_report_children(const t_mgmt_diff &diff, const t_mgmt_report &report)
{
    std::vector<t_mgmt_report> reports;
    if (report.p_diff != nullptr) {
        for (const t_mgmt_diff_node &child : report.p_diff->children)
            reports.push_back(mgmt_report_of(child));
        return reports;
    }
    if (report.op != MGMT_REPORT_CREATED)
        return reports;
    for (const t_schema_node *p_child : report.schema->children)
        created_collect(*diff.new_tree, report.p_new, std::span(&p_child, 1), &reports);
    return reports;
}

t_mgmt_keypath mgmt_report_keypath(const t_mgmt_diff &diff, const t_mgmt_report &report)
{
    bool is_new = report.p_new != nullptr;
    const t_mgmt_tree &tree = is_new ? *diff.new_tree : *diff.old_tree;
    const lyd_node *p_node = is_new ? report.p_new : report.p_old;
    t_mgmt_keypath keypath = mgmt_keypath_of(tree, p_node);
    // A leaf-list is reported as one node.
    if (report.schema->kind == SCHEMA_KIND_LEAF_LIST)
        keypath.pop_back();
    return keypath;
}
