// Between daemons' values and trees of data.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "mgmtd/store/mgmt_tree_private.h"

#include <new>

IpcKeypath mgmt_ipc_keypath(const t_mgmt_keypath &keypath)
{
    IpcKeypath copy;
    for (auto element = keypath.rbegin(); element != keypath.rend(); ++element) {
        std::vector<IpcValue> &step = copy.steps.emplace_back();
        if (element->keys.empty())
            step.push_back(IpcValue::tag(C_XMLTAG, element->tag.tag, element->tag.ns));
        for (const confd_value_t &key : element->keys)
            step.emplace_back(key);
    }
    return copy;
}

// ---- Tag values into a node ----

static bool leaf_put(t_mgmt_tree *p_tree, lyd_node *p_node, const t_schema_node *p_leaf,
                     const confd_value_t &value, t_mgmt_error *p_error)
{
    std::string text;
    return mgmt_value_text(p_leaf, value, &text, p_error) &&
           mgmt_build_term(p_tree, p_node, p_leaf, text, p_error) != nullptr;
}

static bool value_put(t_mgmt_tree *p_tree, lyd_node *p_node, const t_schema_node *p_leaf,
                      const confd_value_t &value, t_mgmt_error *p_error)
{
    if (p_leaf->kind == SCHEMA_KIND_LEAF)
        return leaf_put(p_tree, p_node, p_leaf, value, p_error);
    if (p_leaf->kind != SCHEMA_KIND_LEAF_LIST || value.type != C_LIST)
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, p_leaf->path, "this node has no such value");
    for (unsigned int i = 0; i < value.val.list.size; i++)
        if (!leaf_put(p_tree, p_node, p_leaf, value.val.list.ptr[i], p_error))
            return false;
    return true;
}

void mgmt_rows_fill(t_mgmt_tree *p_tree, lyd_node *p_node, const t_schema_node *p_schema,
                    std::span<const IpcTagValue> values, std::vector<std::string> *p_warnings)
{
    std::vector<std::pair<lyd_node *, const t_schema_node *>> open = {{p_node, p_schema}};
    for (const IpcTagValue &item : values) {
        const confd_value_t &value = item.value.v;
        auto [p_parent, p_around] = open.back();
        if (value.type == C_XMLEND && open.size() > 1)
            open.pop_back();
        if (value.type == C_XMLEND || value.type == C_NOEXISTS)
            continue;
        const t_schema_node *p_child =
            schema_child_by_tag(*p_tree->p_schema, p_around, item.tag.tag, item.tag.ns);
        t_mgmt_error error;
        if (p_child == nullptr) {
            p_warnings->push_back(p_around->path + ": no node with tag " + std::to_string(item.tag.tag));
            if (value.type == C_XMLBEGIN)
                return;
        } else if (value.type == C_XMLBEGIN && p_child->kind == SCHEMA_KIND_CONTAINER) {
            open.emplace_back(mgmt_build_container(p_tree, p_parent, p_child), p_child);
        } else if (!p_child->key && !value_put(p_tree, p_parent, p_child, value, &error)) {
            p_warnings->push_back(mgmt_error_text(error));
        }
    }
}

// ---- Copies ----

static lyd_node *match_of(const t_mgmt_tree &tree, const lyd_node *p_parent, const lyd_node *p_node)
{
    lyd_node *p_match = nullptr;
    lyd_node *p_siblings = mgmt_first_child(tree, p_parent);
    return p_siblings != nullptr && lyd_find_sibling_first(p_siblings, p_node, &p_match) == LY_SUCCESS
               ? p_match
               : nullptr;
}

static lyd_node *duplicate(t_mgmt_tree *p_tree, lyd_node *p_parent, const lyd_node *p_node, uint32_t options)
{
    lyd_node *p_copy = nullptr;
    if (lyd_dup_single(p_node, reinterpret_cast<lyd_node_inner *>(p_parent), options, &p_copy) != LY_SUCCESS)
        throw std::bad_alloc();
    if (p_parent == nullptr && lyd_insert_sibling(p_tree->p_first, p_copy, &p_tree->p_first) != LY_SUCCESS)
        throw std::bad_alloc();
    return p_copy;
}

// The twin of a node that stands above others; made if need be.
static lyd_node *above_of(t_mgmt_tree *p_tree, const lyd_node *p_node)
{
    if (p_node == nullptr)
        return nullptr;
    lyd_node *p_parent = above_of(p_tree, mgmt_node_parent(p_node));
    lyd_node *p_match = match_of(*p_tree, p_parent, p_node);
    return p_match != nullptr ? p_match : duplicate(p_tree, p_parent, p_node, 0);
}

static void merge(t_mgmt_tree *p_tree, lyd_node *p_parent, const lyd_node *p_node)
{
    lyd_node *p_match = match_of(*p_tree, p_parent, p_node);
    if (p_match == nullptr) {
        duplicate(p_tree, p_parent, p_node, LYD_DUP_RECURSIVE);
        return;
    }
    for (const lyd_node *p_child = lyd_child(p_node); p_child != nullptr; p_child = p_child->next)
        merge(p_tree, p_match, p_child);
}

void mgmt_rows_copy(t_mgmt_tree *p_tree, const lyd_node *p_node)
{
    merge(p_tree, above_of(p_tree, mgmt_node_parent(p_node)), p_node);
    mgmt_tree_changed(p_tree);
}
