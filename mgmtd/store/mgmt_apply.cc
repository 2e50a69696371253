// Edits applied to a tree.
//
// The walk over the edit keeps its own stack, so that it can stop for a hook and go on later. A frame is one
// level: the edit nodes of one parent, and the data node they go below. Hooks only add to the tree, so the
// data nodes in the frames stay where they are.

#include "mgmtd/store/mgmt_edit.h"
#include "mgmtd/store/mgmt_tree_private.h"

#include <algorithm>

struct t_frame {
    const std::vector<t_mgmt_edit_node> *p_nodes;
    size_t next;
    lyd_node *p_parent;  // null at the top
};

struct t_mgmt_apply {
    mgmt_work_tree_ptr tree;
    std::vector<t_mgmt_edit> edits;
    size_t next_edit;
    std::vector<t_frame> frames;
    bool with_hooks;
};

// What one edit node did: stop for its hook, go below it, or neither.
struct t_step_result {
    bool is_good;
    lyd_node *p_created;  // has a hook
    lyd_node *p_below;    // parent for the children
};

static constexpr t_step_result step_failed = {false, nullptr, nullptr};
static constexpr t_step_result step_done = {true, nullptr, nullptr};

void t_mgmt_apply_deleter::operator()(t_mgmt_apply *p_apply) const
{
    delete p_apply;
}

mgmt_apply_ptr mgmt_apply_new(mgmt_work_tree_ptr tree, std::vector<t_mgmt_edit> edits, bool with_hooks)
{
    return mgmt_apply_ptr(new t_mgmt_apply{std::move(tree), std::move(edits), 0, {}, with_hooks});
}

// ---- Errors ----

static std::string edit_path(const t_mgmt_tree &tree, const lyd_node *p_parent, const t_mgmt_edit_node &node)
{
    bool is_leaf = node.schema->kind == SCHEMA_KIND_LEAF;
    std::string step = is_leaf ? std::string(node.schema->name) : mgmt_step_text(node.schema, node.keys);
    return (p_parent != nullptr ? mgmt_node_path(tree, p_parent) : "") + "/" + step;
}

static t_step_result node_fail(const t_mgmt_tree &tree, const lyd_node *p_parent,
                               const t_mgmt_edit_node &node, e_mgmt_error code, const char *p_reason,
                               t_mgmt_error *p_error)
{
    mgmt_fail(p_error, code, edit_path(tree, p_parent, node), p_reason);
    return step_failed;
}

// ---- Choices ----

static bool is_in_case(const lysc_node *p_schema, const lysc_node *p_case)
{
    for (p_schema = p_schema->parent; p_schema != nullptr; p_schema = p_schema->parent) {
        if (p_schema == p_case)
            return true;
        if ((p_schema->nodetype & (LYS_CASE | LYS_CHOICE)) == 0)
            return false;
    }
    return false;
}

// The first of the siblings that stands in another case of a choice that p_schema's node stands in; else
// null.
static lyd_node *other_case_find(lyd_node *p_first, const lysc_node *p_schema)
{
    for (; p_schema->parent != nullptr && p_schema->parent->nodetype == LYS_CASE;
         p_schema = p_schema->parent->parent) {
        const lysc_node *p_case = p_schema->parent;
        for (const lysc_node *p_other = lysc_node_child(p_case->parent); p_other != nullptr;
             p_other = p_other->next) {
            if (p_other == p_case)
                continue;
            for (lyd_node *p_node = p_first; p_node != nullptr; p_node = p_node->next) {
                if (is_in_case(p_node->schema, p_other) && !mgmt_node_is_empty(p_node))
                    return p_node;
            }
        }
    }
    return nullptr;
}

static void other_cases_remove(t_mgmt_tree *p_tree, const lyd_node *p_parent, const t_schema_node *p_schema)
{
    // With an instance of the same node its case is the one in force.
    if (p_schema->choice.empty() || mgmt_tree_child(*p_tree, p_parent, p_schema) != nullptr)
        return;
    lyd_node *p_node;
    while ((p_node = other_case_find(mgmt_first_child(*p_tree, p_parent), p_schema->yang)) != nullptr)
        mgmt_build_remove(p_tree, p_node);
}

// ---- Removal ----

// Whether the edit below takes away only what may be missing.
static bool only_removes(const t_mgmt_edit_node &node)
{
    if (node.op == MGMT_OP_REMOVE)
        return true;
    return node.op == MGMT_OP_NONE && !node.children.empty() &&
           std::ranges::all_of(node.children, only_removes);
}

static bool all_remove(t_mgmt_tree *p_tree, const lyd_node *p_parent, const t_schema_node *p_schema)
{
    lyd_node *p_node = mgmt_first_child(*p_tree, p_parent);
    bool found = false;
    while (p_node != nullptr) {
        lyd_node *p_next = p_node->next;
        if (p_node->schema == p_schema->yang) {
            mgmt_build_remove(p_tree, p_node);
            found = true;
        }
        p_node = p_next;
    }
    return found;
}

static t_step_result removal_apply(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_mgmt_edit_node &node,
                                   lyd_node *p_found, t_mgmt_error *p_error)
{
    if (node.schema->key)
        return node_fail(*p_tree, p_parent, node, MGMT_ERR_NOTDELETABLE, "a key goes with its entry only",
                         p_error);
    bool found = p_found != nullptr && !mgmt_node_is_empty(p_found);
    if (node.all)
        found = all_remove(p_tree, p_parent, node.schema);
    else if (p_found != nullptr)
        mgmt_build_remove(p_tree, p_found);
    if (!found && node.op == MGMT_OP_DELETE)
        return node_fail(*p_tree, p_parent, node, MGMT_ERR_NOEXISTS, "the node does not exist", p_error);
    return step_done;
}

// ---- Order of the user's ----

// Moves an entry among the entries of its list.
static bool entry_move(t_mgmt_tree *p_tree, lyd_node *p_parent, lyd_node *p_entry,
                       const t_mgmt_edit_node &node, t_mgmt_error *p_error)
{
    if (node.insert == MGMT_INSERT_STAY || !lysc_is_userordered(node.schema->yang))
        return true;
    lyd_node *p_anchor = nullptr;
    if (node.insert == MGMT_INSERT_BEFORE || node.insert == MGMT_INSERT_AFTER) {
        if (mgmt_node_find(*p_tree, p_parent, node.schema, node.anchor, &p_anchor) != LY_SUCCESS)
            return node_fail(*p_tree, p_parent, node, MGMT_ERR_NOEXISTS,
                             "the entry to insert at does not exist", p_error)
                .is_good;
    } else {
        bool is_first = node.insert == MGMT_INSERT_FIRST;
        for (lyd_node *p_node = mgmt_first_child(*p_tree, p_parent); p_node != nullptr;
             p_node = p_node->next) {
            if (p_node->schema == node.schema->yang && (p_anchor == nullptr || !is_first))
                p_anchor = p_node;
        }
    }
    if (p_anchor == p_entry)
        return true;
    bool is_before = node.insert == MGMT_INSERT_FIRST || node.insert == MGMT_INSERT_BEFORE;
    LY_ERR result = is_before ? lyd_insert_before(p_anchor, p_entry) : lyd_insert_after(p_anchor, p_entry);
    mgmt_tree_changed(p_tree);
    return result == LY_SUCCESS ||
           node_fail(*p_tree, p_parent, node, MGMT_ERR_INTERNAL, "the entry can't be moved", p_error).is_good;
}

// ---- One node ----

// Lookup of the node that an edit node means. False for keys that are no values.
static bool instance_find(const t_mgmt_tree &tree, const lyd_node *p_parent, const t_mgmt_edit_node &node,
                          lyd_node **pp_found, t_mgmt_error *p_error)
{
    *pp_found = nullptr;
    if (node.all)
        return true;
    if (node.schema->kind == SCHEMA_KIND_CONTAINER || node.schema->kind == SCHEMA_KIND_LEAF) {
        lyd_node *p_children = mgmt_first_child(tree, p_parent);
        if (p_children != nullptr)
            lyd_find_sibling_val(p_children, node.schema->yang, nullptr, 0, pp_found);
        return true;
    }
    size_t wanted = node.schema->kind == SCHEMA_KIND_LIST ? node.schema->keys.size() : 1;
    if (node.keys.size() != wanted)
        return node_fail(tree, p_parent, node, MGMT_ERR_BADPATH, "the keys are missing", p_error).is_good;
    if (mgmt_node_find(tree, p_parent, node.schema, node.keys, pp_found) != LY_EVALID)
        return true;
    // Making the node tells what is wrong with the keys; nothing is made.
    mgmt_fail_yang(p_error, tree.p_context, MGMT_ERR_BADTYPE, edit_path(tree, p_parent, node));
    return false;
}

static t_step_result leaf_apply(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_mgmt_edit_node &node,
                                lyd_node *p_found, t_mgmt_error *p_error)
{
    if (node.keys.empty())
        return node_fail(*p_tree, p_parent, node, MGMT_ERR_BADTYPE, "the leaf has no value", p_error);
    if (node.schema->key) {
        bool same =
            p_found != nullptr && lyd_value_compare(reinterpret_cast<lyd_node_term *>(p_found),
                                                    node.keys[0].data(), node.keys[0].size()) == LY_SUCCESS;
        return same ? step_done
                    : node_fail(*p_tree, p_parent, node, MGMT_ERR_NOT_WRITABLE, "a key can't be changed",
                                p_error);
    }
    if (p_found != nullptr)
        return mgmt_build_change(p_tree, p_found, node.keys[0], p_error) ? step_done : step_failed;
    other_cases_remove(p_tree, p_parent, node.schema);
    lyd_node *p_made = mgmt_build_term(p_tree, p_parent, node.schema, node.keys[0], p_error);
    if (p_made == nullptr)
        return step_failed;
    bool has_hook = node.schema->value == SCHEMA_VALUE_EMPTY && !node.schema->hook.empty();
    return {true, has_hook ? p_made : nullptr, nullptr};
}

static t_step_result element_apply(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_mgmt_edit_node &node,
                                   lyd_node *p_found, t_mgmt_error *p_error)
{
    if (p_found == nullptr) {
        other_cases_remove(p_tree, p_parent, node.schema);
        p_found = mgmt_build_term(p_tree, p_parent, node.schema, node.keys[0], p_error);
    }
    return p_found != nullptr && entry_move(p_tree, p_parent, p_found, node, p_error) ? step_done
                                                                                      : step_failed;
}

static t_step_result entry_apply(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_mgmt_edit_node &node,
                                 lyd_node *p_found, t_mgmt_error *p_error)
{
    bool is_new = p_found == nullptr;
    if (is_new) {
        other_cases_remove(p_tree, p_parent, node.schema);
        p_found = mgmt_build_entry(p_tree, p_parent, node.schema, node.keys, p_error);
    }
    if (p_found == nullptr || !entry_move(p_tree, p_parent, p_found, node, p_error))
        return step_failed;
    return {true, is_new && !node.schema->hook.empty() ? p_found : nullptr, p_found};
}

static t_step_result container_apply(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_mgmt_edit_node &node)
{
    // An edit that brings nothing makes no room for its case either.
    if (!node.children.empty())
        other_cases_remove(p_tree, p_parent, node.schema);
    return {true, nullptr, mgmt_build_container(p_tree, p_parent, node.schema)};
}

// Takes an entry or container away for its replacement; gives what the next entry's place was, for lists of
// the user's order.
static lyd_node *replaced_remove(t_mgmt_tree *p_tree, const t_mgmt_edit_node &node, lyd_node *p_found)
{
    lyd_node *p_next = p_found->next;
    bool keeps_place = node.schema->kind == SCHEMA_KIND_LIST && lysc_is_userordered(node.schema->yang);
    mgmt_build_remove(p_tree, p_found);
    return keeps_place && p_next != nullptr && p_next->schema == node.schema->yang ? p_next : nullptr;
}

static t_step_result node_apply(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_mgmt_edit_node &node,
                                t_mgmt_error *p_error)
{
    e_schema_kind kind = node.schema->kind;
    bool is_term = kind == SCHEMA_KIND_LEAF || kind == SCHEMA_KIND_LEAF_LIST;
    bool is_inner = kind == SCHEMA_KIND_CONTAINER || kind == SCHEMA_KIND_LIST;
    if (!is_term && !is_inner)
        return node_fail(*p_tree, p_parent, node, MGMT_ERR_BADPATH, "the node holds no configuration",
                         p_error);
    if (!node.schema->config)
        return node_fail(*p_tree, p_parent, node, MGMT_ERR_NOT_WRITABLE, "operational state can't be edited",
                         p_error);
    lyd_node *p_found = nullptr;
    if (!instance_find(*p_tree, p_parent, node, &p_found, p_error))
        return step_failed;
    if (node.op == MGMT_OP_DELETE || node.op == MGMT_OP_REMOVE)
        return removal_apply(p_tree, p_parent, node, p_found, p_error);
    if (node.op == MGMT_OP_CREATE && p_found != nullptr && !mgmt_node_is_empty(p_found))
        return node_fail(*p_tree, p_parent, node, MGMT_ERR_ALREADY_EXISTS, "the node exists already",
                         p_error);
    if (node.op == MGMT_OP_NONE && p_found == nullptr && kind != SCHEMA_KIND_CONTAINER) {
        if (only_removes(node))
            return step_done;
        return node_fail(*p_tree, p_parent, node, MGMT_ERR_NOEXISTS, "the node does not exist", p_error);
    }
    if (node.op == MGMT_OP_NONE && is_term)
        return step_done;
    lyd_node *p_before = nullptr;
    if (node.op == MGMT_OP_REPLACE && is_inner && p_found != nullptr) {
        p_before = replaced_remove(p_tree, node, p_found);
        p_found = nullptr;
    }
    if (kind == SCHEMA_KIND_LEAF)
        return leaf_apply(p_tree, p_parent, node, p_found, p_error);
    if (kind == SCHEMA_KIND_LEAF_LIST)
        return element_apply(p_tree, p_parent, node, p_found, p_error);
    if (kind == SCHEMA_KIND_CONTAINER)
        return container_apply(p_tree, p_parent, node);
    t_step_result result = entry_apply(p_tree, p_parent, node, p_found, p_error);
    if (result.is_good && p_before != nullptr && node.insert == MGMT_INSERT_STAY) {
        lyd_insert_before(p_before, result.p_below);
        mgmt_tree_changed(p_tree);
    }
    return result;
}

// ---- The walk ----

static void edit_begin(t_mgmt_apply *p_apply)
{
    const t_mgmt_edit &edit = p_apply->edits[p_apply->next_edit++];
    if (edit.replace_all) {
        lyd_free_all(p_apply->tree->p_first);
        p_apply->tree->p_first = nullptr;
        mgmt_tree_changed(p_apply->tree.get());
    }
    p_apply->frames.push_back({&edit.tops, 0, nullptr});
}

e_mgmt_apply mgmt_apply_run(t_mgmt_apply *p_apply, t_mgmt_hook_call *p_call, t_mgmt_error *p_error)
{
    t_mgmt_tree *p_tree = p_apply->tree.get();
    while (!p_apply->frames.empty() || p_apply->next_edit < p_apply->edits.size()) {
        if (p_apply->frames.empty())
            edit_begin(p_apply);
        t_frame &frame = p_apply->frames.back();
        if (frame.next == frame.p_nodes->size()) {
            p_apply->frames.pop_back();
            continue;
        }
        const t_mgmt_edit_node &node = (*frame.p_nodes)[frame.next++];
        t_step_result result = node_apply(p_tree, frame.p_parent, node, p_error);
        if (!result.is_good)
            return MGMT_APPLY_FAILED;
        if (result.p_below != nullptr && !node.children.empty())
            p_apply->frames.push_back({&node.children, 0, result.p_below});
        if (result.p_created != nullptr && p_apply->with_hooks) {
            *p_call = {node.schema->hook, result.p_created, mgmt_keypath_of(*p_tree, result.p_created)};
            return MGMT_APPLY_HOOK;
        }
    }
    return MGMT_APPLY_DONE;
}

bool mgmt_edit_apply(const mgmt_work_tree_ptr &tree, std::vector<t_mgmt_edit> edits, t_mgmt_error *p_error)
{
    mgmt_apply_ptr apply = mgmt_apply_new(tree, std::move(edits), false);
    t_mgmt_hook_call call;
    return mgmt_apply_run(apply.get(), &call, p_error) == MGMT_APPLY_DONE;
}

// ---- One leaf, while others are at work ----

bool mgmt_edit_set(t_mgmt_tree *p_tree, const t_mgmt_path &path, const std::string *p_text,
                   t_mgmt_error *p_error)
{
    t_mgmt_edit edit;
    if (!mgmt_edit_of_path(*p_tree, path, MGMT_OP_MERGE, p_text, &edit, p_error))
        return false;
    lyd_node *p_parent = nullptr;
    for (const t_mgmt_edit_node *p_node = &edit.tops[0]; p_node != nullptr;) {
        bool takes_room =
            !p_node->schema->choice.empty() &&
            other_case_find(mgmt_first_child(*p_tree, p_parent), p_node->schema->yang) != nullptr;
        if (takes_room)
            return mgmt_fail(p_error, MGMT_ERR_BADSTATE, edit_path(*p_tree, p_parent, *p_node),
                             "another case of the choice is set");
        t_step_result result = node_apply(p_tree, p_parent, *p_node, p_error);
        if (!result.is_good)
            return false;
        p_parent = result.p_below;
        p_node = p_node->children.empty() ? nullptr : &p_node->children[0];
    }
    return true;
}
