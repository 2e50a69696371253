// Edits: what a user wants changed, as a tree of operations, and its application to a tree.
//
// An edit is made from JSON (the control socket), from a path and a value (a management session), from a
// difference (rollback, tests) or node by node (NETCONF), and is then applied to a copy of a datastore. Each
// node of the edit has an operation as in NETCONF; "none" passes through, "replace" of a container or list
// entry removes what the edit does not name. Creating a node of one case removes the nodes of the other
// cases.
//
// Application stops where a hook is due: when a list entry, or an empty leaf below one, that carries a hook
// in the model comes into being, after its keys and before anything else of the same edit is set, so that
// values that the edit names win over those that the hook sets. The caller makes the hook's call, may set
// values in the tree meanwhile (mgmt_edit_set) and goes on. Nothing is undone on failure: the caller drops
// the tree.
#pragma once

#include "mgmtd/store/mgmt_path.h"
#include "mgmtd/store/mgmt_value.h"

#include <memory>

enum e_mgmt_op {
    MGMT_OP_NONE,
    MGMT_OP_MERGE,
    MGMT_OP_REPLACE,
    MGMT_OP_CREATE,  // it must not exist
    MGMT_OP_DELETE,  // it must exist
    MGMT_OP_REMOVE,
};

// Where an entry of a list that the user orders goes. STAY: a new one goes last, an old one stays.
enum e_mgmt_insert {
    MGMT_INSERT_STAY,
    MGMT_INSERT_FIRST,
    MGMT_INSERT_LAST,
    MGMT_INSERT_BEFORE,
    MGMT_INSERT_AFTER
};

struct t_mgmt_edit_node {
    const t_schema_node *schema = nullptr;
    e_mgmt_op op = MGMT_OP_MERGE;
    bool all = false;               // delete, remove: of a list or leaf-list without keys, all of it
    std::vector<std::string> keys;  // of a list entry; of a leaf or leaf-list element its value as only text
    e_mgmt_insert insert = MGMT_INSERT_STAY;
    std::vector<std::string> anchor;  // of before and after: keys, or the element's value
    std::vector<t_mgmt_edit_node> children;
};

struct t_mgmt_edit {
    bool replace_all = false;  // what the edit does not name goes, at the top too
    std::vector<t_mgmt_edit_node> tops;
};

// ---- Making ----

inline constexpr size_t MGMT_EDIT_MAX_JSON = 64 * 1024 * 1024;  // bytes
inline constexpr unsigned int MGMT_EDIT_MAX_DEPTH = 64;         // of nested JSON

// Reads a JSON text with an array of edits, applied in their order:
//   [{"op": "merge", "path": "/policy/zone{a}", "value": {"vpn": [{"id": 1}]}},
//    {"op": "delete", "path": "/policy/zone{b}"},
//    {"op": "create", "path": "/x/rule{9}", "value": {}, "insert": "before", "at": "{5}"}]
// op is none, merge (which holds when it is missing), replace, create, delete or remove. The value has the
// form that mgmt_tree_print gives for what is inside the node: an object, a leaf's value, for a list or
// leaf-list without keys an array. Names may have module prefixes. The path "/" stands for the whole tree:
// merge and replace.
[[nodiscard]] bool mgmt_edit_read_json(const t_schema_index &index, std::string_view text,
                                       std::vector<t_mgmt_edit> *p_edits, t_mgmt_error *p_error);

// An edit of the one node at a path; what stands around it is made as needed (operation merge). p_text is the
// value of a leaf; null for a list entry or an empty leaf. Positions in the path are looked up in the tree.
[[nodiscard]] bool mgmt_edit_of_path(const t_mgmt_tree &tree, const t_mgmt_path &path, e_mgmt_op op,
                                     const std::string *p_text, t_mgmt_edit *p_edit, t_mgmt_error *p_error);

// ---- Applying ----

// A hook that is due.
struct t_mgmt_hook_call {
    std::string_view callpoint;
    const lyd_node *p_node;  // the new entry or empty leaf
    t_mgmt_keypath keypath;
};

enum e_mgmt_apply { MGMT_APPLY_DONE, MGMT_APPLY_HOOK, MGMT_APPLY_FAILED };

struct t_mgmt_apply;  // an application under way
struct t_mgmt_apply_deleter {
    void operator()(t_mgmt_apply *p_apply) const;
};
using mgmt_apply_ptr = std::unique_ptr<t_mgmt_apply, t_mgmt_apply_deleter>;

// Prepares the application of edits to a tree. with_hooks false: stored configuration comes back, no hook
// runs.
mgmt_apply_ptr mgmt_apply_new(mgmt_work_tree_ptr tree, std::vector<t_mgmt_edit> edits, bool with_hooks);

// Goes on until the end, the next hook (*p_call) or a failure (*p_error).
[[nodiscard]] e_mgmt_apply mgmt_apply_run(t_mgmt_apply *p_apply, t_mgmt_hook_call *p_call,
                                          t_mgmt_error *p_error);

// All in one, without hooks.
[[nodiscard]] bool mgmt_edit_apply(const mgmt_work_tree_ptr &tree, std::vector<t_mgmt_edit> edits,
                                   t_mgmt_error *p_error);

// Sets one leaf, or creates one entry or empty leaf (p_text null), in a tree that an application may be under
// way on: nothing is ever removed, so the application's place stays good. For hooks and the operational
// store.
[[nodiscard]] bool mgmt_edit_set(t_mgmt_tree *p_tree, const t_mgmt_path &path, const std::string *p_text,
                                 t_mgmt_error *p_error);
