// The datastores, and what other daemons of a full router would write into them.
//
// One record for the process, in the hands of the owner's thread. running is never null. candidate null means
// "as running": the first edit copies. pre_commit stands from the first notification of a commit to the last
// acknowledgement of it and holds running as it was before; null means as running. operational changes in
// place: a reader finishes before the next write.
//
// Writing to operational makes what stands around the node. Its list entries may belong to configured lists
// (a configured VPN's vrf-id): then the entry's keys stand in both trees.
#pragma once

#include "mgmtd/store/mgmt_diff.h"
#include "mgmtd/store/mgmt_files.h"
#include "mgmtd/store/mgmt_rules.h"

struct t_mgmt_store {
    const t_schema_index *p_schema;
    const ly_ctx *p_context;
    std::shared_ptr<const t_mgmt_rules> rules;
    mgmt_tree_ptr running;
    mgmt_tree_ptr candidate;
    mgmt_tree_ptr pre_commit;
    mgmt_work_tree_ptr operational;
    t_mgmt_files files;
    bool supply_vrf_ids = true;        // at swap, for each configured VPN instance
    bool supply_read_priority = true;  // at start, "/lconfd-initial-read-priority" with all bits
};

// Loads running from a folder and fills operational. The switches of the supply are set before. On failure
// the store is not usable.
[[nodiscard]] bool mgmt_store_open(t_mgmt_store *p_store, const t_schema_index *p_schema,
                                   const ly_ctx *p_context, const std::string &folder, t_mgmt_error *p_error);

// What readers of the candidate see.
const mgmt_tree_ptr &mgmt_store_candidate(const t_mgmt_store &store);
const mgmt_tree_ptr &mgmt_store_pre_commit(const t_mgmt_store &store);

// ---- A new running ----

// Puts a tree in running's place, which stays readable as pre_commit; changes is the difference of the two.
void mgmt_store_swap(t_mgmt_store *p_store, mgmt_tree_ptr tree, const t_mgmt_diff &changes);

// Takes back the newest commit, an unconfirmed one: running becomes what it was before. Nothing is checked,
// since that was running, and nothing can refuse. The candidate stays as it is: where it was as running, it
// keeps the configuration that is taken back. Gives the difference for subscribers.
std::shared_ptr<const t_mgmt_diff> mgmt_store_undo(t_mgmt_store *p_store, mgmt_tree_ptr before,
                                                   const std::string &user, const std::string &reason);

// ---- The operational store ----
//
// Clients' writes. A value must fit the leaf's type (MGMT_ERR_BADTYPE). Only operational nodes are written,
// or list entries that hold such (MGMT_ERR_NOT_WRITABLE).

// Sets a leaf, or a leaf-list as a whole (C_LIST).
[[nodiscard]] bool mgmt_oper_set(t_mgmt_store *p_store, const t_mgmt_path &path, const confd_value_t &value,
                                 t_mgmt_error *p_error);

// Creates a list entry or an empty leaf, or adds an element to a leaf-list: MGMT_ERR_ALREADY_EXISTS if it is
// there.
[[nodiscard]] bool mgmt_oper_create(t_mgmt_store *p_store, const t_mgmt_path &path, t_mgmt_error *p_error);

// Deletes a node with all below: MGMT_ERR_NOEXISTS if it is not there.
[[nodiscard]] bool mgmt_oper_delete(t_mgmt_store *p_store, const t_mgmt_path &path, t_mgmt_error *p_error);

// ---- Supply ----

// Gives each VPN instance of a configuration its vrf-id in operational: its number up to 32767, above that
// the highest free int16; instances that are gone lose theirs. Ids given once stay.
void mgmt_supply_vrf_ids(t_mgmt_store *p_store, const t_mgmt_tree &config);
