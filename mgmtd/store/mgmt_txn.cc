#include "mgmtd/store/mgmt_txn.h"

#include "mgmtd/store/mgmt_checks.h"
#include "mgmtd/store/mgmt_tree_private.h"

#include "common/lum_assert.h"

struct t_mgmt_txn {
    t_mgmt_store *p_store;
    e_mgmt_txn_base base;
    const t_mgmt_txn_ops *p_ops;
    void *p_ctx;
    e_mgmt_txn_state state = MGMT_TXN_OPEN;

    mgmt_tree_ptr content;    // of a private transaction; null: as the store's candidate
    mgmt_tree_ptr origin;     // of a private transaction: running as its content began
    mgmt_work_tree_ptr work;  // of the edit under way
    mgmt_apply_ptr apply;

    // The commit or validation under way.
    bool is_commit = false;
    t_mgmt_commit_info info;
    mgmt_tree_ptr validated;
    std::shared_ptr<const t_mgmt_diff> diff;
    std::vector<t_mgmt_validation_call> calls;
    size_t next_call = 0;
};

void t_mgmt_txn_deleter::operator()(t_mgmt_txn *p_txn) const
{
    delete p_txn;
}

mgmt_txn_ptr mgmt_txn_new(t_mgmt_store *p_store, e_mgmt_txn_base base, const t_mgmt_txn_ops *p_ops,
                          void *p_ctx)
{
    mgmt_txn_ptr txn(new t_mgmt_txn);
    txn->p_store = p_store;
    txn->base = base;
    txn->p_ops = p_ops;
    txn->p_ctx = p_ctx;
    if (base == MGMT_TXN_PRIVATE)
        txn->content = txn->origin = p_store->running;
    return txn;
}

e_mgmt_txn_state mgmt_txn_state(const t_mgmt_txn &txn)
{
    return txn.state;
}

static const mgmt_tree_ptr &content_of(const t_mgmt_txn &txn)
{
    return txn.content != nullptr ? txn.content : mgmt_store_candidate(*txn.p_store);
}

const t_mgmt_tree &mgmt_txn_tree(const t_mgmt_txn &txn)
{
    return txn.state == MGMT_TXN_EDITING ? *txn.work : *content_of(txn);
}

// Ends the work under way. The transaction may be gone afterwards.
static void work_end(t_mgmt_txn *p_txn, e_mgmt_txn_state state, const t_mgmt_error &error)
{
    p_txn->state = state;
    p_txn->apply = nullptr;
    p_txn->work = nullptr;
    p_txn->calls.clear();
    p_txn->diff = nullptr;
    p_txn->validated = nullptr;
    p_txn->p_ops->complete(p_txn->p_ctx, p_txn, error);
}

// ---- Edit ----

static void content_set(t_mgmt_txn *p_txn, mgmt_tree_ptr tree)
{
    if (p_txn->base == MGMT_TXN_PRIVATE)
        p_txn->content = std::move(tree);
    else
        p_txn->p_store->candidate = std::move(tree);
}

static void edit_go(t_mgmt_txn *p_txn)
{
    for (;;) {
        t_mgmt_hook_call call = {};
        t_mgmt_error error;
        e_mgmt_apply result = mgmt_apply_run(p_txn->apply.get(), &call, &error);
        if (result == MGMT_APPLY_DONE) {
            content_set(p_txn, std::move(p_txn->work));
            return work_end(p_txn, MGMT_TXN_OPEN, {});
        }
        if (result == MGMT_APPLY_FAILED)
            return work_end(p_txn, MGMT_TXN_OPEN, error);
        e_mgmt_answer answer = MGMT_ANSWER_YES;
        if (p_txn->p_ops->create_hook != nullptr)
            answer = p_txn->p_ops->create_hook(p_txn->p_ctx, p_txn, call, &error);
        if (answer == MGMT_ANSWER_NO)
            return work_end(p_txn, MGMT_TXN_OPEN, error);
        if (answer == MGMT_ANSWER_LATER)
            return;
    }
}

void mgmt_txn_edit(t_mgmt_txn *p_txn, std::vector<t_mgmt_edit> edits, bool with_hooks)
{
    LUM_ASSERT(p_txn->state == MGMT_TXN_OPEN, "txn->state == MGMT_TXN_OPEN");
    p_txn->work = mgmt_tree_copy(*content_of(*p_txn));
    p_txn->apply = mgmt_apply_new(p_txn->work, std::move(edits), with_hooks);
    p_txn->state = MGMT_TXN_EDITING;
    edit_go(p_txn);
}

void mgmt_txn_replace(t_mgmt_txn *p_txn, mgmt_work_tree_ptr tree)
{
    LUM_ASSERT(p_txn->state == MGMT_TXN_OPEN, "txn->state == MGMT_TXN_OPEN");
    content_set(p_txn, std::move(tree));
    p_txn->p_ops->complete(p_txn->p_ctx, p_txn, {});
}

void mgmt_txn_discard(t_mgmt_txn *p_txn)
{
    LUM_ASSERT(p_txn->state == MGMT_TXN_OPEN, "txn->state == MGMT_TXN_OPEN");
    p_txn->origin = p_txn->base == MGMT_TXN_PRIVATE ? p_txn->p_store->running : nullptr;
    content_set(p_txn, p_txn->origin);
    p_txn->p_ops->complete(p_txn->p_ctx, p_txn, {});
}

bool mgmt_txn_set(t_mgmt_txn *p_txn, const t_mgmt_path &path, const std::string *p_text,
                  t_mgmt_error *p_error)
{
    if (p_txn->state != MGMT_TXN_EDITING)
        return mgmt_fail(p_error, MGMT_ERR_BADSTATE, mgmt_path_text(path), "no hook is open");
    return mgmt_edit_set(p_txn->work.get(), path, p_text, p_error);
}

// ---- Commit: to disk and into force ----

// Edits of others that came to the candidate meanwhile stay there.
static void candidate_release(t_mgmt_txn *p_txn)
{
    if (p_txn->p_store->candidate == p_txn->validated)
        p_txn->p_store->candidate = nullptr;
}

static void commit_persist(t_mgmt_txn *p_txn)
{
    t_mgmt_error error;
    p_txn->info.time = mgmt_time_text();
    if (!mgmt_files_write(&p_txn->p_store->files, *p_txn->validated, p_txn->info, &error)) {
        if (p_txn->p_ops->abort != nullptr)
            p_txn->p_ops->abort(p_txn->p_ctx, p_txn, *p_txn->diff);
        return work_end(p_txn, MGMT_TXN_OPEN, error);
    }
    candidate_release(p_txn);
    mgmt_store_swap(p_txn->p_store, p_txn->validated, *p_txn->diff);
    p_txn->p_ops->swapped(p_txn->p_ctx, p_txn, p_txn->diff);
    work_end(p_txn, MGMT_TXN_DONE, {});
}

static void commit_prepare(t_mgmt_txn *p_txn)
{
    if (p_txn->diff->tops.empty() && !p_txn->diff->order_changed) {
        candidate_release(p_txn);
        return work_end(p_txn, MGMT_TXN_DONE, {});
    }
    p_txn->state = MGMT_TXN_PREPARING;
    t_mgmt_error error;
    e_mgmt_answer answer = MGMT_ANSWER_YES;
    if (p_txn->p_ops->prepare != nullptr)
        answer = p_txn->p_ops->prepare(p_txn->p_ctx, p_txn, *p_txn->diff, &error);
    if (answer == MGMT_ANSWER_YES)
        commit_persist(p_txn);
    else if (answer == MGMT_ANSWER_NO)
        work_end(p_txn, MGMT_TXN_OPEN, error);
}

// ---- Validation ----

static void points_collect(const t_mgmt_diff &diff, const t_mgmt_report &report,
                           std::vector<t_mgmt_validation_call> *p_calls)
{
    if (report.op == MGMT_REPORT_DELETED)
        return;
    if (!report.schema->validation.empty())
        p_calls->push_back({report.schema->validation, report, mgmt_report_keypath(diff, report)});
    for (const t_mgmt_report &child : mgmt_report_children(diff, report))
        points_collect(diff, child, p_calls);
}

static bool has_validation_points(const t_schema_index &index)
{
    for (const auto &node : index.nodes) {
        if (!node->validation.empty())
            return true;
    }
    return false;
}

static void validation_go(t_mgmt_txn *p_txn)
{
    while (p_txn->next_call < p_txn->calls.size()) {
        t_mgmt_error error;
        const t_mgmt_validation_call &call = p_txn->calls[p_txn->next_call++];
        e_mgmt_answer answer = p_txn->p_ops->validate(p_txn->p_ctx, p_txn, call, &error);
        if (answer == MGMT_ANSWER_NO)
            return work_end(p_txn, MGMT_TXN_OPEN, error);
        if (answer == MGMT_ANSWER_LATER)
            return;
    }
    if (p_txn->is_commit)
        commit_prepare(p_txn);
    else
        work_end(p_txn, MGMT_TXN_OPEN, {});
}

// The tree that is to be validated, in this transaction's hands alone: the content itself if nobody else
// reads it, for a copy costs as much as the validation.
static mgmt_work_tree_ptr content_take(t_mgmt_txn *p_txn)
{
    mgmt_tree_ptr *p_place = p_txn->base == MGMT_TXN_PRIVATE ? &p_txn->content : &p_txn->p_store->candidate;
    if (*p_place != nullptr && *p_place != p_txn->p_store->running && p_place->use_count() == 1)
        return std::const_pointer_cast<t_mgmt_tree>(*p_place);
    mgmt_work_tree_ptr copy = mgmt_tree_copy(*content_of(*p_txn));
    *p_place = copy;
    return copy;
}

// Running has moved on since a private transaction began: its own changes are made again on what is there
// now.
static bool private_rebase(t_mgmt_txn *p_txn, t_mgmt_error *p_error)
{
    const mgmt_tree_ptr &running = p_txn->p_store->running;
    if (p_txn->base != MGMT_TXN_PRIVATE || p_txn->origin == running)
        return true;
    t_mgmt_diff own = mgmt_diff_new(p_txn->origin, p_txn->content);
    mgmt_work_tree_ptr tree = mgmt_tree_copy(*running);
    if (!mgmt_edit_apply(tree, mgmt_diff_edits(own), p_error))
        return false;
    p_txn->origin = running;
    p_txn->content = std::move(tree);
    return true;
}

static void validation_start(t_mgmt_txn *p_txn, bool is_commit)
{
    LUM_ASSERT(p_txn->state == MGMT_TXN_OPEN, "txn->state == MGMT_TXN_OPEN");
    p_txn->state = MGMT_TXN_VALIDATING;
    p_txn->is_commit = is_commit;
    t_mgmt_error error;
    if (!private_rebase(p_txn, &error))
        return work_end(p_txn, MGMT_TXN_OPEN, error);
    const mgmt_tree_ptr &running = p_txn->p_store->running;
    if (content_of(*p_txn) == running)
        return work_end(p_txn, is_commit ? MGMT_TXN_DONE : MGMT_TXN_OPEN, {});
    mgmt_work_tree_ptr tree = content_take(p_txn);
    t_mgmt_diff changes = mgmt_diff_new(running, tree);
    if (!mgmt_rules_validate(*p_txn->p_store->rules, changes, tree.get(), &error))
        return work_end(p_txn, MGMT_TXN_OPEN, error);
    // Validation changes nothing that counts but in a model with defaults.
    if (!p_txn->p_store->rules->can_prune)
        changes = mgmt_diff_new(running, tree);
    p_txn->validated = std::move(tree);
    p_txn->diff = std::make_shared<const t_mgmt_diff>(std::move(changes));
    if (!mgmt_checks_run(*p_txn->diff, &error))
        return work_end(p_txn, MGMT_TXN_OPEN, error);
    p_txn->next_call = 0;
    if (p_txn->p_ops->validate != nullptr && has_validation_points(*p_txn->p_store->p_schema)) {
        for (const t_mgmt_diff_node &change : p_txn->diff->tops)
            points_collect(*p_txn->diff, mgmt_report_of(change), &p_txn->calls);
    }
    validation_go(p_txn);
}

void mgmt_txn_validate(t_mgmt_txn *p_txn)
{
    validation_start(p_txn, false);
}

void mgmt_txn_commit(t_mgmt_txn *p_txn, t_mgmt_commit_info info)
{
    p_txn->info = std::move(info);
    validation_start(p_txn, true);
}

// ---- Answers ----

void mgmt_txn_answer(t_mgmt_txn *p_txn, const t_mgmt_error &error)
{
    e_mgmt_txn_state state = p_txn->state;
    bool is_waiting =
        state == MGMT_TXN_EDITING || state == MGMT_TXN_VALIDATING || state == MGMT_TXN_PREPARING;
    LUM_ASSERT(is_waiting, "txn is waiting for an answer");
    if (error.code != MGMT_OK)
        work_end(p_txn, MGMT_TXN_OPEN, error);
    else if (state == MGMT_TXN_EDITING)
        edit_go(p_txn);
    else if (state == MGMT_TXN_VALIDATING)
        validation_go(p_txn);
    else
        commit_persist(p_txn);
}
