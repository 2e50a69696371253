// Trees of data: one datastore at one moment.
//
// A tree owns libyang nodes of the model's context and knows the model's index. Once it is shared (as a
// mgmt_tree_ptr) nobody changes it any more: running is replaced as a whole, and a reader that holds a
// pointer reads on in the old tree. Only who made a tree, or copied one, changes it before it is shared; the
// operational store is the one tree that lives on changing, since only the owner's thread looks at it.
//
// Nodes are libyang's (`const lyd_node *`), good while the tree is held and unchanged. Nodes of the model are
// the index's. Containers without content count as absent everywhere. Nodes of modules that are not indexed
// are passed over.
//
// A list that the system orders has its entries in key order: numbers by value, addresses by their bytes,
// enumerations by value, texts by their bytes; the first key counts most. A list that the user orders keeps
// its order. libyang keeps the order of insertion; the tree remembers, per list, the entries in key order
// from the first look to the next change, so a walk by position costs no more than a walk.
//
// A tree belongs to one thread at a time: looking up fills that memory. Making one sets libyang's logging,
// for the whole process, to keep its last message and print nothing.
#pragma once

#include "mgmtd/store/mgmt_error.h"
#include "yang/schema_index.h"

#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

struct lyd_node;

struct t_mgmt_tree {
    const t_schema_index *p_schema;
    const ly_ctx *p_context;
    lyd_node *p_first;  // of the top-level nodes; null when the tree is empty

    // Entries in key order, by parent and list; forgotten at every change.
    mutable std::map<std::pair<const lyd_node *, const t_schema_node *>, std::vector<const lyd_node *>>
        sorted;

    t_mgmt_tree(const t_schema_index *p_index, const ly_ctx *p_ctx);
    ~t_mgmt_tree();
    t_mgmt_tree(const t_mgmt_tree &) = delete;
    t_mgmt_tree &operator=(const t_mgmt_tree &) = delete;
};

using mgmt_tree_ptr = std::shared_ptr<const t_mgmt_tree>;
using mgmt_work_tree_ptr = std::shared_ptr<t_mgmt_tree>;  // not shared yet: may be changed

// ---- Making ----

mgmt_work_tree_ptr mgmt_tree_new(const t_schema_index *p_index, const ly_ctx *p_ctx);

// A deep copy. Time grows with the tree.
mgmt_work_tree_ptr mgmt_tree_copy(const t_mgmt_tree &tree);

// ---- Looking ----

// The model's node of a data node; null if its module is not indexed.
const t_schema_node *mgmt_node_schema(const t_mgmt_tree &tree, const lyd_node *p_node);

// The first of the children (parent null: of the top level) that are instances of the node; null if there is
// none. Of a container: only if it has content. Of a list or leaf-list: the first as stored.
const lyd_node *mgmt_tree_child(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                const t_schema_node *p_schema);

// All entries of a list, or elements of a leaf-list, below a parent, in their order. Good until the next
// change.
std::span<const lyd_node *const> mgmt_tree_entries(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                                   const t_schema_node *p_list);

// The entry with these keys (in key order; any text that stands for the value). Null if there is none, or if
// a key is no value of its type.
const lyd_node *mgmt_tree_entry(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                const t_schema_node *p_list, std::span<const std::string> keys);

// True for a non-presence container without content below, all the way down.
bool mgmt_node_is_empty(const lyd_node *p_node);

// The canonical text of a leaf or leaf-list element; good while the tree is held.
const char *mgmt_node_text(const lyd_node *p_node);

// The parent of a data node, null at the top.
const lyd_node *mgmt_node_parent(const lyd_node *p_node);

// The path of a data node in the framework's form, keys in braces: "/policy/zone{a b}/vpn{1}". Key texts that
// hold blanks, braces, quotes, backslashes or nothing are quoted.
std::string mgmt_node_path(const t_mgmt_tree &tree, const lyd_node *p_node);

// Whether the trees hold the same data; the order of entries counts only where the user orders them.
bool mgmt_tree_equal(const t_mgmt_tree &left, const t_mgmt_tree &right);

// ---- JSON ----
//
// As NETCONF's JSON has it: members carry the module's name where the module changes, 64-bit numbers are
// texts.

// Appends the object of the top level, or the object that holds just this node (a list entry stands in an
// array of one). Entries come in their order. Without indent (0) there are no blanks at all.
void mgmt_tree_print(const t_mgmt_tree &tree, const lyd_node *p_node, unsigned int indent,
                     std::string *p_text);

// Appends the object with all entries of one list below a parent.
void mgmt_tree_print_list(const t_mgmt_tree &tree, const lyd_node *p_parent, const t_schema_node *p_list,
                          unsigned int indent, std::string *p_text);

// Reads the object of the top level into an empty tree, strictly, without validation. Configuration only.
[[nodiscard]] bool mgmt_tree_read(t_mgmt_tree *p_tree, const std::string &text, t_mgmt_error *p_error);

// ---- Changing (who made the tree, before it is shared) ----

// To be called after a change by libyang's own functions; the functions of this folder do it themselves.
void mgmt_tree_changed(t_mgmt_tree *p_tree);

// Gives up a tree for another's content.
void mgmt_tree_swap(t_mgmt_tree *p_left, t_mgmt_tree *p_right);

// YANG validation of the whole tree. Adds what the model implies (containers), so the tree changes. The error
// names the first fault that was met.
[[nodiscard]] bool mgmt_tree_validate(t_mgmt_tree *p_tree, t_mgmt_error *p_error);
