#include "tests/mgmtd/control/engine_double.h"

#include <algorithm>
#include <chrono>
#include <event2/event.h>
#include <thread>

static void note(t_mgmt_engine *p_engine, uint32_t session, const std::string &line)
{
    std::lock_guard guard(p_engine->lock);
    p_engine->log.push_back(std::to_string(session) + ' ' + line);
}

bool engine_double_waits_for(t_mgmt_engine *p_engine, const std::string &line)
{
    for (int i = 0; i < 1000; i++) {
        {
            std::lock_guard guard(p_engine->lock);
            if (std::ranges::count(p_engine->log, line) > 0)
                return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// ---- Callbacks from the loop, unless the session is closed by then ----

struct t_later {
    t_mgmt_engine *p_engine;
    uint32_t session;
    std::function<void()> fn;
};

static void on_later(evutil_socket_t, short, void *p_arg)
{
    std::unique_ptr<t_later> later(static_cast<t_later *>(p_arg));
    if (std::ranges::count(later->p_engine->closed, later->session) == 0)
        later->fn();
}

static void run_later(t_mgmt_engine *p_engine, uint32_t session, std::function<void()> fn)
{
    static constexpr timeval at_once = {};
    event_base_once(p_engine->p_base, -1, EV_TIMEOUT, on_later, new t_later{p_engine, session, std::move(fn)},
                    &at_once);
}

// ---- The engine's functions ----

const t_schema_index &mgmt_engine_schema(const t_mgmt_engine &engine)
{
    return *engine.p_schema;
}

int mgmt_engine_phase(const t_mgmt_engine &)
{
    return 2;
}

uint32_t mgmt_session_open(t_mgmt_engine *p_engine, const t_mgmt_user &user)
{
    note(p_engine, ++p_engine->last_session, "open " + user.name + ' ' + user.context);
    return p_engine->last_session;
}

void mgmt_session_close(t_mgmt_engine *p_engine, uint32_t session)
{
    note(p_engine, session, "close");
    p_engine->closed.push_back(session);
}

bool mgmt_lock(t_mgmt_engine *p_engine, uint32_t session, e_mgmt_datastore, t_mgmt_error *)
{
    note(p_engine, session, "lock");
    return true;
}

bool mgmt_unlock(t_mgmt_engine *, uint32_t, e_mgmt_datastore, t_mgmt_error *p_error)
{
    *p_error = {MGMT_ERR_BADSTATE, "", "the session has no lock"};
    return false;
}

uint32_t mgmt_lock_holder(const t_mgmt_engine &, e_mgmt_datastore)
{
    return 0;
}

void mgmt_edit(t_mgmt_engine *p_engine, uint32_t session, std::vector<t_mgmt_edit> edits, f_mgmt_done done)
{
    std::string line = "edit";
    for (const t_mgmt_edit &edit : edits)
        line += std::string(edit.replace_all ? " replace " : " ") + std::to_string(edit.tops.size());
    note(p_engine, session, line);
    run_later(p_engine, session, [p_engine, done] { done(p_engine->edit_error); });
}

static void noted(t_mgmt_engine *p_engine, uint32_t session, const std::string &line, f_mgmt_done done)
{
    note(p_engine, session, line);
    run_later(p_engine, session, [done] { done({}); });
}

void mgmt_discard(t_mgmt_engine *p_engine, uint32_t session, f_mgmt_done done)
{
    noted(p_engine, session, "discard", std::move(done));
}

void mgmt_rollback(t_mgmt_engine *p_engine, uint32_t session, size_t back, f_mgmt_done done)
{
    noted(p_engine, session, "rollback " + std::to_string(back), std::move(done));
}

void mgmt_check(t_mgmt_engine *p_engine, uint32_t session, f_mgmt_done done)
{
    noted(p_engine, session, "check", std::move(done));
}

void mgmt_commit(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_commit_request request)
{
    std::string line = "commit " + request.comment;
    if (request.confirm)
        line += ' ' + std::to_string(request.confirm->timeout_ms) + ' ' + request.confirm->persist + ' ' +
                request.persist_id;
    note(p_engine, session, line);
    if (p_engine->holds_commits)
        return;
    run_later(p_engine, session, [p_engine, request] {
        request.progress("waiting for tarnd");
        request.done(p_engine->commit_result);
    });
}

void mgmt_cancel_commit(t_mgmt_engine *p_engine, uint32_t session, const std::string &persist_id,
                        f_mgmt_done done)
{
    noted(p_engine, session, "cancel " + persist_id, std::move(done));
}

std::optional<t_mgmt_pending_confirm> mgmt_pending_confirm(const t_mgmt_engine &)
{
    return t_mgmt_pending_confirm{.number = 12, .user = "root", .session = 7, .remaining_ms = 1001};
}

std::vector<t_mgmt_daemon_info> mgmt_daemons(const t_mgmt_engine &)
{
    return {{.name = "tarnd",
             .is_ready = true,
             .points = 9,
             .subscriptions = 53,
             .is_told = true,
             .is_asked = false}};
}

const std::vector<std::string> &mgmt_alarms(const t_mgmt_engine &engine)
{
    return engine.alarms;
}

uint32_t mgmt_notif_subscribe(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_notif_request request)
{
    run_later(p_engine, session, [p_engine, request = std::move(request)] {
        for (const t_mgmt_notification &notification : p_engine->stored)
            request.notify(notification);
    });
    return ++p_engine->last_subscription;
}

void mgmt_notif_unsubscribe(t_mgmt_engine *p_engine, uint32_t subscription)
{
    note(p_engine, p_engine->last_session, "unsubscribe " + std::to_string(subscription));
}

const std::vector<t_mgmt_commit_info> &mgmt_commits(const t_mgmt_engine &engine)
{
    return engine.commits;
}

static mgmt_work_tree_ptr running_tree(t_mgmt_engine *p_engine)
{
    mgmt_work_tree_ptr tree = mgmt_tree_new(p_engine->p_schema, p_engine->p_context);
    t_mgmt_error error;
    if (!mgmt_tree_read(tree.get(), p_engine->running_json, &error))
        abort();
    return tree;
}

mgmt_tree_ptr mgmt_tree_of(t_mgmt_engine *p_engine, e_mgmt_datastore)
{
    return running_tree(p_engine);
}

std::string mgmt_compare(t_mgmt_engine *)
{
    return "+ /policy/zone{a}\n- /policy/zone{b}\n";
}

bool mgmt_compare_commit(t_mgmt_engine *, size_t, std::string *, t_mgmt_error *p_error)
{
    *p_error = {MGMT_ERR_NOEXISTS, "", "there is no such commit"};
    return false;
}

void mgmt_get(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_get_request request)
{
    note(p_engine, session, std::string("get ") + (request.with_config ? "all" : "state"));
    run_later(p_engine, session, [p_engine, done = std::move(request.done)] {
        done({.error = {}, .tree = running_tree(p_engine), .warnings = {"data-policy-filters: no provider"}});
    });
}

void mgmt_action(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_action_request request)
{
    std::string line = "action " + std::string(request.p_rpc->name);
    for (const t_mgmt_action_value &value : request.input)
        line += ' ' + std::string(value.schema->name) + '=' + value.text;
    for (const std::string &word : request.words)
        line += ' ' + word;
    note(p_engine, session, line);
    run_later(p_engine, session, [p_engine, request = std::move(request)] {
        request.output(p_engine->action_output);
        request.done({.error = {}, .values = {{request.p_rpc->outputs.at(0), "done"}}});
    });
}
