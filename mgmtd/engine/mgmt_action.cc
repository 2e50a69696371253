// Actions and commands, and what they print.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"

#include <algorithm>

using action_ptr = std::shared_ptr<t_mgmt_running_action>;

static void action_finish(t_mgmt_engine *p_engine, uint32_t usid)
{
    auto node = p_engine->actions.extract(usid);
    if (node.empty())
        return;
    action_ptr action = std::move(node.mapped());
    mgmt_timer_cancel(&p_engine->timers, &action->missing);
    if (action->result.error.code != MGMT_OK)
        LUM_LOG(LUM_LOG_NOTICE, "%s", mgmt_error_text(action->result.error).c_str());
    mgmt_later_for(p_engine, action->session, [action] { action->request.done(action->result); });
}

static void action_fail(t_mgmt_engine *p_engine, uint32_t usid, const t_mgmt_running_action &action,
                        const std::string &reason)
{
    t_mgmt_error *p_error = &p_engine->actions.at(usid)->result.error;
    mgmt_fail(p_error, MGMT_ERR_EXTERNAL, action.request.p_rpc->path,
              std::string(action.request.p_rpc->actionpoint) + ": " + reason);
}

// Done once all bytes have come that the daemon says it has printed. They come on another connection than
// the reply, so they may be late; bytes that do not come at all are given up.
static void action_check(t_mgmt_engine *p_engine, uint32_t usid)
{
    t_mgmt_running_action &action = *p_engine->actions.at(usid);
    if (!action.printed_total)
        return;
    if (action.printed >= *action.printed_total) {
        action_finish(p_engine, usid);
        return;
    }
    mgmt_timer_set(&p_engine->timers, &action.missing, MGMT_PROVIDER_TIMEOUT_MS, [p_engine, usid] {
        action_fail(p_engine, usid, *p_engine->actions.at(usid), "a part of the output is missing");
        action_finish(p_engine, usid);
    });
}

void mgmt_action_print(t_mgmt_engine *p_engine, uint32_t usid, std::string_view text)
{
    auto found = p_engine->actions.find(usid);
    if (found == p_engine->actions.end())
        return;
    action_ptr action = found->second;
    uint64_t before = action->printed;
    action->printed += text.size();
    mgmt_daemon_heard(p_engine, action->daemon);
    bool is_heard = action->request.output && p_engine->sessions.contains(action->session);
    if (is_heard && before < MGMT_ACTION_MAX_OUTPUT)
        action->request.output(
            text.substr(0, std::min<uint64_t>(text.size(), MGMT_ACTION_MAX_OUTPUT - before)));
    if (is_heard && before <= MGMT_ACTION_MAX_OUTPUT && action->printed > MGMT_ACTION_MAX_OUTPUT)
        action->request.output("\noutput truncated\n");
    action_check(p_engine, usid);
}

// ---- The reply ----

static void results_take(t_mgmt_running_action *p_action, const std::vector<IpcTagValue> &values)
{
    for (const IpcTagValue &item : values) {
        const auto &outputs = p_action->request.p_rpc->outputs;
        auto is_tag = [&](const t_schema_node *p_node) { return p_node->tag == item.tag.tag; };
        auto found = std::find_if(outputs.begin(), outputs.end(), is_tag);
        t_mgmt_error error;
        std::string text;
        if (found != outputs.end() && mgmt_value_text(*found, item.value.v, &text, &error))
            p_action->result.values.push_back({*found, std::move(text)});
        else
            LUM_LOG(LUM_LOG_NOTICE, "A result of %s does not fit the model",
                    p_action->request.p_rpc->path.c_str());
    }
}

static void reply_take(t_mgmt_engine *p_engine, uint32_t usid, const t_mgmt_reply &reply)
{
    t_mgmt_running_action &action = *p_engine->actions.at(usid);
    if (!reply.answered || reply.status != 0)
        action_fail(p_engine, usid, action, reply.text.empty() ? "failed" : reply.text);
    else
        results_take(&action, reply.action.results);
    action.printed_total = reply.status != 0 ? reply.printed_bytes : reply.action.printed_bytes;
    action_check(p_engine, usid);
}

// ---- The call ----

static t_ipc_user user_of(const t_mgmt_engine &engine, const t_mgmt_running_action &action, uint32_t usid)
{
    auto found = engine.sessions.find(action.session);
    if (found == engine.sessions.end())
        return {.usid = usid, .name = "", .context = ""};
    return {.usid = usid, .name = found->second.name, .context = found->second.context};
}

static std::vector<uint8_t> action_body(const t_mgmt_engine &engine, const t_mgmt_running_action &action,
                                        uint32_t usid, const std::vector<IpcTagValue> &params)
{
    const t_schema_node &rpc = *action.request.p_rpc;
    return ipc_encode(t_ipc_dp_action{.point = std::string(rpc.actionpoint),
                                      .user = user_of(engine, action, usid),
                                      .name_tag = rpc.tag,
                                      .name_ns = rpc.ns,
                                      .keypath = {},
                                      .params = params});
}

static std::vector<uint8_t> command_body(const t_mgmt_engine &engine, const t_mgmt_running_action &action,
                                         uint32_t usid)
{
    const t_schema_node &rpc = *action.request.p_rpc;
    std::vector<std::string> argv = {std::string(rpc.name)};
    for (const t_mgmt_action_value &value : action.request.input)
        argv.push_back(value.text);
    argv.insert(argv.end(), action.request.words.begin(), action.request.words.end());
    return ipc_encode(t_ipc_dp_command{.point = std::string(rpc.actionpoint),
                                       .user = user_of(engine, action, usid),
                                       .path = rpc.path,
                                       .argv = std::move(argv)});
}

static bool params_make(const t_mgmt_engine &engine, const t_mgmt_action_request &request,
                        std::vector<IpcTagValue> *p_params, t_mgmt_error *p_error)
{
    for (const t_mgmt_action_value &input : request.input) {
        confd_value_t value;
        if (input.schema->parent != request.p_rpc || input.schema->output)
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, input.schema->path, "no parameter of this action");
        if (!mgmt_value_from_text(*engine.store.running, input.schema, input.text, &value, p_error))
            return false;
        p_params->push_back({.tag = {input.schema->tag, input.schema->ns}, .value = IpcValue(value)});
    }
    for (const t_schema_node *p_child : request.p_rpc->children) {
        auto is_it = [&](const t_mgmt_action_value &input) { return input.schema == p_child; };
        if (p_child->mandatory && std::none_of(request.input.begin(), request.input.end(), is_it))
            return mgmt_fail(p_error, MGMT_ERR_BADPATH, p_child->path, "this parameter is missing");
    }
    return true;
}

static void worker_ask(t_mgmt_engine *p_engine, uint32_t usid, uint32_t worker, bool is_command,
                       const std::vector<IpcTagValue> &params)
{
    const t_mgmt_running_action &action = *p_engine->actions.at(usid);
    mgmt_daemon_ask(
        p_engine, action.daemon,
        {.connection = worker,
         .op = is_command ? IPC_OP_DP_COMMAND : IPC_OP_DP_ACTION,
         .body = is_command ? command_body(*p_engine, action, usid)
                            : action_body(*p_engine, action, usid, params),
         .thandle = 0,
         .done = [p_engine, usid](const t_mgmt_reply &reply) { reply_take(p_engine, usid, reply); }});
}

static void init_ask(t_mgmt_engine *p_engine, uint32_t usid, bool is_command, std::vector<IpcTagValue> params)
{
    const t_mgmt_running_action &action = *p_engine->actions.at(usid);
    t_ipc_action_init init = {.point = std::string(action.request.p_rpc->actionpoint),
                              .user = user_of(*p_engine, action, usid)};
    auto opened = [=, params = std::move(params)](const t_mgmt_reply &reply) {
        if (reply.answered && reply.status == 0)
            worker_ask(p_engine, usid, reply.worker.worker_conn_id, is_command, params);
        else
            reply_take(p_engine, usid, reply);
    };
    mgmt_daemon_ask(p_engine, action.daemon,
                    {.connection = action.daemon,
                     .op = IPC_OP_DP_ACTION_INIT,
                     .body = ipc_encode(init),
                     .thandle = 0,
                     .done = std::move(opened)});
}

static void action_start(t_mgmt_engine *p_engine, uint32_t usid)
{
    t_mgmt_running_action &action = *p_engine->actions.at(usid);
    std::string point(action.request.p_rpc->actionpoint);
    std::vector<IpcTagValue> params;
    action.daemon =
        mgmt_daemon_of(*p_engine, &t_mgmt_daemon::actions, point, IPC_CALL_ACTION | IPC_CALL_COMMAND);
    if (action.daemon == 0)
        action_fail(p_engine, usid, action, "its provider is not connected");
    else if (params_make(*p_engine, action.request, &params, &action.result.error))
        mgmt_event_tell(p_engine, CONFD_NOTIF_AUDIT, action.session, CONFD_NO_DB, "action " + point);
    if (action.result.error.code != MGMT_OK) {
        action_finish(p_engine, usid);
        return;
    }
    const t_mgmt_daemon &daemon = p_engine->daemons.at(action.daemon);
    uint32_t calls = daemon.actions.at(point);
    bool is_command = (calls & IPC_CALL_ACTION) == 0;
    if ((calls & IPC_CALL_INIT) != 0)
        init_ask(p_engine, usid, is_command, std::move(params));
    else
        worker_ask(p_engine, usid, daemon.workers.empty() ? 0 : *daemon.workers.begin(), is_command, params);
}

void mgmt_action(t_mgmt_engine *p_engine, uint32_t session, t_mgmt_action_request request)
{
    uint32_t usid = ++p_engine->last_usid;
    auto action = std::make_shared<t_mgmt_running_action>();
    action->session = session;
    action->request = std::move(request);
    p_engine->actions.emplace(usid, std::move(action));
    mgmt_later(p_engine, [p_engine, usid] { action_start(p_engine, usid); });
}
