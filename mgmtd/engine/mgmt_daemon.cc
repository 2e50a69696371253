// Daemons: what they have registered, and the requests to them, one callback at a time.

#include "mgmtd/engine/mgmt_engine_private.h"

#include "common/lum_log.h"

#include <algorithm>

static t_mgmt_daemon *daemon_of(t_mgmt_engine *p_engine, uint32_t control)
{
    auto found = p_engine->daemons.find(control);
    return found == p_engine->daemons.end() ? nullptr : &found->second;
}

// ---- Requests ----

static void ask_fail(t_mgmt_engine *p_engine, t_mgmt_ask ask, const std::string &text)
{
    if (!ask.done)
        return;
    mgmt_later(p_engine, [done = std::move(ask.done), text] { done({.answered = false, .text = text}); });
}

static void ask_next(t_mgmt_engine *p_engine, t_mgmt_daemon *p_daemon)
{
    if (p_daemon->open || p_daemon->queue.empty())
        return;
    p_daemon->open = std::move(p_daemon->queue.front());
    p_daemon->queue.pop_front();
    t_mgmt_ask &ask = *p_daemon->open;
    ask.id = ++p_engine->last_ask;
    t_ipc_frame frame = {
        .op = ask.op, .kind = IPC_KIND_REQUEST, .id = ask.id, .status = 0, .body = std::move(ask.body)};
    p_engine->p_link->send(p_engine->p_link_ctx, ask.connection, frame);
}

static void silence_watch(t_mgmt_engine *p_engine, uint32_t control, t_mgmt_daemon *p_daemon);

// Gives up what has waited too long. A request that the daemon is at stays with it: until its answer has come
// the daemon is not asked for anything else.
static void silence_due(t_mgmt_engine *p_engine, uint32_t control)
{
    t_mgmt_daemon *p_daemon = daemon_of(p_engine, control);
    if (p_daemon == nullptr)
        return;
    p_daemon->silence = {};
    int64_t limit_ms = p_engine->timers.now_ms() - MGMT_PROVIDER_TIMEOUT_MS;
    auto is_late = [&](const t_mgmt_ask &ask) {
        return ask.done != nullptr && std::max(ask.since_ms, p_daemon->heard_ms) <= limit_ms;
    };
    std::string text =
        p_daemon->name + " has not answered for " + std::to_string(MGMT_PROVIDER_TIMEOUT_MS / 1000) + " s";
    if (p_daemon->open && is_late(*p_daemon->open)) {
        t_mgmt_ask given_up = *p_daemon->open;
        p_daemon->open->done = nullptr;
        ask_fail(p_engine, std::move(given_up), text);
    }
    for (t_mgmt_ask &ask : p_daemon->queue)
        if (is_late(ask))
            ask_fail(p_engine, std::exchange(ask, {}), text);
    std::erase_if(p_daemon->queue, [](const t_mgmt_ask &ask) { return ask.connection == 0; });
    silence_watch(p_engine, control, p_daemon);
}

// Sets the time-out for the request that has waited longest, if it is not set.
static void silence_watch(t_mgmt_engine *p_engine, uint32_t control, t_mgmt_daemon *p_daemon)
{
    const t_mgmt_ask *p_oldest = p_daemon->open && p_daemon->open->done ? &*p_daemon->open : nullptr;
    for (const t_mgmt_ask &ask : p_daemon->queue)
        if (p_oldest == nullptr && ask.done)
            p_oldest = &ask;
    if (p_oldest == nullptr || p_daemon->silence.number != 0)
        return;
    int64_t due_ms = std::max(p_oldest->since_ms, p_daemon->heard_ms) + MGMT_PROVIDER_TIMEOUT_MS;
    mgmt_timer_set(&p_engine->timers, &p_daemon->silence, due_ms - p_engine->timers.now_ms(),
                   [p_engine, control] { silence_due(p_engine, control); });
}

void mgmt_daemon_ask(t_mgmt_engine *p_engine, uint32_t control, t_mgmt_ask ask)
{
    t_mgmt_daemon *p_daemon = daemon_of(p_engine, control);
    if (p_daemon == nullptr || (ask.connection != control && !p_daemon->workers.contains(ask.connection))) {
        ask_fail(p_engine, std::move(ask), "its provider is not connected");
        return;
    }
    ask.since_ms = p_engine->timers.now_ms();
    p_daemon->queue.push_back(std::move(ask));
    silence_watch(p_engine, control, p_daemon);
    ask_next(p_engine, p_daemon);
}

void mgmt_daemon_heard(t_mgmt_engine *p_engine, uint32_t control)
{
    t_mgmt_daemon *p_daemon = daemon_of(p_engine, control);
    if (p_daemon != nullptr)
        p_daemon->heard_ms = p_engine->timers.now_ms();
}

// ---- Replies ----

static bool reply_read(const t_ipc_frame &frame, t_mgmt_reply *p_reply)
{
    p_reply->answered = true;
    p_reply->status = frame.status;
    if (frame.status != 0) {
        t_ipc_error error;
        if (!ipc_decode(frame.body, &error))
            return false;
        p_reply->text = error.text;
        p_reply->printed_bytes = error.printed_bytes;
        return true;
    }
    switch (frame.op) {
    case IPC_OP_DP_TRANS_INIT:
    case IPC_OP_DP_VALIDATE_INIT:
    case IPC_OP_DP_ACTION_INIT:
        return ipc_decode(frame.body, &p_reply->worker);
    case IPC_OP_DP_GET_OBJECT:
    case IPC_OP_DP_GET_NEXT_OBJECT:
    case IPC_OP_DP_FIND_NEXT_OBJECT:
        return ipc_decode(frame.body, &p_reply->data);
    case IPC_OP_DP_ACTION:
    case IPC_OP_DP_COMMAND:
        return ipc_decode(frame.body, &p_reply->action);
    default:
        return frame.body.empty();
    }
}

// The daemon has opened a transaction that nobody waits for any more.
static void late_init(t_mgmt_engine *p_engine, uint32_t control, const t_mgmt_ask &ask,
                      const t_mgmt_reply &reply)
{
    bool is_trans = ask.op == IPC_OP_DP_TRANS_INIT;
    if ((!is_trans && ask.op != IPC_OP_DP_VALIDATE_INIT) || reply.status != 0)
        return;
    mgmt_daemon_ask(p_engine, control,
                    {.connection = reply.worker.worker_conn_id,
                     .op = is_trans ? IPC_OP_DP_TRANS_FINISH : IPC_OP_DP_VALIDATE_STOP,
                     .body = ipc_encode(t_ipc_thandle{ask.thandle}),
                     .thandle = 0,
                     .done = nullptr});
}

bool mgmt_daemon_reply(t_mgmt_engine *p_engine, uint32_t connection, const t_ipc_frame &frame)
{
    auto worker = p_engine->workers.find(connection);
    uint32_t control = worker != p_engine->workers.end() ? worker->second : connection;
    t_mgmt_daemon *p_daemon = daemon_of(p_engine, control);
    if (p_daemon == nullptr || !p_daemon->open || p_daemon->open->connection != connection ||
        p_daemon->open->id != frame.id)
        return true;
    t_mgmt_reply reply;
    if (p_daemon->open->op != frame.op || !reply_read(frame, &reply))
        return false;
    t_mgmt_ask ask = std::move(*p_daemon->open);
    p_daemon->open.reset();
    p_daemon->heard_ms = p_engine->timers.now_ms();
    ask_next(p_engine, p_daemon);
    if (ask.done)
        ask.done(reply);
    else
        late_init(p_engine, control, ask, reply);
    return true;
}

// ---- Coming and going ----

void mgmt_daemon_open(t_mgmt_engine *p_engine, uint32_t connection, const std::string &name)
{
    static const std::string reason = "another connection has taken the daemon's name";
    std::vector<uint32_t> old_controls;
    std::vector<uint32_t> old_subscribers;
    for (const auto &[control, daemon] : p_engine->daemons)
        if (daemon.name == name)
            old_controls.push_back(control);
    for (const auto &[subscriber, record] : p_engine->subscribers)
        if (record.daemon == name)
            old_subscribers.push_back(subscriber);
    for (uint32_t control : old_controls) {
        mgmt_daemon_lose(p_engine, control);
        p_engine->p_link->drop(p_engine->p_link_ctx, control, reason);
    }
    for (uint32_t subscriber : old_subscribers)
        mgmt_subscriber_lose(p_engine, subscriber, reason);
    p_engine->daemons[connection].name = name;
}

bool mgmt_worker_open(t_mgmt_engine *p_engine, uint32_t connection, uint32_t control)
{
    t_mgmt_daemon *p_daemon = daemon_of(p_engine, control);
    if (p_daemon == nullptr)
        return false;
    p_daemon->workers.insert(connection);
    p_engine->workers.emplace(connection, control);
    return true;
}

static void worker_lose(t_mgmt_engine *p_engine, uint32_t connection)
{
    auto node = p_engine->workers.extract(connection);
    t_mgmt_daemon *p_daemon = node.empty() ? nullptr : daemon_of(p_engine, node.mapped());
    if (p_daemon == nullptr)
        return;
    p_daemon->workers.erase(connection);
    for (t_mgmt_ask &ask : p_daemon->queue)
        if (ask.connection == connection)
            ask_fail(p_engine, std::exchange(ask, {}), "its provider is not connected");
    std::erase_if(p_daemon->queue, [](const t_mgmt_ask &ask) { return ask.connection == 0; });
    if (p_daemon->open && p_daemon->open->connection == connection) {
        ask_fail(p_engine, std::move(*p_daemon->open), p_daemon->name + " has ended the connection");
        p_daemon->open.reset();
        ask_next(p_engine, p_daemon);
    }
}

void mgmt_daemon_lose(t_mgmt_engine *p_engine, uint32_t control)
{
    auto node = p_engine->daemons.extract(control);
    if (node.empty()) {
        worker_lose(p_engine, control);
        return;
    }
    t_mgmt_daemon &daemon = node.mapped();
    mgmt_timer_cancel(&p_engine->timers, &daemon.silence);
    if (daemon.open)
        daemon.queue.push_front(std::move(*daemon.open));
    for (t_mgmt_ask &ask : daemon.queue)
        ask_fail(p_engine, std::move(ask), daemon.name + " has ended the connection");
    for (uint32_t worker : daemon.workers) {
        p_engine->workers.erase(worker);
        p_engine->p_link->drop(p_engine->p_link_ctx, worker, "its control connection has ended");
    }
}

bool mgmt_daemon_has_worker(const t_mgmt_engine &engine, uint32_t control, uint32_t worker)
{
    auto found = engine.daemons.find(control);
    return found != engine.daemons.end() && found->second.workers.contains(worker);
}

// ---- Registering ----

static bool point_is_known(const std::set<std::string, std::less<>> &points, const std::string &point,
                           t_mgmt_error *p_error)
{
    return points.contains(point) ||
           mgmt_fail(p_error, MGMT_ERR_NOEXISTS, "", "the model has no point " + point);
}

bool mgmt_daemon_register(t_mgmt_engine *p_engine, uint32_t connection, uint16_t op,
                          const t_ipc_reg_point &point, t_mgmt_error *p_error)
{
    t_mgmt_daemon *p_daemon = daemon_of(p_engine, connection);
    if (p_daemon == nullptr || p_daemon->ready)
        return mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "registering is over");
    if (op == IPC_OP_REG_TRANS || op == IPC_OP_REG_VALIDATE) {
        (op == IPC_OP_REG_TRANS ? p_daemon->trans_calls : p_daemon->validate_calls) = point.calls;
        return true;
    }
    const auto &known = op == IPC_OP_REG_DATA     ? p_engine->data_points
                        : op == IPC_OP_REG_ACTION ? p_engine->action_points
                                                  : p_engine->validation_points;
    auto &registered = op == IPC_OP_REG_DATA     ? p_daemon->data
                       : op == IPC_OP_REG_ACTION ? p_daemon->actions
                                                 : p_daemon->validations;
    if (!point_is_known(known, point.point, p_error))
        return false;
    registered.insert_or_assign(point.point, point.calls);
    return true;
}

int32_t mgmt_daemon_sender(t_mgmt_engine *p_engine, uint32_t connection, uint16_t op,
                           const t_ipc_reg_notif &sender, t_mgmt_error *p_error)
{
    static constexpr size_t max_senders = 64;
    t_mgmt_daemon *p_daemon = daemon_of(p_engine, connection);
    if (p_daemon == nullptr || p_daemon->ready || p_daemon->senders.size() >= max_senders) {
        mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "registering is over");
        return 0;
    }
    if (!p_daemon->workers.contains(sender.worker_conn_id)) {
        mgmt_fail(p_error, MGMT_ERR_BADSTATE, "", "notifications come on a worker connection");
        return 0;
    }
    if (op == IPC_OP_REG_NOTIF_STREAM && sender.name != MGMT_STREAM) {
        mgmt_fail(p_error, MGMT_ERR_NOEXISTS, "", "there is no stream " + sender.name);
        return 0;
    }
    p_daemon->senders.emplace(++p_engine->last_sender, sender);
    return p_engine->last_sender;
}

void mgmt_daemon_ready(t_mgmt_engine *p_engine, uint32_t connection)
{
    t_mgmt_daemon *p_daemon = daemon_of(p_engine, connection);
    if (p_daemon == nullptr)
        return;
    p_daemon->ready = true;
    LUM_LOG(LUM_LOG_INFO, "Daemon %s has registered", p_daemon->name.c_str());
}

uint32_t mgmt_daemon_of(const t_mgmt_engine &engine, std::map<std::string, uint32_t> t_mgmt_daemon::*p_points,
                        const std::string &point, uint32_t calls)
{
    for (const auto &[control, daemon] : engine.daemons) {
        auto found = (daemon.*p_points).find(point);
        if (daemon.ready && found != (daemon.*p_points).end() && (found->second & calls) != 0)
            return control;
    }
    return 0;
}
