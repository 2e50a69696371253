// Work on the candidate, one piece at a time, and the commit.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"
#include "mgmtd/store/mgmt_crash.h"

// ---- One after the other ----

static void writer_end(t_mgmt_engine *p_engine, const t_mgmt_error &error);

static bool is_locked_by(uint32_t holder, uint32_t session, t_mgmt_error *p_error)
{
    return holder != 0 && holder != session &&
           !mgmt_fail(p_error, MGMT_ERR_LOCKED, "", "session " + std::to_string(holder) + " holds the lock");
}

bool mgmt_running_is_locked(const t_mgmt_engine &engine, uint32_t session, t_mgmt_error *p_error)
{
    return is_locked_by(engine.running_holder, session, p_error);
}

static bool is_locked(const t_mgmt_engine &engine, const t_mgmt_writer &writer, t_mgmt_error *p_error)
{
    return writer.changes &&
           (is_locked_by(engine.candidate_holder, writer.session, p_error) ||
            (writer.commit != nullptr && mgmt_running_is_locked(engine, writer.session, p_error)));
}

static void writer_next(t_mgmt_engine *p_engine)
{
    auto is_forgotten = [&](const t_mgmt_writer &writer) {
        return !writer.outlives && !p_engine->sessions.contains(writer.session);
    };
    if (p_engine->writer_at_work)
        return;
    while (!p_engine->writers.empty() && is_forgotten(*p_engine->writers.front()))
        p_engine->writers.pop_front();
    if (p_engine->writers.empty())
        return;
    p_engine->writer_at_work = true;
    std::shared_ptr<t_mgmt_writer> writer = p_engine->writers.front();
    t_mgmt_error error;
    writer->txn = mgmt_txn_new(&p_engine->store, MGMT_TXN_CANDIDATE, &g_mgmt_txn_ops, p_engine);
    if (is_locked(*p_engine, *writer, &error) || !writer->start(writer->txn.get(), &error))
        writer_end(p_engine, error);
}

static void writer_end(t_mgmt_engine *p_engine, const t_mgmt_error &error)
{
    std::shared_ptr<t_mgmt_writer> writer = std::move(p_engine->writers.front());
    p_engine->writers.pop_front();
    for (const mgmt_trans_ptr &trans : {writer->hooks, writer->validations})
        if (trans != nullptr)
            mgmt_trans_end(p_engine, trans);
    // The transaction may be on the stack: it goes later.
    mgmt_later(p_engine, [p_engine, writer, error] {
        p_engine->writer_at_work = false;
        if (writer->done)
            writer->done(error);
        writer_next(p_engine);
    });
}

void mgmt_writer_queue(t_mgmt_engine *p_engine, std::shared_ptr<t_mgmt_writer> writer)
{
    p_engine->writers.push_back(std::move(writer));
    mgmt_later(p_engine, [p_engine] { writer_next(p_engine); });
}

// ---- What a transaction asks ----

static e_mgmt_answer prepare(void *p_ctx, t_mgmt_txn *, const t_mgmt_diff &diff, t_mgmt_error *)
{
    t_mgmt_engine *p_engine = static_cast<t_mgmt_engine *>(p_ctx);
    std::shared_ptr<t_mgmt_writer> writer = p_engine->writers.front();
    auto delivery = std::make_shared<t_mgmt_delivery>();
    delivery->diff = std::make_shared<const t_mgmt_diff>(diff);
    delivery->type = CDB_SUB_PREPARE;
    mgmt_delivery_collect(p_engine, delivery.get(), true);
    if (delivery->levels.empty())
        return MGMT_ANSWER_YES;
    writer->commit->diff = delivery->diff;
    t_mgmt_delivery *p_delivery = delivery.get();
    delivery->done = [writer, p_delivery] {
        writer->commit->prepared = p_delivery->acknowledged;
        mgmt_txn_answer(writer->txn.get(), p_delivery->refusal);
    };
    mgmt_delivery_run(p_engine, std::move(delivery));
    return MGMT_ANSWER_LATER;
}

static void swapped(void *p_ctx, t_mgmt_txn *, const std::shared_ptr<const t_mgmt_diff> &diff)
{
    t_mgmt_commit *p_commit = static_cast<t_mgmt_engine *>(p_ctx)->writers.front()->commit.get();
    p_commit->diff = diff;
    p_commit->result.changed = true;
}

static void complete(void *p_ctx, t_mgmt_txn *, const t_mgmt_error &error)
{
    writer_end(static_cast<t_mgmt_engine *>(p_ctx), error);
}

// Subscribers that have prepared hear of a failed commit when it has ended, so abort is empty.
const t_mgmt_txn_ops g_mgmt_txn_ops = {
    .create_hook = mgmt_hook_call,
    .validate = mgmt_validation_call,
    .prepare = prepare,
    .abort = nullptr,
    .swapped = swapped,
    .complete = complete,
};

// ---- Edits ----

using f_writer_start = std::function<bool(t_mgmt_txn *, t_mgmt_error *)>;

static void write_for(t_mgmt_engine *p_engine, uint32_t session, f_writer_start start, f_mgmt_done done,
                      bool changes = true)
{
    auto writer = std::make_shared<t_mgmt_writer>();
    writer->session = session;
    writer->changes = changes;
    writer->start = std::move(start);
    writer->done = [p_engine, session, done = std::move(done)](const t_mgmt_error &error) {
        if (p_engine->sessions.contains(session))
            done(error);
    };
    mgmt_writer_queue(p_engine, std::move(writer));
}

void mgmt_edit(t_mgmt_engine *p_engine, uint32_t session, std::vector<t_mgmt_edit> edits, f_mgmt_done done)
{
    auto start = [edits = std::move(edits)](t_mgmt_txn *p_txn, t_mgmt_error *) mutable {
        mgmt_txn_edit(p_txn, std::move(edits));
        return true;
    };
    write_for(p_engine, session, std::move(start), std::move(done));
}

void mgmt_discard(t_mgmt_engine *p_engine, uint32_t session, f_mgmt_done done)
{
    auto start = [](t_mgmt_txn *p_txn, t_mgmt_error *) {
        mgmt_txn_discard(p_txn);
        return true;
    };
    write_for(p_engine, session, start, std::move(done));
}

// The candidate becomes as a tree by the edits that lead there, so that hooks run for what comes into being.
// Edits say nothing of order; where that differs too, the tree is taken as it is.
static void become(t_mgmt_engine *p_engine, t_mgmt_txn *p_txn, mgmt_work_tree_ptr tree)
{
    t_mgmt_diff diff = mgmt_diff_new(mgmt_store_candidate(p_engine->store), tree);
    if (diff.order_changed)
        mgmt_txn_replace(p_txn, std::move(tree));
    else
        mgmt_txn_edit(p_txn, mgmt_diff_edits(diff));
}

void mgmt_rollback(t_mgmt_engine *p_engine, uint32_t session, size_t back, f_mgmt_done done)
{
    auto start = [p_engine, back](t_mgmt_txn *p_txn, t_mgmt_error *p_error) {
        mgmt_work_tree_ptr tree;
        if (!mgmt_files_rollback(p_engine->store.files, back, &tree, p_error))
            return false;
        become(p_engine, p_txn, std::move(tree));
        return true;
    };
    write_for(p_engine, session, start, std::move(done));
}

void mgmt_replace(t_mgmt_engine *p_engine, uint32_t session, mgmt_work_tree_ptr tree, f_mgmt_done done)
{
    auto start = [p_engine, tree = std::move(tree)](t_mgmt_txn *p_txn, t_mgmt_error *) mutable {
        become(p_engine, p_txn, std::move(tree));
        return true;
    };
    write_for(p_engine, session, std::move(start), std::move(done));
}

void mgmt_check(t_mgmt_engine *p_engine, uint32_t session, f_mgmt_done done)
{
    auto start = [](t_mgmt_txn *p_txn, t_mgmt_error *) {
        mgmt_txn_validate(p_txn);
        return true;
    };
    write_for(p_engine, session, start, std::move(done), false);
}

// ---- Commit ----

static void commit_progress(t_mgmt_engine *p_engine, const t_mgmt_commit &commit, const std::string &line)
{
    if (commit.request.progress && p_engine->sessions.contains(commit.session))
        commit.request.progress(line);
}

static void commit_finish(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_commit> &commit)
{
    MGMT_CRASH_POINT("told");
    p_engine->store.pre_commit.reset();
    if (commit->result.error.code == MGMT_OK && commit->result.changed)
        mgmt_event_tell(p_engine, CONFD_NOTIF_COMMIT_SIMPLE, commit->session, CONFD_RUNNING,
                        commit->user.name);
    mgmt_later_for(p_engine, commit->session, [commit] {
        commit->request.done(commit->result);
        MGMT_CRASH_POINT("answered");
    });
    mgmt_serial_end(p_engine);
}

void mgmt_commit_tell(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_commit> &commit)
{
    bool failed = commit->result.error.code != MGMT_OK;
    if (commit->diff == nullptr || (failed && commit->prepared.empty())) {
        commit_finish(p_engine, commit);
        return;
    }
    auto delivery = std::make_shared<t_mgmt_delivery>();
    delivery->diff = commit->diff;
    delivery->type = failed ? CDB_SUB_ABORT : CDB_SUB_COMMIT;
    delivery->progress = [p_engine, commit](const std::string &line) {
        commit_progress(p_engine, *commit, line);
    };
    mgmt_delivery_collect(p_engine, delivery.get(), failed);
    for (auto &[priority, subscribers] : delivery->levels)
        if (failed)
            std::erase_if(subscribers,
                          [&](const auto &entry) { return !commit->prepared.contains(entry.first); });
    t_mgmt_delivery *p_delivery = delivery.get();
    delivery->done = [p_engine, commit, p_delivery] {
        commit->result.warnings = p_delivery->lost;
        commit_finish(p_engine, commit);
    };
    mgmt_delivery_run(p_engine, std::move(delivery));
}

static void commit_written(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_commit> &commit,
                           const t_mgmt_error &error)
{
    t_mgmt_error &outcome = commit->result.error;
    outcome = error;
    if (outcome.code != MGMT_OK || !mgmt_confirm_settle(p_engine, *commit, &outcome)) {
        LUM_LOG(LUM_LOG_NOTICE, "Commit of %s refused: %s", commit->user.name.c_str(),
                mgmt_error_text(outcome).c_str());
    } else if (commit->result.changed) {
        commit->result.number = p_engine->store.files.commits.front().number;
        LUM_LOG(LUM_LOG_NOTICE, "Commit %lu of %s is running", commit->result.number,
                commit->user.name.c_str());
        commit_progress(p_engine, *commit, "stored and running");
    }
    mgmt_commit_tell(p_engine, commit);
}

static void commit_start(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_commit> &commit)
{
    if (!p_engine->sessions.contains(commit->session)) {
        mgmt_serial_end(p_engine);
        return;
    }
    auto writer = std::make_shared<t_mgmt_writer>();
    writer->session = commit->session;
    writer->commit = commit;
    writer->start = [p_engine, commit](t_mgmt_txn *p_txn, t_mgmt_error *p_error) {
        if (!mgmt_confirm_may(*p_engine, *commit, p_error))
            return false;
        commit_progress(p_engine, *commit, "checking");
        mgmt_txn_commit(p_txn, {.number = 0,
                                .user = commit->user.name,
                                .time = "",
                                .comment = commit->request.comment,
                                .fallback = mgmt_confirm_fallback(*p_engine, *commit)});
        return true;
    };
    writer->done = [p_engine, commit](const t_mgmt_error &error) { commit_written(p_engine, commit, error); };
    writer->outlives = true;  // whoever waits for commits waits for the end of this one
    mgmt_writer_queue(p_engine, std::move(writer));
}

void mgmt_commit(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_commit_request request)
{
    auto found = p_engine->sessions.find(session);
    if (found == p_engine->sessions.end())
        return;
    auto commit = std::make_shared<t_mgmt_commit>();
    commit->session = session;
    commit->user = found->second;
    commit->request = std::move(request);
    mgmt_serial(p_engine, [p_engine, commit] { commit_start(p_engine, commit); });
}

// ---- Looking ----

const std::vector<t_mgmt_commit_info> &mgmt_commits(const t_mgmt_engine &engine)
{
    return engine.store.files.commits;
}

std::string mgmt_compare(t_mgmt_engine *p_engine)
{
    std::string text;
    mgmt_diff_print(mgmt_diff_new(p_engine->store.running, mgmt_store_candidate(p_engine->store)), &text);
    return text;
}

bool mgmt_compare_commit(t_mgmt_engine *p_engine, size_t back, std::string *p_text, t_mgmt_error *p_error)
{
    mgmt_work_tree_ptr tree;
    if (!mgmt_files_rollback(p_engine->store.files, back, &tree, p_error))
        return false;
    mgmt_diff_print(mgmt_diff_new(tree, p_engine->store.running), p_text);
    return true;
}
