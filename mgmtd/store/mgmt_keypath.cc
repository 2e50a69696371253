// Keypaths of nodes, and back.

#include "mgmtd/store/mgmt_tree_private.h"
#include "mgmtd/store/mgmt_value.h"

#include <algorithm>

t_mgmt_keypath mgmt_keypath_of(const t_mgmt_tree &tree, const lyd_node *p_node)
{
    t_mgmt_keypath keypath;  // innermost first while it grows
    for (; p_node != nullptr; p_node = mgmt_node_parent(p_node)) {
        const t_schema_node *p_schema = mgmt_node_schema(tree, p_node);
        if (p_schema == nullptr)
            break;
        t_mgmt_keypath_element keys = {};
        if (p_schema->kind == SCHEMA_KIND_LEAF_LIST)
            keys.keys.push_back(mgmt_value_of(p_schema, p_node));
        const lyd_node *p_key = p_schema->kind == SCHEMA_KIND_LIST ? lyd_child(p_node) : nullptr;
        for (const t_schema_node *p_key_schema : p_schema->keys) {
            keys.keys.push_back(mgmt_value_of(p_key_schema, p_key));
            p_key = p_key->next;
        }
        if (!keys.keys.empty())
            keypath.push_back(std::move(keys));
        keypath.push_back({{p_schema->tag, p_schema->ns}, {}});
    }
    std::reverse(keypath.begin(), keypath.end());
    return keypath;
}

static bool keys_read(const t_schema_node *p_schema, const std::vector<confd_value_t> &values,
                      t_mgmt_step *p_step, t_mgmt_error *p_error)
{
    bool is_list = p_schema->kind == SCHEMA_KIND_LIST;
    size_t count = is_list ? p_schema->keys.size() : p_schema->kind == SCHEMA_KIND_LEAF_LIST ? 1 : 0;
    if (count != values.size() || !p_step->keys.empty())
        return mgmt_fail(p_error, MGMT_ERR_BADPATH, p_schema->path, "wrong number of keys");
    for (size_t i = 0; i < count; i++) {
        std::string text;
        if (!mgmt_value_text(is_list ? p_schema->keys[i] : p_schema, values[i], &text, p_error))
            return false;
        p_step->keys.push_back(std::move(text));
    }
    return true;
}

bool mgmt_keypath_path(const t_schema_index &index, const t_mgmt_keypath &keypath, t_mgmt_path *p_path,
                       t_mgmt_error *p_error)
{
    t_mgmt_path path;
    const t_schema_node *p_schema = nullptr;
    for (const t_mgmt_keypath_element &element : keypath) {
        if (!element.keys.empty()) {
            if (path.steps.empty())
                return mgmt_fail(p_error, MGMT_ERR_BADPATH, "/", "keys without a list");
            if (!keys_read(p_schema, element.keys, &path.steps.back(), p_error))
                return false;
            continue;
        }
        p_schema = schema_child_by_tag(index, p_schema, element.tag.tag, element.tag.ns);
        if (p_schema == nullptr || path.steps.size() >= MGMT_PATH_MAX_STEPS)
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, mgmt_path_text(path),
                             "no node with tag " + std::to_string(element.tag.tag));
        path.steps.push_back({p_schema, {}, -1});
    }
    *p_path = std::move(path);
    return true;
}
