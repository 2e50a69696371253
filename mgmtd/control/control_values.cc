#include "mgmtd/control/control_values.h"

#include "mgmtd/control/control_request.h"
#include "mgmtd/control/control_schema.h"

#include <libyang/libyang.h>
#include <nlohmann/json.hpp>

static void value_add(const char *text, t_control_values *p_values)
{
    if (!std::string_view(text).starts_with(p_values->prefix) || p_values->seen.contains(text))
        return;
    if (p_values->values.size() >= CONTROL_MAX_VALUES) {
        p_values->more = true;
        return;
    }
    p_values->seen.insert(text);
    p_values->values.emplace_back(text);
}

// ---- Lists ----

// The key of an entry behind those that are given, or null where these differ.
static const lyd_node *key_behind(const lyd_node *p_entry, const std::vector<std::string> &keys)
{
    const lyd_node *p_key = lyd_child(p_entry);
    for (const std::string &given : keys) {
        if (p_key == nullptr || given != mgmt_node_text(p_key))
            return nullptr;
        p_key = p_key->next;
    }
    return p_key;
}

static void entries_add(const t_mgmt_tree &tree, const t_mgmt_place &place,
                        const std::vector<std::string> &keys, t_control_values *p_values)
{
    bool is_list = place.schema->kind == SCHEMA_KIND_LIST;
    for (const lyd_node *p_entry : mgmt_tree_entries(tree, place.p_parent, place.schema)) {
        const lyd_node *p_value = is_list ? key_behind(p_entry, keys) : p_entry;
        if (p_value != nullptr)
            value_add(mgmt_node_text(p_value), p_values);
    }
}

// ---- Leafrefs ----

static const lysc_type *type_of(const t_schema_node &node)
{
    if (node.kind == SCHEMA_KIND_LEAF)
        return reinterpret_cast<const lysc_node_leaf *>(node.yang)->type;
    if (node.kind == SCHEMA_KIND_LEAF_LIST)
        return reinterpret_cast<const lysc_node_leaflist *>(node.yang)->type;
    return nullptr;
}

// The key that a leafref names. The model writes their paths absolutely, so the node counts for nothing.
static const t_schema_node *target_of(const t_mgmt_tree &tree, const t_schema_node &node)
{
    const lysc_type *p_type = type_of(node);
    if (p_type == nullptr || p_type->basetype != LY_TYPE_LEAFREF)
        return nullptr;
    const char *p_path = lyxp_get_expr(reinterpret_cast<const lysc_type_leafref *>(p_type)->path);
    ly_set *p_found = nullptr;
    const t_schema_node *p_target = nullptr;
    if (lys_find_xpath(tree.p_context, node.yang, p_path, 0, &p_found) == LY_SUCCESS && p_found->count == 1)
        p_target = schema_node_of(*tree.p_schema, p_found->snodes[0]);
    ly_set_free(p_found, nullptr);
    return p_target;
}

// All instances of the last node of a chain, below a parent.
static void instances_add(const t_mgmt_tree &tree, const lyd_node *p_parent,
                          std::span<const t_schema_node *const> chain, t_control_values *p_values)
{
    const t_schema_node *p_schema = chain.front();
    if (p_schema->kind == SCHEMA_KIND_LIST) {
        for (const lyd_node *p_entry : mgmt_tree_entries(tree, p_parent, p_schema))
            instances_add(tree, p_entry, chain.subspan(1), p_values);
        return;
    }
    const lyd_node *p_node = mgmt_tree_child(tree, p_parent, p_schema);
    if (p_node != nullptr && chain.size() == 1)
        value_add(mgmt_node_text(p_node), p_values);
    else if (p_node != nullptr)
        instances_add(tree, p_node, chain.subspan(1), p_values);
}

static void targets_add(const t_mgmt_tree &tree, const t_schema_node &node, t_control_values *p_values)
{
    std::vector<const t_schema_node *> chain;
    for (const t_schema_node *p_node = target_of(tree, node); p_node != nullptr; p_node = p_node->parent)
        chain.insert(chain.begin(), p_node);
    if (!chain.empty())
        instances_add(tree, nullptr, chain, p_values);
}

void control_values_of_tree(const t_mgmt_tree &tree, const t_mgmt_path &path,
                            const std::vector<std::string> &keys, t_control_values *p_values)
{
    if (path.steps.empty())
        return;
    const t_schema_node &node = *path.steps.back().schema;
    t_mgmt_place place;
    t_mgmt_error error;
    bool has_entries = node.kind == SCHEMA_KIND_LIST || node.kind == SCHEMA_KIND_LEAF_LIST;
    if (has_entries && mgmt_path_find(tree, path, &place, &error) && place.parent_exists)
        entries_add(tree, place, keys, p_values);
    targets_add(tree, node, p_values);
    if (node.kind == SCHEMA_KIND_LIST && keys.size() < node.keys.size())
        targets_add(tree, *node.keys[keys.size()], p_values);
}

// ---- Types ----

void control_values_of_type(const t_schema_node &node, const std::vector<std::string> &keys,
                            t_control_values *p_values)
{
    const lysc_type *p_type = type_of(node);
    if (node.kind == SCHEMA_KIND_LIST && node.config && keys.size() < node.keys.size())
        p_type = type_of(*node.keys[keys.size()]);
    if (p_type == nullptr)
        return;
    for (const std::string &text : control_schema_values(p_type))
        value_add(text.c_str(), p_values);
}
