// Inside of the trees: libyang's nodes, their order, and their making. For the sources of this folder.
#pragma once

#include "mgmtd/store/mgmt_tree.h"

#include <cstdint>
#include <libyang/libyang.h>

// Fails with libyang's last message. An empty path takes the one of the message, in the framework's form.
bool mgmt_fail_yang(t_mgmt_error *p_error, const ly_ctx *p_ctx, e_mgmt_error code, std::string path);

// ---- Nodes ----

// First of the children; of the top level when the parent is null. Null if there is none.
lyd_node *mgmt_first_child(const t_mgmt_tree &tree, const lyd_node *p_parent);

// Whether two nodes of two trees are the same instance: of one model's node, with the same keys or, in a
// leaf-list, the same value.
bool mgmt_node_same(const lyd_node *p_left, const lyd_node *p_right);

// The same instance among the siblings of another tree; null if it is not there.
const lyd_node *mgmt_like_find(const lyd_node *p_siblings, const lyd_node *p_node);

// Whether two leaves hold the same value.
bool mgmt_term_equal(const lyd_node *p_left, const lyd_node *p_right);

// The entry or element with these keys. LY_ENOTFOUND if there is none, LY_EVALID for texts that are no
// values.
LY_ERR mgmt_node_find(const t_mgmt_tree &tree, const lyd_node *p_parent, const t_schema_node *p_schema,
                      std::span<const std::string> keys, lyd_node **pp_found);

// Positions of the nodes of one list or leaf-list in key order.
std::vector<uint32_t> mgmt_key_order(const t_schema_node *p_list, std::span<const lyd_node *const> nodes);

// All instances below a parent in key order (in theirs, if the user orders them), without the tree's memory.
std::vector<const lyd_node *> mgmt_sorted_instances(const lyd_node *p_first_of_list,
                                                    const t_schema_node *p_list);

// "name", "name{key}": the step that leads to an instance.
std::string mgmt_step_text(const t_schema_node *p_schema, std::span<const std::string> keys);

// ---- Making nodes ----
//
// All put the node where the model wants it and give it; null with *p_error for a value that the model
// refuses.

lyd_node *mgmt_build_container(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_schema_node *p_schema);
lyd_node *mgmt_build_entry(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_schema_node *p_schema,
                           std::span<const std::string> keys, t_mgmt_error *p_error);
lyd_node *mgmt_build_term(t_mgmt_tree *p_tree, lyd_node *p_parent, const t_schema_node *p_schema,
                          const std::string &text, t_mgmt_error *p_error);
bool mgmt_build_change(t_mgmt_tree *p_tree, lyd_node *p_leaf, const std::string &text, t_mgmt_error *p_error);
void mgmt_build_remove(t_mgmt_tree *p_tree, lyd_node *p_node);
