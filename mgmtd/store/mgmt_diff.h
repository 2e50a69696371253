// What differs between two trees of one model.
//
// A difference is a sparse tree: only what changed, and the containers and list entries above. A created or
// deleted node stands for all that is below it, so it has no children here. A leaf-list is one node. Nodes
// come in the model's order, the entries of a list in key order, whether created, deleted or changed. Order
// among the entries of a list that the user orders is a change of the list's parent without a node of its
// own, and is not reported. Time is linear in the trees, plus the sorting of what changed.
//
// The difference holds both trees.
#pragma once

#include "mgmtd/store/mgmt_edit.h"

enum e_mgmt_change { MGMT_CREATED = 1, MGMT_DELETED = 2, MGMT_MODIFIED = 3 };

struct t_mgmt_diff_node {
    const t_schema_node *schema;
    e_mgmt_change change;
    const lyd_node *p_old;  // null when created; of a leaf-list its first element as stored
    const lyd_node *p_new;  // null when deleted
    std::vector<t_mgmt_diff_node> children;
};

struct t_mgmt_diff {
    mgmt_tree_ptr old_tree;
    mgmt_tree_ptr new_tree;
    bool order_changed;  // of entries that the user orders, somewhere
    std::vector<t_mgmt_diff_node> tops;
};

// Two trees of one index. From an empty tree everything is created: what a trigger delivers.
t_mgmt_diff mgmt_diff_new(mgmt_tree_ptr old_tree, mgmt_tree_ptr new_tree);

// The edits that lead from the old tree to the new one (but for the order of entries).
std::vector<t_mgmt_edit> mgmt_diff_edits(const t_mgmt_diff &diff);

// Appends the difference as lines for an operator: "+ /path value", "- /path", in the order of the
// difference.
void mgmt_diff_print(const t_mgmt_diff &diff, std::string *p_text);
