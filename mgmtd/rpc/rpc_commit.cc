// Locks, and what makes the candidate running.

#include "mgmtd/rpc/mgmt_rpc_private.h"

// ---- Locks ----

static e_mgmt_datastore target_of(const rpc_call_ptr &call)
{
    const lyd_node *p_target = rpc_child(call->input.get(), "target");
    return rpc_child(p_target, "candidate") != nullptr ? MGMT_DS_CANDIDATE : MGMT_DS_RUNNING;
}

void rpc_lock(const rpc_call_ptr &call)
{
    t_mgmt_rpc_session *p_session = call->p_session;
    e_mgmt_datastore target = target_of(call);
    t_mgmt_error error;
    if (mgmt_lock(p_session->p_engine, p_session->session, target, &error)) {
        p_session->server->locks[target] = {p_session->session, rpc_time_text(rpc_now_us())};
        return rpc_ok(call);
    }
    uint32_t holder = rpc_lock_holder(*p_session, target);
    std::string name = target == MGMT_DS_CANDIDATE ? "the candidate" : "running";
    std::string reason = holder != 0 ? "session " + std::to_string(holder) + " holds the lock" : error.reason;
    t_mgmt_rpc_error denial = rpc_error("protocol", "lock-denied", name + ": " + reason);
    denial.info.emplace_back("session-id", std::to_string(holder));
    rpc_fail(call, std::move(denial));
}

void rpc_unlock(const rpc_call_ptr &call)
{
    t_mgmt_rpc_session *p_session = call->p_session;
    t_mgmt_error error;
    if (mgmt_unlock(p_session->p_engine, p_session->session, target_of(call), &error))
        rpc_ok(call);
    else
        rpc_fail_engine(call, error);
}

// ---- Commit ----

// The commit that waits for its confirmation is another session's, or there is none. A persist-id that fits
// no commit is a wrong value.
static void fail_confirm(const rpc_call_ptr &call, const t_mgmt_error &error)
{
    bool fits_nothing = error.code == MGMT_ERR_NOEXISTS && error.path.empty();
    if (error.code != MGMT_ERR_ACCESS_DENIED && !fits_nothing)
        return rpc_fail_engine(call, error);
    if (rpc_child(call->input.get(), "persist-id") != nullptr)
        return rpc_fail(call, rpc_error_element("invalid-value", "persist-id", error.reason));
    auto pending = mgmt_pending_confirm(*call->p_session->p_engine);
    if (!pending)
        return rpc_fail(call, rpc_error("protocol", "operation-failed", error.reason));
    uint32_t number = pending->session != 0 ? rpc_session_number(*call->p_session, pending->session) : 0;
    std::string who = number != 0             ? "session " + std::to_string(number)
                      : pending->session != 0 ? "a session of the command line"
                                              : "who knows its persist-id";
    rpc_fail(call, rpc_error("protocol", "in-use",
                             "commit " + std::to_string(pending->number) + " of " + pending->user +
                                 " waits for its confirmation, which only " + who + " can give"));
}

static bool confirm_read(const rpc_call_ptr &call, t_mgmt_commit_request *p_request)
{
    const lyd_node *p_input = call->input.get();
    p_request->persist_id = rpc_leaf(p_input, "persist-id");
    if (rpc_child(p_input, "confirmed") == nullptr) {
        if (rpc_child(p_input, "persist") == nullptr)
            return true;
        rpc_fail(call,
                 rpc_error_element("missing-element", "confirmed", "persist is for confirmed commits only"));
        return false;
    }
    t_mgmt_confirm confirm = {.persist = rpc_leaf(p_input, "persist")};
    std::string timeout = rpc_leaf(p_input, "confirm-timeout");
    if (!timeout.empty())
        confirm.timeout_ms = std::stoll(timeout) * 1000;
    p_request->confirm = confirm;
    if (confirm.timeout_ms <= MGMT_CONFIRM_MAX_MS)
        return true;
    rpc_fail(call,
             rpc_error_element("invalid-value", "confirm-timeout",
                               "confirm-timeout is at most " + std::to_string(MGMT_CONFIRM_MAX_MS / 1000)));
    return false;
}

void rpc_commit(const rpc_call_ptr &call)
{
    t_mgmt_rpc_session *p_session = call->p_session;
    t_mgmt_engine *p_engine = p_session->p_engine;
    t_mgmt_error error;
    t_mgmt_commit_request request;
    if (!rpc_may_change(p_session, mgmt_tree_of(p_engine, MGMT_DS_RUNNING),
                        mgmt_tree_of(p_engine, MGMT_DS_CANDIDATE), &error))
        return rpc_fail_engine(call, error);
    if (!confirm_read(call, &request))
        return;
    request.done = [call](const t_mgmt_commit_result &result) {
        if (result.error.code == MGMT_OK)
            rpc_ok(call);
        else
            fail_confirm(call, result.error);
    };
    mgmt_commit(p_engine, p_session->session, std::move(request));
}

void rpc_cancel_commit(const rpc_call_ptr &call)
{
    t_mgmt_rpc_session *p_session = call->p_session;
    std::string persist_id = rpc_leaf(call->input.get(), "persist-id");
    auto done = [call](const t_mgmt_error &error) {
        if (error.code == MGMT_OK)
            rpc_ok(call);
        else
            fail_confirm(call, error);
    };
    mgmt_cancel_commit(p_session->p_engine, p_session->session, persist_id, std::move(done));
}

void rpc_discard_changes(const rpc_call_ptr &call)
{
    mgmt_discard(call->p_session->p_engine, call->p_session->session, rpc_done(call));
}
