// Connections: their coming, handshake, frames in and out, and end.

#include "mgmtd/ipc/ipc_server_private.h"

#include "common/lum_log.h"
#include "platform/confd/ipc/ipc_auth.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/listener.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <unistd.h>

static constexpr size_t pause_above = 1u << 20;  // bytes of replies that wait
static constexpr size_t max_waiting = 2 * IPC_MAX_FRAME;
static constexpr size_t read_chunk = 64u << 10;
static constexpr time_t write_timeout_s = 120;  // without any byte taken
static constexpr size_t max_name_size = 256;

// ---- The end of a connection ----

static t_ipc_connection *connection_of(t_ipc_server *p_server, uint32_t id)
{
    auto found = p_server->connections.find(id);
    return found == p_server->connections.end() ? nullptr : found->second.get();
}

static void connection_free(t_ipc_server *p_server, uint32_t id)
{
    auto node = p_server->connections.extract(id);
    if (node.empty())
        return;
    t_ipc_connection &connection = *node.mapped();
    t_mgmt_timers *p_timers = mgmt_engine_timers(p_server->p_engine);
    for (t_mgmt_timer *p_timer : {&connection.handshake, &connection.heartbeat, &connection.health_check})
        mgmt_timer_cancel(p_timers, p_timer);
    bufferevent_free(connection.p_stream);
    mgmt_link_closed(p_server->p_engine, id);
}

// The connection goes when the loop comes to it: its callers may still hold it.
static void free_soon(t_ipc_connection *p_connection)
{
    p_connection->state = IPC_STATE_ENDING;
    bufferevent_disable(p_connection->p_stream, EV_READ);
    t_ipc_server *p_server = p_connection->p_server;
    t_mgmt_timers *p_timers = mgmt_engine_timers(p_server->p_engine);
    mgmt_timer_set(p_timers, &p_connection->handshake, 0,
                   [p_server, id = p_connection->id] { connection_free(p_server, id); });
}

void ipc_drop(t_ipc_connection *p_connection, const std::string &reason)
{
    if (p_connection->state == IPC_STATE_ENDING)
        return;
    LUM_LOG(LUM_LOG_NOTICE, "Connection %u of %s dropped: %s", p_connection->id,
            p_connection->state == IPC_STATE_OPEN ? p_connection->hello.daemon.c_str() : "a stranger",
            reason.c_str());
    free_soon(p_connection);
}

// ---- Frames out ----

void ipc_send(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (p_connection->state == IPC_STATE_ENDING)
        return;
    if (frame.body.size() > IPC_MAX_BODY) {
        ipc_drop(p_connection, "an answer is longer than a frame may be");
        return;
    }
    std::vector<uint8_t> bytes = ipc_frame_bytes(frame);
    bufferevent_write(p_connection->p_stream, bytes.data(), bytes.size());
    size_t waiting = evbuffer_get_length(bufferevent_get_output(p_connection->p_stream));
    if (waiting > max_waiting) {
        ipc_drop(p_connection, "it does not take its answers");
    } else if (waiting > pause_above && !p_connection->is_paused) {
        p_connection->is_paused = true;
        bufferevent_disable(p_connection->p_stream, EV_READ);
    }
}

void ipc_reply(t_ipc_connection *p_connection, const t_ipc_frame &request, std::vector<uint8_t> body)
{
    ipc_send(
        p_connection,
        {.op = request.op, .kind = IPC_KIND_REPLY, .id = request.id, .status = 0, .body = std::move(body)});
}

void ipc_refuse(t_ipc_connection *p_connection, const t_ipc_frame &request, const t_mgmt_error &error)
{
    t_ipc_error text = {.text = mgmt_error_text(error), .printed_bytes = 0};
    ipc_send(p_connection, {.op = request.op,
                            .kind = IPC_KIND_REPLY,
                            .id = request.id,
                            .status = error.code,
                            .body = ipc_encode(text)});
}

void ipc_refuse_with(t_ipc_connection *p_connection, const t_ipc_frame &request, confd_errcode code,
                     const std::string &reason)
{
    ipc_refuse(p_connection, request,
               {.code = static_cast<e_mgmt_error>(code), .path = "", .reason = reason});
}

f_mgmt_done ipc_answer_later(t_ipc_connection *p_connection, const t_ipc_frame &request)
{
    p_connection->pending = request.id;
    t_ipc_frame head = {.op = request.op, .kind = request.kind, .id = request.id, .status = 0, .body = {}};
    return [p_server = p_connection->p_server, id = p_connection->id, head](const t_mgmt_error &error) {
        t_ipc_connection *p_waiting = connection_of(p_server, id);
        if (p_waiting == nullptr || p_waiting->pending != head.id)
            return;
        p_waiting->pending = 0;
        ipc_finish(p_waiting, head, error);
    };
}

static void link_send(void *p_ctx, uint32_t id, const t_ipc_frame &frame)
{
    t_ipc_connection *p_connection = connection_of(static_cast<t_ipc_server *>(p_ctx), id);
    if (p_connection != nullptr)
        ipc_send(p_connection, frame);
}

static void link_drop(void *p_ctx, uint32_t id, const std::string &reason)
{
    t_ipc_connection *p_connection = connection_of(static_cast<t_ipc_server *>(p_ctx), id);
    if (p_connection != nullptr)
        ipc_drop(p_connection, reason);
}

static constexpr t_mgmt_link_ops link_ops = {.send = link_send, .drop = link_drop};

// ---- Handshake ----

static bool hello_take(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_hello &hello = p_connection->hello;
    if (frame.op != IPC_OP_HELLO || frame.kind != IPC_KIND_REQUEST || !ipc_decode(frame.body, &hello) ||
        hello.version != IPC_VERSION || hello.conn < IPC_CONN_CONTROL || hello.conn > IPC_CONN_SCHEMA ||
        hello.daemon.size() > max_name_size)
        return false;
    if (!p_connection->p_server->secret.empty())
        p_connection->challenge = ipc_auth_challenge();
    p_connection->state = IPC_STATE_PROOF;
    ipc_reply(p_connection, frame, ipc_encode(t_ipc_challenge{p_connection->challenge}));
    return true;
}

static bool is_proven(const t_ipc_connection &connection, const t_ipc_proof &proof)
{
    const std::string &secret = connection.p_server->secret;
    return secret.empty() ? proof.proof.empty()
                          : ipc_auth_is_proven(secret, connection.challenge, proof.proof);
}

// Tells the engine of the connection. False: it belongs to a daemon that is not there.
static bool connection_announce(t_ipc_connection *p_connection)
{
    t_mgmt_engine *p_engine = p_connection->p_server->p_engine;
    const t_ipc_hello &hello = p_connection->hello;
    switch (hello.conn) {
    case IPC_CONN_CONTROL:
        mgmt_daemon_open(p_engine, p_connection->id, hello.daemon);
        return true;
    case IPC_CONN_WORKER:
        return mgmt_worker_open(p_engine, p_connection->id, hello.daemon_id);
    case IPC_CONN_CDB_SUB:
        mgmt_subscriber_open(p_engine, p_connection->id, hello.daemon);
        return true;
    default:
        return true;
    }
}

static bool proof_take(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_ipc_proof proof;
    if (frame.op != IPC_OP_PROOF || frame.kind != IPC_KIND_REQUEST || !ipc_decode(frame.body, &proof))
        return false;
    confd_errcode refusal = CONFD_ERR_ACCESS_DENIED;
    bool ok = is_proven(*p_connection, proof);
    p_connection->challenge.clear();
    if (ok && !connection_announce(p_connection)) {
        refusal = CONFD_ERR_BADSTATE;
        ok = false;
    }
    if (!ok) {
        LUM_LOG(LUM_LOG_NOTICE, "Connection of %s (process %u) refused", p_connection->hello.daemon.c_str(),
                p_connection->hello.pid);
        ipc_refuse_with(p_connection, frame, refusal,
                        refusal == CONFD_ERR_BADSTATE ? "there is no such control connection"
                                                      : "access denied");
        p_connection->state = IPC_STATE_LEAVING;
        return true;
    }
    mgmt_timer_cancel(mgmt_engine_timers(p_connection->p_server->p_engine), &p_connection->handshake);
    p_connection->state = IPC_STATE_OPEN;
    p_connection->assembler.set_max_frame(IPC_MAX_FRAME);
    ipc_reply(p_connection, frame, ipc_encode(t_ipc_welcome{p_connection->id}));
    return true;
}

// ---- Frames in ----

static std::span<const t_ipc_row> rows_of(uint8_t conn)
{
    switch (conn) {
    case IPC_CONN_CONTROL:
        return g_ipc_control_rows;
    case IPC_CONN_CDB_DATA:
        return g_ipc_data_rows;
    case IPC_CONN_CDB_SUB:
        return g_ipc_subscription_rows;
    case IPC_CONN_MAAPI:
        return g_ipc_maapi_rows;
    case IPC_CONN_EVENTS:
        return g_ipc_event_rows;
    case IPC_CONN_SCHEMA:
        return g_ipc_schema_rows;
    default:
        return {};
    }
}

static bool request_take(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (frame.id == 0 || p_connection->pending != 0)
        return false;
    std::span<const t_ipc_row> rows = rows_of(p_connection->hello.conn);
    auto row =
        std::find_if(rows.begin(), rows.end(), [&](const t_ipc_row &one) { return one.op == frame.op; });
    return row != rows.end() && row->serve(p_connection, frame);
}

// What a client sends without waiting for an answer.
static bool oneway_take(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    t_mgmt_engine *p_engine = p_connection->p_server->p_engine;
    bool is_worker = p_connection->hello.conn == IPC_CONN_WORKER;
    if (is_worker && frame.op == IPC_OP_NOTIF_SEND) {
        t_ipc_notification notification;
        if (!ipc_decode(frame.body, &notification))
            return false;
        mgmt_notif_take(p_engine, p_connection->id, notification);
        return true;
    }
    if (is_worker && frame.op == IPC_OP_NOTIF_SEND_SNMP) {
        t_ipc_snmp_notification notification;
        if (!ipc_decode(frame.body, &notification))
            return false;
        mgmt_snmp_take(p_engine, p_connection->id, notification);
        return true;
    }
    t_ipc_cli_write text;
    if (p_connection->hello.conn != IPC_CONN_MAAPI || frame.op != IPC_OP_MAAPI_CLI_WRITE ||
        !ipc_decode(frame.body, &text))
        return false;
    mgmt_action_print(p_engine, text.usid, text.text);
    return true;
}

static bool frame_take(t_ipc_connection *p_connection, const t_ipc_frame &frame)
{
    if (p_connection->state == IPC_STATE_HELLO)
        return hello_take(p_connection, frame);
    if (p_connection->state == IPC_STATE_PROOF)
        return proof_take(p_connection, frame);
    bool is_daemon =
        p_connection->hello.conn == IPC_CONN_CONTROL || p_connection->hello.conn == IPC_CONN_WORKER;
    if (frame.kind == IPC_KIND_REQUEST)
        return request_take(p_connection, frame);
    if (frame.kind == IPC_KIND_ONEWAY)
        return oneway_take(p_connection, frame);
    return is_daemon && frame.kind == IPC_KIND_REPLY &&
           mgmt_daemon_reply(p_connection->p_server->p_engine, p_connection->id, frame);
}

static void frames_serve(t_ipc_connection *p_connection)
{
    while (p_connection->state <= IPC_STATE_OPEN && !p_connection->is_paused) {
        t_ipc_frame frame;
        e_ipc_frame result = p_connection->assembler.next(&frame);
        if (result == IPC_FRAME_MORE)
            return;
        if (result != IPC_FRAME_OK || !frame_take(p_connection, frame))
            ipc_drop(p_connection, "it has sent what it must not send");
    }
}

static void bytes_came(bufferevent *p_stream, void *p_ctx)
{
    t_ipc_connection *p_connection = static_cast<t_ipc_connection *>(p_ctx);
    evbuffer *p_input = bufferevent_get_input(p_stream);
    std::vector<uint8_t> chunk(read_chunk);
    while (p_connection->state <= IPC_STATE_OPEN && !p_connection->is_paused) {
        int size = evbuffer_remove(p_input, chunk.data(), chunk.size());
        if (size <= 0)
            return;
        p_connection->assembler.feed(std::span(chunk.data(), static_cast<size_t>(size)));
        frames_serve(p_connection);
    }
}

static void bytes_went(bufferevent *p_stream, void *p_ctx)
{
    t_ipc_connection *p_connection = static_cast<t_ipc_connection *>(p_ctx);
    if (p_connection->state == IPC_STATE_LEAVING)
        free_soon(p_connection);
    if (!p_connection->is_paused || p_connection->state > IPC_STATE_OPEN)
        return;
    p_connection->is_paused = false;
    frames_serve(p_connection);
    bytes_came(p_stream, p_ctx);
    if (!p_connection->is_paused && p_connection->state <= IPC_STATE_OPEN)
        bufferevent_enable(p_stream, EV_READ);
}

static void stream_ended(bufferevent *, short events, void *p_ctx)
{
    t_ipc_connection *p_connection = static_cast<t_ipc_connection *>(p_ctx);
    if ((events & BEV_EVENT_TIMEOUT) != 0)
        ipc_drop(p_connection, "it does not take its answers");
    else if (p_connection->state != IPC_STATE_ENDING)
        free_soon(p_connection);
}

// ---- Coming ----

static size_t strangers(const t_ipc_server &server)
{
    auto is_stranger = [](const auto &entry) { return entry.second->state < IPC_STATE_OPEN; };
    return static_cast<size_t>(
        std::count_if(server.connections.begin(), server.connections.end(), is_stranger));
}

static void accepted(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *p_ctx)
{
    t_ipc_server *p_server = static_cast<t_ipc_server *>(p_ctx);
    bool is_full = p_server->connections.size() >= IPC_SERVER_MAX_CONNECTIONS ||
                   strangers(*p_server) >= IPC_SERVER_MAX_STRANGERS;
    bufferevent *p_stream =
        is_full ? nullptr : bufferevent_socket_new(p_server->p_base, fd, BEV_OPT_CLOSE_ON_FREE);
    if (p_stream == nullptr) {
        LUM_LOG(LUM_LOG_NOTICE, "There are too many connections, a new one is closed");
        close(fd);
        return;
    }
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    uint32_t id = ++p_server->last_id;
    auto connection = std::make_unique<t_ipc_connection>();
    connection->p_server = p_server;
    connection->id = id;
    connection->p_stream = p_stream;
    mgmt_timer_set(mgmt_engine_timers(p_server->p_engine), &connection->handshake,
                   IPC_SERVER_HANDSHAKE_TIMEOUT_MS,
                   [p_server, id] { link_drop(p_server, id, "it is too slow to introduce itself"); });
    bufferevent_setcb(p_stream, bytes_came, bytes_went, stream_ended, connection.get());
    bufferevent_setwatermark(p_stream, EV_READ, 0, 4 * read_chunk);
    timeval timeout = {.tv_sec = write_timeout_s, .tv_usec = 0};
    bufferevent_set_timeouts(p_stream, nullptr, &timeout);
    bufferevent_enable(p_stream, EV_READ | EV_WRITE);
    p_server->connections.emplace(id, std::move(connection));
}

ipc_server_ptr ipc_server_open(event_base *p_base, t_mgmt_engine *p_engine,
                               const t_ipc_server_options &options, std::string *p_error)
{
    ipc_server_ptr server(new t_ipc_server);
    server->p_base = p_base;
    server->p_engine = p_engine;
    server->secret = options.secret;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(options.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    server->p_listener = evconnlistener_new_bind(
        p_base, accepted, server.get(), LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC | LEV_OPT_REUSEABLE, -1,
        reinterpret_cast<sockaddr *>(&address), sizeof(address));
    if (server->p_listener == nullptr) {
        *p_error = "port " + std::to_string(options.port) + ": " + strerror(errno);
        return nullptr;
    }
    mgmt_link_set(p_engine, &link_ops, server.get());
    t_ipc_server *p_server = server.get();
    mgmt_engine_on_event(p_engine, [p_server](const t_ipc_event &event) { ipc_event_send(p_server, event); });
    return server;
}

void t_ipc_server_deleter::operator()(t_ipc_server *p_server) const
{
    if (p_server == nullptr)
        return;
    if (p_server->p_listener != nullptr) {
        evconnlistener_free(p_server->p_listener);
        mgmt_engine_on_event(p_server->p_engine, nullptr);
    }
    while (!p_server->connections.empty())
        connection_free(p_server, p_server->connections.begin()->first);
    delete p_server;
}

uint16_t ipc_server_port(const t_ipc_server &server)
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    getsockname(evconnlistener_get_fd(server.p_listener), reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin_port);
}

size_t ipc_server_connections(const t_ipc_server &server)
{
    return server.connections.size();
}
