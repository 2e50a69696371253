// The requests of the control socket, one function each.

#include "mgmtd/control/control_private.h"
#include "mgmtd/control/control_schema.h"
#include "mgmtd/control/control_values.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using t_json = nlohmann::ordered_json;

static t_mgmt_engine *engine_of(const t_control_connection *p_connection)
{
    return p_connection->p_control->p_engine;
}

static void fail(t_control_connection *p_connection, e_mgmt_error code, std::string path, std::string reason)
{
    control_answer(p_connection, {code, std::move(path), std::move(reason)});
}

static void answer_json(t_control_connection *p_connection, const t_json &json,
                        std::vector<std::string> warnings = {})
{
    std::string body = json.dump(-1, ' ', false, t_json::error_handler_t::replace);
    control_answer(p_connection, {}, {.body = std::move(body), .warnings = std::move(warnings)});
}

// For requests without a result.
static f_mgmt_done answer_done(t_control_connection *p_connection)
{
    return [p_connection](const t_mgmt_error &error) { control_answer(p_connection, error); };
}

// ---- The candidate ----

static void edits_begin(t_control_connection *p_connection, std::string_view text)
{
    t_mgmt_engine *p_engine = engine_of(p_connection);
    std::vector<t_mgmt_edit> edits;
    t_mgmt_error error;
    if (!mgmt_edit_read_json(mgmt_engine_schema(*p_engine), text, &edits, &error))
        return control_answer(p_connection, error);
    mgmt_edit(p_engine, p_connection->session, std::move(edits), answer_done(p_connection));
}

static void edit_serve(t_control_connection *p_connection, const t_control_request &request)
{
    edits_begin(p_connection, request.body);
}

// A configuration is one edit of the whole tree. It must stand alone before it is put into one.
static void load_serve(t_control_connection *p_connection, const t_control_request &request)
{
    if (!nlohmann::json::accept(request.body))
        return fail(p_connection, MGMT_ERR_BADTYPE, "", "the configuration is no JSON");
    std::string op = request.replaces ? "replace" : "merge";
    edits_begin(p_connection, R"([{"op":")" + op + R"(","path":"/","value":)" + request.body + "}]");
}

static void lock_serve(t_control_connection *p_connection, const t_control_request &)
{
    t_mgmt_error error;
    bool locked = mgmt_lock(engine_of(p_connection), p_connection->session, MGMT_DS_CANDIDATE, &error);
    control_answer(p_connection, locked ? t_mgmt_error() : error);
}

static void unlock_serve(t_control_connection *p_connection, const t_control_request &)
{
    t_mgmt_error error;
    bool unlocked = mgmt_unlock(engine_of(p_connection), p_connection->session, MGMT_DS_CANDIDATE, &error);
    control_answer(p_connection, unlocked ? t_mgmt_error() : error);
}

// pending is the confirmed commit that waited when this one began; 0 for none.
static void commit_done(t_control_connection *p_connection, uint64_t pending,
                        const t_mgmt_commit_result &result)
{
    if (result.error.code != MGMT_OK)
        return control_answer(p_connection, result.error);
    t_json json = t_json::object({{"changed", result.changed}});
    if (result.changed)
        json["commit"] = result.number;
    if (pending != 0 && !mgmt_pending_confirm(*engine_of(p_connection)))
        json["confirmed"] = pending;
    answer_json(p_connection, json, result.warnings);
}

static void commit_serve(t_control_connection *p_connection, const t_control_request &request)
{
    if (!request.persist.empty() && request.confirm_s == 0)
        return fail(p_connection, MGMT_ERR_BADSTATE, "", "persist is for a commit that is to be confirmed");
    std::optional<t_mgmt_confirm> confirm;
    if (request.confirm_s != 0)
        confirm = {.timeout_ms = request.confirm_s * 1000, .persist = request.persist};
    std::optional<t_mgmt_pending_confirm> pending = mgmt_pending_confirm(*engine_of(p_connection));
    uint64_t number = pending ? pending->number : 0;
    t_mgmt_commit_request commit = {
        .comment = request.comment,
        .confirm = confirm,
        .persist_id = request.persist_id,
        .progress = [p_connection](const std::string &line) { control_progress(p_connection, line); },
        .done = [p_connection,
                 number](const t_mgmt_commit_result &result) { commit_done(p_connection, number, result); },
    };
    mgmt_commit(engine_of(p_connection), p_connection->session, std::move(commit));
}

static void cancel_serve(t_control_connection *p_connection, const t_control_request &request)
{
    mgmt_cancel_commit(engine_of(p_connection), p_connection->session, request.persist_id,
                       answer_done(p_connection));
}

static void check_serve(t_control_connection *p_connection, const t_control_request &)
{
    mgmt_check(engine_of(p_connection), p_connection->session, answer_done(p_connection));
}

static void discard_serve(t_control_connection *p_connection, const t_control_request &)
{
    mgmt_discard(engine_of(p_connection), p_connection->session, answer_done(p_connection));
}

static void rollback_serve(t_control_connection *p_connection, const t_control_request &request)
{
    size_t back = static_cast<size_t>(request.number);
    mgmt_rollback(engine_of(p_connection), p_connection->session, back, answer_done(p_connection));
}

// ---- History ----

static void compare_serve(t_control_connection *p_connection, const t_control_request &request)
{
    t_mgmt_engine *p_engine = engine_of(p_connection);
    std::string text;
    t_mgmt_error error;
    if (request.number < 0)
        text = mgmt_compare(p_engine);
    else if (!mgmt_compare_commit(p_engine, static_cast<size_t>(request.number), &text, &error))
        return control_answer(p_connection, error);
    t_json lines = t_json::array();
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    answer_json(p_connection, t_json::object({{"changes", std::move(lines)}}));
}

static t_json commit_json(const t_mgmt_commit_info &info)
{
    return {{"commit", info.number}, {"user", info.user}, {"time", info.time}, {"comment", info.comment}};
}

static void commits_serve(t_control_connection *p_connection, const t_control_request &)
{
    t_json commits = t_json::array();
    for (const t_mgmt_commit_info &info : mgmt_commits(*engine_of(p_connection))) {
        t_json row = t_json::object({{"rollback", commits.size()}});
        row.update(commit_json(info));
        commits.push_back(std::move(row));
    }
    answer_json(p_connection, t_json::object({{"commits", std::move(commits)}}));
}

// ---- Showing ----

// Prints what a path leads to. A list that a path names without keys may have no entries; anything else must
// exist.
static bool tree_print(const t_mgmt_tree &tree, const t_mgmt_path &path, std::string *p_text,
                       t_mgmt_error *p_error)
{
    t_mgmt_place place;
    if (path.steps.empty()) {
        mgmt_tree_print(tree, nullptr, 0, p_text);
        return true;
    }
    if (!mgmt_path_find(tree, path, &place, p_error))
        return false;
    const t_mgmt_step &last = path.steps.back();
    bool is_listlike = place.schema->kind == SCHEMA_KIND_LIST || place.schema->kind == SCHEMA_KIND_LEAF_LIST;
    bool is_whole_list = is_listlike && last.keys.empty() && last.position < 0;
    if (is_whole_list && place.parent_exists)
        mgmt_tree_print_list(tree, place.p_parent, place.schema, 0, p_text);
    else if (place.p_node != nullptr)
        mgmt_tree_print(tree, place.p_node, 0, p_text);
    else if (place.schema->kind == SCHEMA_KIND_CONTAINER && place.parent_exists)
        *p_text = "{}";
    else
        return mgmt_fail(p_error, MGMT_ERR_NOEXISTS, mgmt_path_text(path), "there is no such node");
    return true;
}

static void tree_answer(t_control_connection *p_connection, const t_mgmt_tree &tree, const t_mgmt_path &path,
                        std::vector<std::string> warnings)
{
    t_control_result result = {.body = "", .warnings = std::move(warnings)};
    t_mgmt_error error;
    try {
        bool printed = tree_print(tree, path, &result.body, &error);
        control_answer(p_connection, printed ? t_mgmt_error() : error, result);
    } catch (const std::bad_alloc &) {
        fail(p_connection, MGMT_ERR_INTERNAL, "", "no memory for the answer");
    }
}

// What comes from daemons is there with the engine's callback.
static void state_begin(t_control_connection *p_connection, t_mgmt_path path, bool with_config)
{
    t_mgmt_get_request request;
    if (!path.steps.empty())
        request.paths.push_back(path);
    request.with_config = with_config;
    request.done = [p_connection, path = std::move(path)](t_mgmt_get_result result) {
        if (result.error.code != MGMT_OK)
            return control_answer(p_connection, result.error);
        tree_answer(p_connection, *result.tree, path, std::move(result.warnings));
    };
    mgmt_get(engine_of(p_connection), p_connection->session, std::move(request));
}

static void show_serve(t_control_connection *p_connection, const t_control_request &request)
{
    t_mgmt_engine *p_engine = engine_of(p_connection);
    t_mgmt_path path;
    t_mgmt_error error;
    if (!mgmt_path_read(mgmt_engine_schema(*p_engine), nullptr, request.path, &path, &error))
        return control_answer(p_connection, error);
    if (request.from == CONTROL_FROM_ALL || request.from == CONTROL_FROM_STATE)
        return state_begin(p_connection, std::move(path), request.from == CONTROL_FROM_ALL);
    e_mgmt_datastore datastore = request.from == CONTROL_FROM_RUNNING ? MGMT_DS_RUNNING : MGMT_DS_CANDIDATE;
    tree_answer(p_connection, *mgmt_tree_of(p_engine, datastore), path, {});
}

static void schema_serve(t_control_connection *p_connection, const t_control_request &request)
{
    const t_schema_index &index = mgmt_engine_schema(*engine_of(p_connection));
    t_mgmt_path path;
    t_mgmt_error error;
    if (!mgmt_path_read(index, nullptr, request.path, &path, &error))
        return control_answer(p_connection, error);
    const t_schema_node *p_node = path.steps.empty() ? nullptr : path.steps.back().schema;
    answer_json(p_connection, control_schema_describe(index, p_node));
}

static void values_serve(t_control_connection *p_connection, const t_control_request &request)
{
    t_mgmt_engine *p_engine = engine_of(p_connection);
    t_mgmt_path path;
    t_mgmt_error error;
    if (!mgmt_path_read(mgmt_engine_schema(*p_engine), nullptr, request.path, &path, &error))
        return control_answer(p_connection, error);
    t_control_values values = {.prefix = request.prefix, .values = {}, .seen = {}};
    for (e_mgmt_datastore datastore : {MGMT_DS_CANDIDATE, MGMT_DS_OPERATIONAL})
        control_values_of_tree(*mgmt_tree_of(p_engine, datastore), path, request.words, &values);
    if (!path.steps.empty())
        control_values_of_type(*path.steps.back().schema, request.words, &values);
    t_json result = t_json::object({{"values", std::move(values.values)}});
    if (values.more)
        result["more"] = true;
    answer_json(p_connection, result);
}

// ---- Status ----

// Candidate and running are one tree as long as nobody edits.
static bool candidate_has_changes(t_mgmt_engine *p_engine)
{
    mgmt_tree_ptr running = mgmt_tree_of(p_engine, MGMT_DS_RUNNING);
    mgmt_tree_ptr candidate = mgmt_tree_of(p_engine, MGMT_DS_CANDIDATE);
    return candidate != running && !mgmt_tree_equal(*candidate, *running);
}

// A session that is bound to the commit stands beside it; whoever knows the persist-id confirms one without.
static t_json pending_json(const t_mgmt_pending_confirm &pending)
{
    t_json json = {{"commit", pending.number}, {"user", pending.user}};
    if (pending.session != 0)
        json["session"] = pending.session;
    json["remaining-seconds"] = (pending.remaining_ms + 999) / 1000;
    return json;
}

static void commits_add(const t_mgmt_engine &engine, t_json *p_status)
{
    if (std::optional<t_mgmt_pending_confirm> pending = mgmt_pending_confirm(engine); pending)
        (*p_status)["pending-confirm"] = pending_json(*pending);
    const std::vector<t_mgmt_commit_info> &commits = mgmt_commits(engine);
    if (!commits.empty())
        (*p_status)["last-commit"] = commit_json(commits.front());
}

static t_json daemon_json(const t_mgmt_daemon_info &daemon)
{
    const char *p_state = daemon.is_told    ? "being told"
                          : daemon.is_asked ? "being asked"
                          : daemon.is_ready ? "ready"
                                            : "registering";
    return {{"name", daemon.name},
            {"state", p_state},
            {"points", daemon.points},
            {"subscriptions", daemon.subscriptions}};
}

static void status_serve(t_control_connection *p_connection, const t_control_request &)
{
    t_mgmt_engine *p_engine = engine_of(p_connection);
    t_json status = {{"phase", mgmt_engine_phase(*p_engine)},
                     {"sessions", p_connection->p_control->connections.size()},
                     {"session", p_connection->session},
                     {"user", p_connection->user},
                     {"candidate-changed", candidate_has_changes(p_engine)}};
    if (uint32_t holder = mgmt_lock_holder(*p_engine, MGMT_DS_CANDIDATE); holder != 0)
        status["candidate-locked-by"] = holder;
    commits_add(*p_engine, &status);
    for (const t_mgmt_daemon_info &daemon : mgmt_daemons(*p_engine))
        status["daemons"].push_back(daemon_json(daemon));
    if (const std::vector<std::string> &alarms = mgmt_alarms(*p_engine); !alarms.empty())
        status["alarms"] = alarms;
    answer_json(p_connection, status);
}

// ---- Actions ----

static bool action_input(const t_schema_index &index, const t_control_request &request,
                         t_mgmt_action_request *p_action, t_mgmt_error *p_error)
{
    for (const auto &[name, text] : request.input) {
        const t_schema_node *p_leaf = schema_child_by_name(index, p_action->p_rpc, name);
        if (p_leaf == nullptr || p_leaf->kind != SCHEMA_KIND_LEAF)
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, p_action->p_rpc->path,
                             "the action has no parameter \"" + name + '"');
        p_action->input.push_back({p_leaf, text});
    }
    return true;
}

static void action_done(t_control_connection *p_connection, const t_mgmt_action_result &result)
{
    if (result.error.code != MGMT_OK)
        return control_answer(p_connection, result.error);
    t_json values = t_json::object();
    for (const t_mgmt_action_value &value : result.values)
        values[std::string(value.schema->name)] = value.text;
    answer_json(p_connection, values);
}

static void action_serve(t_control_connection *p_connection, const t_control_request &request)
{
    t_mgmt_engine *p_engine = engine_of(p_connection);
    const t_schema_index &index = mgmt_engine_schema(*p_engine);
    t_mgmt_action_request action;
    action.p_rpc = schema_find(index, request.action);
    if (action.p_rpc == nullptr || action.p_rpc->kind != SCHEMA_KIND_RPC)
        return fail(p_connection, MGMT_ERR_BADPATH, request.action, "there is no such action");
    t_mgmt_error error;
    if (!action_input(index, request, &action, &error))
        return control_answer(p_connection, error);
    action.words = request.words;
    action.output = [p_connection](std::string_view text) { control_output(p_connection, text); };
    action.done = [p_connection](const t_mgmt_action_result &result) { action_done(p_connection, result); };
    mgmt_action(p_engine, p_connection->session, std::move(action));
}

// ---- All of them ----

using f_serve = void (*)(t_control_connection *p_connection, const t_control_request &request);

// By e_control_op.
static constexpr f_serve operations[] = {
    edit_serve,
    load_serve,
    lock_serve,
    unlock_serve,
    commit_serve,
    check_serve,
    discard_serve,
    rollback_serve,
    compare_serve,
    commits_serve,
    show_serve,
    action_serve,
    status_serve,
    schema_serve,
    cancel_serve,
    values_serve,
    control_monitor_serve,
};
static_assert(std::size(operations) == CONTROL_MONITOR + 1);

void control_serve(t_control_connection *p_connection, const t_control_request &request)
{
    operations[request.op](p_connection, request);
}
