// Paths as the framework's clients write them: "/policy/zone{vpn-a}/vpn[2]", "pair-id", "../match".
//
// A path is steps: names with or without a module prefix ("lumora-policy:policy"), behind each possibly the
// key values of a list in braces, separated by blanks, or a position counted from 0 in brackets. A leaf-list
// takes a value in braces. A value with blanks, braces, quotes or backslashes stands in double quotes with
// backslashes before quotes and backslashes. A path without leading slash starts at a current position. ".."
// goes to the parent; a key that is an enumeration may be its number; the keys of a list entry belong to its
// step. A lone "/" is the top.
//
// Reading a path needs only the model, looking one up needs a tree. Positions are resolved at each look-up.
#pragma once

#include "mgmtd/store/mgmt_tree.h"

inline constexpr size_t MGMT_PATH_MAX_SIZE = 16384;  // bytes of a path's text
inline constexpr size_t MGMT_PATH_MAX_STEPS = 32;

struct t_mgmt_step {
    const t_schema_node *schema;
    std::vector<std::string> keys;  // as written; empty for the list itself
    int64_t position = -1;          // from 0; -1 for none
};

// An absolute path. No steps: the top.
struct t_mgmt_path {
    std::vector<t_mgmt_step> steps;
};

// Reads a path. p_base is the current position for a relative path; null means the top. On failure
// *p_path is untouched and *p_error tells what was wrong (MGMT_ERR_BADPATH).
[[nodiscard]] bool mgmt_path_read(const t_schema_index &index, const t_mgmt_path *p_base,
                                  std::string_view text, t_mgmt_path *p_path, t_mgmt_error *p_error);

// The path's text, keys quoted where needed.
std::string mgmt_path_text(const t_mgmt_path &path);

// One key value as a path's text writes it, quoted where needed.
std::string mgmt_path_quote(std::string_view value);

// What a path leads to in a tree.
struct t_mgmt_place {
    const t_schema_node *schema;  // null at the top
    const lyd_node *p_parent;     // data node around it; null at the top, and when !parent_exists
    const lyd_node *p_node;       // the node; null if it does not exist, and for a list without keys
    bool parent_exists;           // all that stands above exists (containers always do)
};

// Looks a path up. False (MGMT_ERR_BADPATH) only for keys that are no values of their types. A step through
// a list without keys leads nowhere: p_node and p_parent are null.
[[nodiscard]] bool mgmt_path_find(const t_mgmt_tree &tree, const t_mgmt_path &path, t_mgmt_place *p_place,
                                  t_mgmt_error *p_error);

// The node of a path that must exist, or null and MGMT_ERR_BADPATH or MGMT_ERR_NOEXISTS.
const lyd_node *mgmt_path_node(const t_mgmt_tree &tree, const t_mgmt_path &path, t_mgmt_error *p_error);

// Entries of the list (elements of the leaf-list) that a path without keys leads to; -1 and *p_error if it
// leads to no list. A parent that does not exist gives 0.
int64_t mgmt_path_count(const t_mgmt_tree &tree, const t_mgmt_path &path, t_mgmt_error *p_error);
