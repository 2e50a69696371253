// Transactions: from an edit to a new running configuration.
//
// A transaction works on a tree of its own, which begins as the candidate (or as running, for a private one).
// Edits change it; mgmt_txn_commit takes it through validation and prepare to disk and into running:
//
//   OPEN -> EDITING -> OPEN -> VALIDATING -> PREPARING -> DONE, and back to OPEN on any failure
//
// Nothing here waits. Steps that need others (create hooks, validation points, two-phase subscribers) are
// calls of the owner's table that give an answer at once or MGMT_ANSWER_LATER; then the transaction rests in
// its state until mgmt_txn_answer. Each function that starts work ends with exactly one call of its
// completion, maybe before it returns. Time-outs are the owner's: it answers with a refusal.
//
// An edit is applied to a copy, so that a failed one leaves no trace. Commit: YANG validation, checks of the
// server, validation points in the model's order, prepare, file, swap. A failure of the file after prepare
// calls abort. After the swap the owner notifies subscribers from the difference; the store keeps the old
// running for readers of the pre-commit store until mgmt_store's pre_commit is cleared by the owner.
//
// One transaction commits at a time, and one edits the candidate at a time: the owner queues.
#pragma once

#include "mgmtd/store/mgmt_report.h"
#include "mgmtd/store/mgmt_store.h"

struct t_mgmt_txn;

enum e_mgmt_txn_state {
    MGMT_TXN_OPEN,
    MGMT_TXN_EDITING,     // a create hook is open
    MGMT_TXN_VALIDATING,  // a validation point is open
    MGMT_TXN_PREPARING,   // two-phase subscribers are asked
    MGMT_TXN_DONE,        // committed; of no further use
};

enum e_mgmt_answer { MGMT_ANSWER_YES, MGMT_ANSWER_NO, MGMT_ANSWER_LATER };

// A validation point that a changed node names.
struct t_mgmt_validation_call {
    std::string_view point;
    t_mgmt_report report;
    t_mgmt_keypath keypath;
};

// What the owner does for a transaction; on the owner's thread. All set, but create_hook, validate, prepare
// and abort may be null: nothing to ask then. MGMT_ANSWER_NO comes with *p_error filled.
struct t_mgmt_txn_ops {
    e_mgmt_answer (*create_hook)(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_hook_call &call,
                                 t_mgmt_error *p_error);
    e_mgmt_answer (*validate)(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_validation_call &call,
                              t_mgmt_error *p_error);
    e_mgmt_answer (*prepare)(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_diff &diff, t_mgmt_error *p_error);
    void (*abort)(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_diff &diff);
    // Running is the new tree; subscribers come next. Before the completion of the commit.
    void (*swapped)(void *p_ctx, t_mgmt_txn *p_txn, const std::shared_ptr<const t_mgmt_diff> &diff);
    // An edit, validation or commit has ended; error.code is MGMT_OK on success.
    void (*complete)(void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_error &error);
};

enum e_mgmt_txn_base {
    MGMT_TXN_CANDIDATE,  // edits land in the store's candidate, one by one
    // Edits stay in the transaction. What others commit meanwhile is kept: the transaction's own changes are
    // made again on the running of the day of its commit.
    MGMT_TXN_PRIVATE,
};

struct t_mgmt_txn_deleter {
    void operator()(t_mgmt_txn *p_txn) const;
};
using mgmt_txn_ptr = std::unique_ptr<t_mgmt_txn, t_mgmt_txn_deleter>;

// The store and the table must outlive the transaction. Dropping a transaction in any state leaves the store
// valid: nothing of it remains but edits that have ended in the candidate.
mgmt_txn_ptr mgmt_txn_new(t_mgmt_store *p_store, e_mgmt_txn_base base, const t_mgmt_txn_ops *p_ops,
                          void *p_ctx);

e_mgmt_txn_state mgmt_txn_state(const t_mgmt_txn &txn);

// What the transaction's readers see now; during a hook what the edit has made so far.
const t_mgmt_tree &mgmt_txn_tree(const t_mgmt_txn &txn);

// ---- Work (in state OPEN) ----

// with_hooks false: the hooks of new entries do not run.
void mgmt_txn_edit(t_mgmt_txn *p_txn, std::vector<t_mgmt_edit> edits, bool with_hooks = true);

// Replaces the content with another tree's (rollback, copy-config).
void mgmt_txn_replace(t_mgmt_txn *p_txn, mgmt_work_tree_ptr tree);

// Forgets all edits: candidate as running.
void mgmt_txn_discard(t_mgmt_txn *p_txn);

// All that a commit checks, up to and with the validation points.
void mgmt_txn_validate(t_mgmt_txn *p_txn);

// info's time and number are filled in; with a fallback it is stored as unconfirmed. Without a difference
// nothing is written and `swapped` does not come.
void mgmt_txn_commit(t_mgmt_txn *p_txn, t_mgmt_commit_info info);

// ---- Answers ----

// What was MGMT_ANSWER_LATER is answered: error.code MGMT_OK is yes.
void mgmt_txn_answer(t_mgmt_txn *p_txn, const t_mgmt_error &error);

// A value set by a hook that is open (state EDITING). p_text null: creates an entry or an empty leaf. Other
// writers use mgmt_edit_of_path and mgmt_txn_edit.
[[nodiscard]] bool mgmt_txn_set(t_mgmt_txn *p_txn, const t_mgmt_path &path, const std::string *p_text,
                                t_mgmt_error *p_error);
