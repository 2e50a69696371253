// Confirmed commits: who may confirm, and what comes back when nobody does.
//
// What is durable is in the files (mgmt_files.h): the newest commit is an unconfirmed one exactly while
// p_engine->unconfirmed is set. Undoing takes its turn among the commits; one that was given before, and
// succeeds, is in time.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"

#include <algorithm>

// ---- Who may ----

static bool may_follow(const t_mgmt_unconfirmed &unconfirmed, uint32_t session, const std::string &persist_id,
                       t_mgmt_error *p_error)
{
    bool is_bound = unconfirmed.persist.empty();
    if (is_bound ? session == unconfirmed.session && persist_id.empty() : persist_id == unconfirmed.persist)
        return true;
    std::string reason = "commit " + std::to_string(unconfirmed.number) + " of " + unconfirmed.user.name +
                         " waits for its confirmation, ";
    reason += is_bound ? "which only session " + std::to_string(unconfirmed.session) + " can give"
                       : "for which its persist id is needed";
    return mgmt_fail(p_error, MGMT_ERR_ACCESS_DENIED, "", reason);
}

static bool fail_without(t_mgmt_error *p_error)
{
    return mgmt_fail(p_error, MGMT_ERR_NOEXISTS, "", "no commit waits for a confirmation");
}

bool mgmt_confirm_may(const t_mgmt_engine &engine, const t_mgmt_commit &commit, t_mgmt_error *p_error)
{
    const t_mgmt_commit_request &request = commit.request;
    bool is_in_range = !request.confirm || (request.confirm->timeout_ms >= MGMT_CONFIRM_MIN_MS &&
                                            request.confirm->timeout_ms <= MGMT_CONFIRM_MAX_MS);
    if (!is_in_range)
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, "",
                         "the time for the confirmation is from 1 second to 7 days");
    if (engine.unconfirmed)
        return may_follow(*engine.unconfirmed, commit.session, request.persist_id, p_error);
    return request.persist_id.empty() || fail_without(p_error);
}

std::optional<uint64_t> mgmt_confirm_fallback(const t_mgmt_engine &engine, const t_mgmt_commit &commit)
{
    const std::vector<t_mgmt_commit_info> &commits = engine.store.files.commits;
    if (!commit.request.confirm)
        return std::nullopt;
    if (commits.empty())
        return 0;
    return engine.unconfirmed ? commits.front().fallback : commits.front().number;
}

// ---- Undoing ----

static void undo(t_mgmt_engine *p_engine, const std::shared_ptr<t_mgmt_commit> &commit,
                 const std::string &reason)
{
    t_mgmt_unconfirmed undone = std::move(*p_engine->unconfirmed);
    p_engine->unconfirmed.reset();
    mgmt_timer_cancel(&p_engine->timers, &undone.timer);
    commit->diff = mgmt_store_undo(&p_engine->store, undone.before, commit->user.name, reason);
    commit->result.changed = true;
    mgmt_commit_tell(p_engine, commit);
}

static void undo_queue(t_mgmt_engine *p_engine, const std::string &reason)
{
    uint64_t turn = p_engine->unconfirmed->turn;
    mgmt_serial(p_engine, [p_engine, turn, reason] {
        if (!p_engine->unconfirmed || p_engine->unconfirmed->turn != turn) {
            mgmt_serial_end(p_engine);
            return;
        }
        auto commit = std::make_shared<t_mgmt_commit>();
        commit->session = 0;
        commit->user = {.name = "system", .context = "system"};
        undo(p_engine, commit, reason);
    });
}

void mgmt_confirm_session_closed(t_mgmt_engine *p_engine, uint32_t session)
{
    const std::optional<t_mgmt_unconfirmed> &unconfirmed = p_engine->unconfirmed;
    if (unconfirmed && unconfirmed->persist.empty() && unconfirmed->session == session)
        undo_queue(p_engine, "its session has ended");
}

static bool may_cancel(const t_mgmt_engine &engine, uint32_t session, const std::string &persist_id,
                       t_mgmt_error *p_error)
{
    if (!engine.unconfirmed)
        return fail_without(p_error);
    return may_follow(*engine.unconfirmed, session, persist_id, p_error) &&
           !mgmt_running_is_locked(engine, session, p_error);
}

void mgmt_cancel_commit(t_mgmt_engine *p_engine, uint32_t session, const std::string &persist_id,
                        f_mgmt_done done)
{
    mgmt_serial(p_engine, [p_engine, session, persist_id, done = std::move(done)] {
        auto found = p_engine->sessions.find(session);
        if (found == p_engine->sessions.end()) {
            mgmt_serial_end(p_engine);
            return;
        }
        auto commit = std::make_shared<t_mgmt_commit>();
        commit->session = session;
        commit->user = found->second;
        commit->request.done = [done](const t_mgmt_commit_result &result) { done(result.error); };
        if (may_cancel(*p_engine, session, persist_id, &commit->result.error))
            undo(p_engine, commit, "cancelled");
        else
            mgmt_commit_tell(p_engine, commit);
    });
}

// ---- Beginning, extending, confirming ----

static void wait_for_confirmation(t_mgmt_engine *p_engine, const t_mgmt_commit &commit)
{
    std::optional<t_mgmt_unconfirmed> &unconfirmed = p_engine->unconfirmed;
    const t_mgmt_confirm &confirm = *commit.request.confirm;
    if (!unconfirmed) {
        unconfirmed.emplace();
        unconfirmed->before = p_engine->store.pre_commit;
    }
    unconfirmed->turn = ++p_engine->last_unconfirmed_turn;
    unconfirmed->number = p_engine->store.files.commits.front().number;
    unconfirmed->user = commit.user;
    unconfirmed->session = commit.session;
    unconfirmed->persist = confirm.persist;
    unconfirmed->due_ms = p_engine->timers.now_ms() + confirm.timeout_ms;
    mgmt_timer_set(&p_engine->timers, &unconfirmed->timer, confirm.timeout_ms,
                   [p_engine] { undo_queue(p_engine, "the time is over"); });
    // Its session may have ended while the commit was under way.
    if (!p_engine->sessions.contains(commit.session))
        mgmt_confirm_session_closed(p_engine, commit.session);
}

bool mgmt_confirm_settle(t_mgmt_engine *p_engine, const t_mgmt_commit &commit, t_mgmt_error *p_error)
{
    std::optional<t_mgmt_unconfirmed> &unconfirmed = p_engine->unconfirmed;
    bool changed = commit.result.changed;
    if (commit.request.confirm && (changed || unconfirmed))
        wait_for_confirmation(p_engine, commit);
    if (commit.request.confirm || !unconfirmed)
        return true;
    // A commit that was stored confirms what was before it.
    if (!changed && !mgmt_files_confirm(&p_engine->store.files, p_error))
        return false;
    LUM_LOG(LUM_LOG_NOTICE, "Commit %lu is confirmed by %s", unconfirmed->number, commit.user.name.c_str());
    mgmt_timer_cancel(&p_engine->timers, &unconfirmed->timer);
    unconfirmed.reset();
    return true;
}

std::optional<t_mgmt_pending_confirm> mgmt_pending_confirm(const t_mgmt_engine &engine)
{
    if (!engine.unconfirmed)
        return std::nullopt;
    const t_mgmt_unconfirmed &unconfirmed = *engine.unconfirmed;
    int64_t remaining_ms = unconfirmed.due_ms - engine.timers.now_ms();
    return t_mgmt_pending_confirm{.number = unconfirmed.number,
                                  .user = unconfirmed.user.name,
                                  .session = unconfirmed.persist.empty() ? unconfirmed.session : 0,
                                  .remaining_ms = std::max<int64_t>(remaining_ms, 0)};
}
