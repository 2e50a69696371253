// Connections of the control socket: who may have one, frames in, answers out.

#include "mgmtd/control/mgmt_control.h"

#include "common/lum_log.h"
#include "mgmtd/control/control_private.h"
#include "mgmtd/control/control_socket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

using t_json = nlohmann::ordered_json;

static constexpr size_t max_waiting = 64 * 1024;     // bytes read ahead while a request is under way
static constexpr size_t max_unread = 1024 * 1024;    // bytes of answers, before the next request begins
static constexpr size_t output_piece = 1024 * 1024;  // bytes of output in one frame
static constexpr int listen_backlog = 128;

// ---- Answers ----

static void frame_write(t_control_connection *p_connection, const t_json &head, std::string_view body)
{
    std::string text = head.dump(-1, ' ', false, t_json::error_handler_t::replace);
    std::string bytes = control_frame_bytes(text, body);
    bufferevent_write(p_connection->p_bev, bytes.data(), bytes.size());
}

static t_json refusal_head(int64_t id, const t_mgmt_error &error)
{
    t_json reason = t_json::object({{"code", static_cast<int>(error.code)}});
    if (!error.path.empty())
        reason["path"] = error.path;
    reason["reason"] = error.reason;
    return {{"id", id}, {"ok", false}, {"error", std::move(reason)}};
}

void control_schedule(t_control_connection *p_connection)
{
    static constexpr timeval at_once = {};  // a timer, so that the loop looks at the sockets in between
    event_add(p_connection->p_step, &at_once);
}

void control_answer(t_control_connection *p_connection, const t_mgmt_error &error,
                    const t_control_result &result)
{
    int64_t id = p_connection->request_id;
    if (id == 0)
        return;
    if (error.code != MGMT_OK) {
        frame_write(p_connection, refusal_head(id, error), {});
    } else if (result.body.size() > CONTROL_MAX_BODY) {
        t_mgmt_error too_large = {MGMT_ERR_BADSTATE, "", "the answer is too large: ask for a part of it"};
        frame_write(p_connection, refusal_head(id, too_large), {});
    } else {
        t_json head = {{"id", id}, {"ok", true}};
        if (!result.warnings.empty())
            head["warnings"] = result.warnings;
        frame_write(p_connection, head, result.body);
    }
    p_connection->request_id = 0;
    control_schedule(p_connection);
}

void control_output(t_control_connection *p_connection, std::string_view text)
{
    for (size_t at = 0; at < text.size(); at += output_piece)
        frame_write(p_connection, {{"id", p_connection->request_id}, {"more", true}},
                    text.substr(at, output_piece));
}

void control_progress(t_control_connection *p_connection, const std::string &line)
{
    frame_write(p_connection, {{"id", p_connection->request_id}, {"more", true}, {"progress", line}}, {});
}

size_t control_unread(const t_control_connection &connection)
{
    return evbuffer_get_length(bufferevent_get_output(connection.p_bev));
}

static void session_close(t_control_connection *p_connection)
{
    if (p_connection->session != 0)
        mgmt_session_close(p_connection->p_control->p_engine, p_connection->session);
    p_connection->session = 0;
}

// An answer about the connection itself, its last one.
static void connection_refuse(t_control_connection *p_connection, e_mgmt_error code, const char *reason)
{
    frame_write(p_connection, refusal_head(0, {code, "", reason}), {});
    p_connection->is_ending = true;
    session_close(p_connection);
}

// ---- Frames ----

enum e_frame_take { FRAME_TAKEN, FRAME_MORE, FRAME_BAD };

// Takes a whole frame out of the input, and sees that the input holds no more than what is needed.
static e_frame_take frame_take(bufferevent *p_bev, t_control_frame *p_frame)
{
    evbuffer *p_input = bufferevent_get_input(p_bev);
    uint8_t bytes[CONTROL_HEADER_SIZE];
    t_control_header header;
    size_t wanted = CONTROL_HEADER_SIZE;
    if (evbuffer_copyout(p_input, bytes, sizeof(bytes)) == sizeof(bytes)) {
        if (!control_header_read(bytes, &header))
            return FRAME_BAD;
        wanted += size_t{header.head_size} + header.body_size;
    }
    bufferevent_setwatermark(p_bev, EV_READ, 0, std::max(wanted, max_waiting));
    if (wanted == CONTROL_HEADER_SIZE || evbuffer_get_length(p_input) < wanted)
        return FRAME_MORE;
    evbuffer_drain(p_input, CONTROL_HEADER_SIZE);
    p_frame->head.resize(header.head_size);
    p_frame->body.resize(header.body_size);
    evbuffer_remove(p_input, p_frame->head.data(), header.head_size);
    evbuffer_remove(p_input, p_frame->body.data(), header.body_size);
    bufferevent_setwatermark(p_bev, EV_READ, 0, max_waiting);
    return FRAME_TAKEN;
}

// No exception goes through the event loop; what can come up here is a lack of memory.
static void frame_serve(t_control_connection *p_connection, t_control_frame frame)
{
    t_control_request request;
    std::string reason;
    try {
        bool holds = control_request_read(std::move(frame), &request, &reason);
        p_connection->request_id = request.id;
        if (request.id == 0)
            return connection_refuse(p_connection, MGMT_ERR_BADSTATE, reason.c_str());
        if (!holds)
            return control_answer(p_connection, {MGMT_ERR_BADSTATE, "", reason});
        control_serve(p_connection, request);
    } catch (const std::exception &error) {
        control_answer(p_connection, {MGMT_ERR_INTERNAL, "", error.what()});
    }
}

// ---- Connections ----

static void connection_free(t_control_connection *p_connection)
{
    t_mgmt_control *p_control = p_connection->p_control;
    session_close(p_connection);
    bufferevent_free(p_connection->p_bev);
    event_free(p_connection->p_step);
    std::erase_if(p_control->connections,
                  [p_connection](const auto &item) { return item.get() == p_connection; });
}

// Serves the next request, unless one is under way or the client is behind. Frees a connection that is at its
// end.
static void connection_advance(t_control_connection *p_connection)
{
    size_t unread = control_unread(*p_connection);
    if (p_connection->is_behind)
        control_monitor_end(p_connection);
    if (p_connection->is_ending) {
        if (unread == 0)
            connection_free(p_connection);
        return;
    }
    if (p_connection->request_id != 0 || unread > max_unread)
        return;
    t_control_frame frame;
    e_frame_take taken = frame_take(p_connection->p_bev, &frame);
    if (taken == FRAME_TAKEN)
        frame_serve(p_connection, std::move(frame));
    if (taken == FRAME_BAD)
        connection_refuse(p_connection, MGMT_ERR_BADSTATE, "the frame's sizes are outside the limits");
    if (p_connection->is_ending)
        bufferevent_disable(p_connection->p_bev, EV_READ);
}

static void on_ready(bufferevent *, void *p_arg)
{
    connection_advance(static_cast<t_control_connection *>(p_arg));
}

static void on_step(evutil_socket_t, short, void *p_arg)
{
    connection_advance(static_cast<t_control_connection *>(p_arg));
}

static void on_event(bufferevent *, short what, void *p_arg)
{
    if (what & (BEV_EVENT_EOF | BEV_EVENT_ERROR))
        connection_free(static_cast<t_control_connection *>(p_arg));
}

// ---- Arrivals ----

static t_control_connection *connection_new(t_mgmt_control *p_control, int fd)
{
    bufferevent *p_bev = bufferevent_socket_new(p_control->p_base, fd, BEV_OPT_CLOSE_ON_FREE);
    if (p_bev == nullptr) {
        close(fd);
        return nullptr;
    }
    auto connection = std::make_unique<t_control_connection>();
    connection->p_control = p_control;
    connection->p_bev = p_bev;
    connection->p_step = event_new(p_control->p_base, -1, 0, on_step, connection.get());
    if (connection->p_step == nullptr) {
        bufferevent_free(p_bev);
        return nullptr;
    }
    bufferevent_setcb(p_bev, on_ready, on_ready, on_event, connection.get());
    bufferevent_setwatermark(p_bev, EV_READ, 0, max_waiting);
    p_control->connections.push_back(std::move(connection));
    return p_control->connections.back().get();
}

// Opens the session, or refuses.
static void connection_admit(t_control_connection *p_connection, const t_control_peer &peer)
{
    t_mgmt_control *p_control = p_connection->p_control;
    bool may = control_peer_right(peer, p_control->options.group) == CONTROL_RIGHT_ADMIN;
    bool has_room = p_control->connections.size() <= MGMT_CONTROL_MAX_SESSIONS;
    if (may && has_room) {
        t_mgmt_user user = {.name = control_user_name(peer.uid), .context = "cli"};
        p_connection->user = user.name;
        p_connection->session = mgmt_session_open(p_control->p_engine, user);
        bufferevent_enable(p_connection->p_bev, EV_READ | EV_WRITE);
        return;
    }
    const char *reason = may ? "there are too many sessions" : "this user may not use the control socket";
    LUM_LOG(LUM_LOG_NOTICE, "control socket: uid %u refused: %s", peer.uid, reason);
    bufferevent_disable(p_connection->p_bev, EV_READ);
    bufferevent_enable(p_connection->p_bev, EV_WRITE);
    connection_refuse(p_connection, MGMT_ERR_ACCESS_DENIED, reason);
}

static void on_accept(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *p_arg)
{
    t_mgmt_control *p_control = static_cast<t_mgmt_control *>(p_arg);
    t_control_peer peer;
    if (!control_peer_of(fd, &peer) || p_control->connections.size() > 2 * MGMT_CONTROL_MAX_SESSIONS) {
        close(fd);
        return;
    }
    t_control_connection *p_connection = connection_new(p_control, fd);
    if (p_connection != nullptr)
        connection_admit(p_connection, peer);
}

mgmt_control_ptr mgmt_control_open(event_base *p_base, t_mgmt_engine *p_engine,
                                   const t_mgmt_control_options &options, std::string *p_error)
{
    int fd = control_socket_bind(options.path, options.group, p_error);
    if (fd < 0)
        return nullptr;
    mgmt_control_ptr control(new t_mgmt_control{p_base, p_engine, options, nullptr, {}});
    control->p_listener = evconnlistener_new(
        p_base, on_accept, control.get(), LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, listen_backlog, fd);
    if (control->p_listener != nullptr)
        return control;
    close(fd);
    *p_error = options.path + ": no listener";
    return nullptr;
}

void t_mgmt_control_deleter::operator()(t_mgmt_control *p_control) const
{
    while (!p_control->connections.empty())
        connection_free(p_control->connections.back().get());
    if (p_control->p_listener != nullptr)
        evconnlistener_free(p_control->p_listener);
    unlink(p_control->options.path.c_str());
    delete p_control;
}
