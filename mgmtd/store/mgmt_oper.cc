// Writes to the operational store.

#include "mgmtd/store/mgmt_store.h"
#include "mgmtd/store/mgmt_tree_private.h"

#include <algorithm>

static bool has_state_below(const t_schema_node *p_schema)
{
    bool holds_data = p_schema->kind != SCHEMA_KIND_RPC && p_schema->kind != SCHEMA_KIND_NOTIFICATION;
    return holds_data && (!p_schema->config || std::ranges::any_of(p_schema->children, has_state_below));
}

// The path as this store may write it: its last node is operational, and positions have become keys.
static bool path_check(const t_mgmt_tree &tree, const t_mgmt_path &path, t_mgmt_error *p_error)
{
    if (path.steps.empty())
        return mgmt_fail(p_error, MGMT_ERR_NOT_WRITABLE, "/", "the top can't be written");
    const t_schema_node *p_schema = path.steps.back().schema;
    if (p_schema->kind == SCHEMA_KIND_LIST ? !has_state_below(p_schema) : p_schema->config)
        return mgmt_fail(p_error, MGMT_ERR_NOT_WRITABLE, mgmt_path_text(path), "the node is configuration");
    for (size_t i = 0; i < path.steps.size(); i++) {
        const t_mgmt_step &step = path.steps[i];
        if (step.position >= 0)
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path),
                             "a written path may hold no positions");
        if (step.schema->kind == SCHEMA_KIND_LIST && step.keys.empty())
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path),
                             "the keys of " + std::string(step.schema->name) + " are missing");
        if (step.schema->kind == SCHEMA_KIND_RPC || step.schema->kind == SCHEMA_KIND_NOTIFICATION)
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path), "the node holds no data");
    }
    t_mgmt_place place = {};
    return mgmt_path_find(tree, path, &place, p_error);
}

// Makes containers and entries down to the given number of steps. *pp_parent is the last one.
static bool parents_make(t_mgmt_tree *p_tree, const t_mgmt_path &path, size_t count, lyd_node **pp_parent,
                         t_mgmt_error *p_error)
{
    lyd_node *p_parent = nullptr;
    for (size_t i = 0; i < count; i++) {
        const t_mgmt_step &step = path.steps[i];
        lyd_node *p_node = nullptr;
        if (step.schema->kind == SCHEMA_KIND_CONTAINER)
            p_node = mgmt_build_container(p_tree, p_parent, step.schema);
        else if (mgmt_node_find(*p_tree, p_parent, step.schema, step.keys, &p_node) != LY_SUCCESS)
            p_node = mgmt_build_entry(p_tree, p_parent, step.schema, step.keys, p_error);
        if (p_node == nullptr)
            return false;
        p_parent = p_node;
    }
    *pp_parent = p_parent;
    return true;
}

// ---- Set ----

// The texts of a value: one, or those of a leaf-list's elements.
static bool texts_make(const t_schema_node *p_schema, const confd_value_t &value,
                       std::vector<std::string> *p_texts, t_mgmt_error *p_error)
{
    if (p_schema->kind == SCHEMA_KIND_LEAF)
        return mgmt_value_text(p_schema, value, &p_texts->emplace_back(), p_error);
    if (value.type != C_LIST)
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, p_schema->path, "a leaf-list is set by a list");
    for (unsigned int i = 0; i < value.val.list.size; i++) {
        if (!mgmt_value_text(p_schema, value.val.list.ptr[i], &p_texts->emplace_back(), p_error))
            return false;
    }
    return true;
}

static bool texts_check(const t_mgmt_tree &tree, const t_schema_node *p_schema,
                        std::span<const std::string> texts, t_mgmt_error *p_error)
{
    confd_value_t ignored;
    return std::ranges::all_of(texts, [&](const std::string &text) {
        return mgmt_value_from_text(tree, p_schema, text, &ignored, p_error);
    });
}

bool mgmt_oper_set(t_mgmt_store *p_store, const t_mgmt_path &path, const confd_value_t &value,
                   t_mgmt_error *p_error)
{
    t_mgmt_tree *p_tree = p_store->operational.get();
    if (!path_check(*p_tree, path, p_error))
        return false;
    const t_schema_node *p_schema = path.steps.back().schema;
    bool is_term = p_schema->kind == SCHEMA_KIND_LEAF || p_schema->kind == SCHEMA_KIND_LEAF_LIST;
    if (!is_term || p_schema->key || !path.steps.back().keys.empty())
        return mgmt_fail(p_error, MGMT_ERR_NOT_WRITABLE, mgmt_path_text(path),
                         "only a leaf or a whole leaf-list is set");
    // All is checked before the tree changes.
    std::vector<std::string> texts;
    lyd_node *p_parent = nullptr;
    if (!texts_make(p_schema, value, &texts, p_error) || !texts_check(*p_tree, p_schema, texts, p_error) ||
        !parents_make(p_tree, path, path.steps.size() - 1, &p_parent, p_error))
        return false;
    auto *p_old = const_cast<lyd_node *>(mgmt_tree_child(*p_tree, p_parent, p_schema));
    if (p_schema->kind == SCHEMA_KIND_LEAF && p_old != nullptr)
        return mgmt_build_change(p_tree, p_old, texts[0], p_error);
    while (p_old != nullptr) {
        mgmt_build_remove(p_tree, p_old);
        p_old = const_cast<lyd_node *>(mgmt_tree_child(*p_tree, p_parent, p_schema));
    }
    return std::ranges::all_of(texts, [&](const std::string &text) {
        return mgmt_build_term(p_tree, p_parent, p_schema, text, p_error) != nullptr;
    });
}

// ---- Create and delete ----

bool mgmt_oper_create(t_mgmt_store *p_store, const t_mgmt_path &path, t_mgmt_error *p_error)
{
    t_mgmt_tree *p_tree = p_store->operational.get();
    t_mgmt_place place = {};
    if (!path_check(*p_tree, path, p_error) || !mgmt_path_find(*p_tree, path, &place, p_error))
        return false;
    const t_mgmt_step &step = path.steps.back();
    bool is_element = step.schema->kind == SCHEMA_KIND_LEAF_LIST && !step.keys.empty();
    bool is_flag = step.schema->kind == SCHEMA_KIND_LEAF && step.schema->value == SCHEMA_VALUE_EMPTY;
    if (step.schema->kind != SCHEMA_KIND_LIST && !is_element && !is_flag)
        return mgmt_fail(p_error, MGMT_ERR_NOTCREATABLE, mgmt_path_text(path),
                         "the node can't be created without a value");
    if (place.p_node != nullptr)
        return mgmt_fail(p_error, MGMT_ERR_ALREADY_EXISTS, mgmt_path_text(path), "the node exists already");
    lyd_node *p_parent = nullptr;
    bool is_list = step.schema->kind == SCHEMA_KIND_LIST;
    if (!parents_make(p_tree, path, path.steps.size() - (is_list ? 0 : 1), &p_parent, p_error))
        return false;
    return is_list ||
           mgmt_build_term(p_tree, p_parent, step.schema, is_element ? step.keys[0] : "", p_error) != nullptr;
}

bool mgmt_oper_delete(t_mgmt_store *p_store, const t_mgmt_path &path, t_mgmt_error *p_error)
{
    t_mgmt_tree *p_tree = p_store->operational.get();
    if (!path_check(*p_tree, path, p_error))
        return false;
    if (path.steps.back().schema->key)
        return mgmt_fail(p_error, MGMT_ERR_NOTDELETABLE, mgmt_path_text(path),
                         "a key goes with its entry only");
    const lyd_node *p_node = mgmt_path_node(*p_tree, path, p_error);
    if (p_node == nullptr)
        return false;
    mgmt_build_remove(p_tree, const_cast<lyd_node *>(p_node));
    return true;
}
