// MAAPI connections: start phases, and reading and writing in a transaction. Event and schema connections.

#include "mgmtd/ipc/ipc_server_private.h"

#include <algorithm>

static constexpr size_t max_attached = 64;  // transactions of one connection

// ---- Start ----

static bool wait_start(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_count phase;
    if (!ipc_decode(frame.body, &phase))
        return false;
    if (phase.count < 1 || phase.count > 2) {
        ipc_refuse_with(p_connection, frame, CONFD_ERR_PROTOUSAGE, "there is no such start phase");
        return true;
    }
    f_mgmt_done answer = ipc_answer_later(p_connection, frame);
    mgmt_phase_wait(p_connection->p_server->p_engine, p_connection->id, phase.count,
                    [answer] { answer({}); });
    return true;
}

static bool nothing_to_do(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (!frame.body.empty())
        return false;
    ipc_reply(p_connection, frame, {});
    return true;
}

// ---- Transactions ----

static bool attach(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_attach request;
    if (!ipc_decode(frame.body, &request))
        return false;
    std::set<uint32_t> &attached = p_connection->attached;
    t_mgmt_engine *p_engine = p_connection->p_server->p_engine;
    std::erase_if(attached,
                  [&](uint32_t thandle) { return mgmt_transaction_tree(p_engine, thandle) == nullptr; });
    if (mgmt_transaction_tree(p_engine, request.thandle) == nullptr || attached.size() >= max_attached) {
        ipc_refuse_with(p_connection, frame, CONFD_ERR_NOEXISTS, "there is no such transaction");
        return true;
    }
    attached.insert(request.thandle);
    ipc_reply(p_connection, frame, {});
    return true;
}

static bool detach(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_thandle request;
    if (!ipc_decode(frame.body, &request))
        return false;
    if (p_connection->attached.erase(request.thandle) != 0)
        ipc_reply(p_connection, frame, {});
    else
        ipc_refuse_with(p_connection, frame, CONFD_ERR_NOEXISTS, "the transaction is not attached");
    return true;
}

// The tree of an attached transaction and a path in it. Null: the request is answered with a refusal.
static const t_mgmt_tree *transaction_path(t_ipc_connection *p_connection, const t_ipc_frame &frame,
                                           uint32_t thandle, const std::string &text, t_mgmt_path *p_path)
{
    const t_mgmt_tree *p_tree = nullptr;
    t_mgmt_error error;
    if (p_connection->attached.contains(thandle))
        p_tree = mgmt_transaction_tree(p_connection->p_server->p_engine, thandle);
    if (p_tree == nullptr) {
        ipc_refuse_with(p_connection, frame, CONFD_ERR_NOEXISTS, "the transaction is not attached");
        return nullptr;
    }
    if (ipc_path_take(*p_connection, nullptr, text, p_path, &error) &&
        (!p_path->steps.empty() || mgmt_fail(&error, MGMT_ERR_BADPATH, "/", "the top has no value")))
        return p_tree;
    ipc_refuse(p_connection, frame, error);
    return nullptr;
}

static void value_set(t_ipc_connection *p_connection, const t_ipc_frame &frame, uint32_t thandle,
                      const t_mgmt_path &path, const std::string &text)
{
    const t_schema_node *p_schema = path.steps.back().schema;
    bool has_text = p_schema->value != SCHEMA_VALUE_NONE && p_schema->value != SCHEMA_VALUE_EMPTY;
    t_mgmt_error error;
    if (mgmt_transaction_set(p_connection->p_server->p_engine, thandle, path, has_text ? &text : nullptr,
                             &error))
        ipc_reply(p_connection, frame, {});
    else
        ipc_refuse(p_connection, frame, error);
}

static bool set_elem(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_maapi_set request;
    t_mgmt_path path;
    t_mgmt_error error;
    std::string text;
    if (!ipc_decode(frame.body, &request))
        return false;
    if (transaction_path(p_connection, frame, request.thandle, request.path, &path) == nullptr)
        return true;
    bool is_empty = request.value.v.type == C_XMLTAG;
    if (is_empty || mgmt_value_text(path.steps.back().schema, request.value.v, &text, &error))
        value_set(p_connection, frame, request.thandle, path, text);
    else
        ipc_refuse(p_connection, frame, error);
    return true;
}

static bool set_text(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_maapi_set_text request;
    t_mgmt_path path;
    if (!ipc_decode(frame.body, &request))
        return false;
    if (transaction_path(p_connection, frame, request.thandle, request.path, &path) != nullptr)
        value_set(p_connection, frame, request.thandle, path, request.text);
    return true;
}

static bool get_elem(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_maapi_path request;
    t_mgmt_path path;
    t_mgmt_error error;
    t_ipc_value_reply reply;
    if (!ipc_decode(frame.body, &request))
        return false;
    const t_mgmt_tree *p_tree = transaction_path(p_connection, frame, request.thandle, request.path, &path);
    if (p_tree == nullptr)
        return true;
    if (ipc_value_at(*p_tree, path, &reply.value, &error))
        ipc_reply(p_connection, frame, ipc_encode(reply));
    else
        ipc_refuse(p_connection, frame, error);
    return true;
}

// ---- Walks ----

static bool has_keys(const t_mgmt_tree &tree, const lyd_node *p_entry, const t_schema_node *p_list,
                     const std::vector<IpcValue> &keys)
{
    for (size_t i = 0; i < keys.size(); i++) {
        const lyd_node *p_key = mgmt_tree_child(tree, p_entry, p_list->keys[i]);
        if (p_key == nullptr || !(IpcValue(mgmt_value_of(p_list->keys[i], p_key)) == keys[i]))
            return false;
    }
    return true;
}

// The position behind the entry with these keys; past the end if there is none. The walk's place is right as
// long as the list has not changed.
static size_t position_after(const t_mgmt_tree &tree, std::span<const lyd_node *const> entries,
                             const t_schema_node *p_list, const t_ipc_maapi_next &request,
                             const t_ipc_walk &walk)
{
    if (request.keys.empty())
        return 0;
    if (walk.path == request.path && walk.position < entries.size() &&
        has_keys(tree, entries[walk.position], p_list, request.keys))
        return walk.position + 1;
    auto is_it = [&](const lyd_node *p_entry) { return has_keys(tree, p_entry, p_list, request.keys); };
    auto found = std::find_if(entries.begin(), entries.end(), is_it);
    return found == entries.end() ? entries.size() : static_cast<size_t>(found - entries.begin()) + 1;
}

static bool next_key(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_maapi_next request;
    t_mgmt_path path;
    t_mgmt_place place;
    t_mgmt_error error;
    if (!ipc_decode(frame.body, &request))
        return false;
    const t_mgmt_tree *p_tree = transaction_path(p_connection, frame, request.thandle, request.path, &path);
    if (p_tree == nullptr)
        return true;
    const t_schema_node *p_list = path.steps.back().schema;
    bool is_list = p_list->kind == SCHEMA_KIND_LIST && path.steps.back().keys.empty();
    if (!is_list || (!request.keys.empty() && request.keys.size() != p_list->keys.size()))
        mgmt_fail(&error, MGMT_ERR_BADPATH, request.path, "this is no list, or not as many keys as it has");
    if (error.code != MGMT_OK || !mgmt_path_find(*p_tree, path, &place, &error)) {
        ipc_refuse(p_connection, frame, error);
        return true;
    }
    t_ipc_keys reply;
    std::span<const lyd_node *const> entries;
    if (place.parent_exists)
        entries = mgmt_tree_entries(*p_tree, place.p_parent, p_list);
    size_t position = position_after(*p_tree, entries, p_list, request, p_connection->walk);
    p_connection->walk = {.path = request.path, .position = position};
    if (position < entries.size())
        for (const t_schema_node *p_key : p_list->keys)
            reply.keys.emplace_back(mgmt_value_of(p_key, mgmt_tree_child(*p_tree, entries[position], p_key)));
    ipc_reply(p_connection, frame, ipc_encode(reply));
    return true;
}

static constexpr t_ipc_row maapi_rows[] = {
    {IPC_OP_MAAPI_WAIT_START, wait_start}, {IPC_OP_MAAPI_INSTALL_CRYPTO_KEYS, nothing_to_do},
    {IPC_OP_MAAPI_ATTACH, attach},         {IPC_OP_MAAPI_DETACH, detach},
    {IPC_OP_MAAPI_SET_ELEM, set_elem},     {IPC_OP_MAAPI_SET_ELEM2, set_text},
    {IPC_OP_MAAPI_GET_ELEM, get_elem},     {IPC_OP_MAAPI_NEXT_KEY, next_key},
};
const std::span<const t_ipc_row> g_ipc_maapi_rows = maapi_rows;

// ---- Events ----

static void event_put(t_ipc_connection *p_connection, const t_ipc_event &event)
{
    ipc_send(p_connection,
             {.op = IPC_OP_EVENT, .kind = IPC_KIND_ONEWAY, .id = 0, .status = 0, .body = ipc_encode(event)});
}

static void beat(t_ipc_server *p_server, uint32_t id, uint32_t type, int32_t interval_ms)
{
    auto found = p_server->connections.find(id);
    if (found == p_server->connections.end())
        return;
    t_ipc_connection *p_connection = found->second.get();
    t_mgmt_timer *p_timer =
        type == CONFD_NOTIF_HEARTBEAT ? &p_connection->heartbeat : &p_connection->health_check;
    mgmt_timer_set(mgmt_engine_timers(p_server->p_engine), p_timer, interval_ms,
                   [=] { beat(p_server, id, type, interval_ms); });
    event_put(p_connection, {.type = type, .usid = 0, .database = 0, .text = ""});
}

static bool events_subscribe(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    static constexpr int32_t min_interval_ms = 10;
    t_ipc_events events;
    if (!ipc_decode(frame.body, &events) || p_connection->is_ready)
        return false;
    p_connection->is_ready = true;
    p_connection->event_mask = events.mask;
    ipc_reply(p_connection, frame, {});
    t_ipc_server *p_server = p_connection->p_server;
    t_mgmt_timers *p_timers = mgmt_engine_timers(p_server->p_engine);
    auto start = [&](t_mgmt_timer *p_timer, uint32_t type, int32_t interval_ms) {
        int32_t bounded_ms = std::max(interval_ms, min_interval_ms);
        if ((events.mask & type) != 0 && interval_ms > 0)
            mgmt_timer_set(p_timers, p_timer, bounded_ms,
                           [p_server, id = p_connection->id, type, bounded_ms] {
                               beat(p_server, id, type, bounded_ms);
                           });
    };
    start(&p_connection->heartbeat, CONFD_NOTIF_HEARTBEAT, events.heartbeat_interval_ms);
    start(&p_connection->health_check, CONFD_NOTIF_HEALTH_CHECK, events.health_check_interval_ms);
    return true;
}

void ipc_event_send(t_ipc_server *p_server, const t_ipc_event &event)
{
    for (const auto &[id, connection] : p_server->connections)
        if (connection->state == IPC_STATE_OPEN && (connection->event_mask & event.type) != 0)
            event_put(connection.get(), event);
}

static constexpr t_ipc_row event_rows[] = {{IPC_OP_EVENTS_SUBSCRIBE, events_subscribe}};
const std::span<const t_ipc_row> g_ipc_event_rows = event_rows;

// ---- Schema ----

static bool schema_load(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (!frame.body.empty())
        return false;
    t_ipc_server *p_server = p_connection->p_server;
    if (p_server->schema_body.empty())
        p_server->schema_body = ipc_encode(ipc_schema_of(mgmt_engine_schema(*p_server->p_engine)));
    ipc_reply(p_connection, frame, p_server->schema_body);
    return true;
}

static constexpr t_ipc_row schema_rows[] = {{IPC_OP_SCHEMA_LOAD, schema_load}};
const std::span<const t_ipc_row> g_ipc_schema_rows = schema_rows;
