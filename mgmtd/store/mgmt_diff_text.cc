// Differences as edits and as text.

#include "mgmtd/store/mgmt_diff.h"
#include "mgmtd/store/mgmt_tree_private.h"

// ---- Edits ----

static std::vector<std::string> keys_of(const t_schema_node *p_schema, const lyd_node *p_node)
{
    std::vector<std::string> keys;
    if (p_schema->kind == SCHEMA_KIND_LEAF || p_schema->kind == SCHEMA_KIND_LEAF_LIST)
        keys.emplace_back(mgmt_node_text(p_node));
    const lyd_node *p_key = p_schema->kind == SCHEMA_KIND_LIST ? lyd_child(p_node) : nullptr;
    for (size_t i = 0; i < p_schema->keys.size(); i++, p_key = p_key->next)
        keys.emplace_back(mgmt_node_text(p_key));
    return keys;
}

// A subtree as it stands, to be made.
static void subtree_edit(const t_mgmt_tree &tree, const lyd_node *p_node, e_mgmt_op op,
                         std::vector<t_mgmt_edit_node> *p_nodes)
{
    const t_schema_node *p_schema = mgmt_node_schema(tree, p_node);
    if (p_schema == nullptr || p_schema->key || mgmt_node_is_empty(p_node))
        return;
    t_mgmt_edit_node &node = p_nodes->emplace_back();
    node.schema = p_schema;
    node.op = op;
    node.keys = keys_of(p_schema, p_node);
    bool has_children = p_schema->kind == SCHEMA_KIND_CONTAINER || p_schema->kind == SCHEMA_KIND_LIST;
    const lyd_node *p_child = has_children ? lyd_child(p_node) : nullptr;
    for (; p_child != nullptr; p_child = p_child->next)
        subtree_edit(tree, p_child, MGMT_OP_MERGE, &node.children);
}

static void diff_edit(const t_mgmt_diff &diff, const t_mgmt_diff_node &change,
                      std::vector<t_mgmt_edit_node> *p_nodes)
{
    if (change.schema->kind == SCHEMA_KIND_LEAF_LIST) {
        t_mgmt_edit_node &node = p_nodes->emplace_back();
        node = {change.schema, MGMT_OP_REMOVE, true, {}, MGMT_INSERT_STAY, {}, {}};
        for (const lyd_node *p_node = change.p_new;
             p_node != nullptr && p_node->schema == change.schema->yang; p_node = p_node->next)
            subtree_edit(*diff.new_tree, p_node, MGMT_OP_MERGE, p_nodes);
        return;
    }
    if (change.change == MGMT_CREATED) {
        subtree_edit(*diff.new_tree, change.p_new, MGMT_OP_MERGE, p_nodes);
        return;
    }
    const lyd_node *p_present = change.p_new != nullptr ? change.p_new : change.p_old;
    t_mgmt_edit_node &node = p_nodes->emplace_back();
    node.schema = change.schema;
    node.keys = keys_of(change.schema, p_present);
    if (change.change == MGMT_DELETED) {
        node.op = MGMT_OP_REMOVE;
        return;
    }
    node.op = change.schema->kind == SCHEMA_KIND_LEAF ? MGMT_OP_MERGE : MGMT_OP_NONE;
    for (const t_mgmt_diff_node &child : change.children)
        diff_edit(diff, child, &node.children);
}

std::vector<t_mgmt_edit> mgmt_diff_edits(const t_mgmt_diff &diff)
{
    std::vector<t_mgmt_edit> edits(1);
    for (const t_mgmt_diff_node &change : diff.tops)
        diff_edit(diff, change, &edits[0].tops);
    return edits;
}

// ---- Text ----

static void subtree_print(const t_mgmt_tree &tree, const lyd_node *p_node, const char *p_sign,
                          std::string *p_text)
{
    const t_schema_node *p_schema = mgmt_node_schema(tree, p_node);
    if (p_schema == nullptr || p_schema->key)
        return;
    bool is_leaf = p_schema->kind == SCHEMA_KIND_LEAF;
    if (p_schema->kind != SCHEMA_KIND_CONTAINER)
        *p_text += p_sign + mgmt_node_path(tree, p_node);
    if (is_leaf && p_schema->value != SCHEMA_VALUE_EMPTY)
        *p_text += std::string(" ") + mgmt_node_text(p_node);
    if (p_schema->kind != SCHEMA_KIND_CONTAINER)
        *p_text += "\n";
    for (const t_schema_node *p_child_schema : p_schema->children) {
        const lyd_node *p_first = mgmt_tree_child(tree, p_node, p_child_schema);
        for (const lyd_node *p_child : mgmt_sorted_instances(p_first, p_child_schema))
            subtree_print(tree, p_child, p_sign, p_text);
    }
}

static void elements_print(const t_mgmt_tree &tree, const lyd_node *p_first, const t_schema_node *p_schema,
                           const lyd_node *p_others, const char *p_sign, std::string *p_text)
{
    for (const lyd_node *p_node : mgmt_sorted_instances(p_first, p_schema)) {
        if (p_others == nullptr || mgmt_like_find(p_others, p_node) == nullptr)
            subtree_print(tree, p_node, p_sign, p_text);
    }
}

static void change_print(const t_mgmt_diff &diff, const t_mgmt_diff_node &change, std::string *p_text)
{
    if (change.schema->kind == SCHEMA_KIND_LEAF_LIST) {
        elements_print(*diff.old_tree, change.p_old, change.schema, change.p_new, "- ", p_text);
        elements_print(*diff.new_tree, change.p_new, change.schema, change.p_old, "+ ", p_text);
        return;
    }
    if (change.change == MGMT_MODIFIED && change.schema->kind != SCHEMA_KIND_LEAF) {
        for (const t_mgmt_diff_node &child : change.children)
            change_print(diff, child, p_text);
        return;
    }
    if (change.p_old != nullptr)
        subtree_print(*diff.old_tree, change.p_old, "- ", p_text);
    if (change.p_new != nullptr)
        subtree_print(*diff.new_tree, change.p_new, "+ ", p_text);
}

void mgmt_diff_print(const t_mgmt_diff &diff, std::string *p_text)
{
    for (const t_mgmt_diff_node &change : diff.tops)
        change_print(diff, change, p_text);
}
