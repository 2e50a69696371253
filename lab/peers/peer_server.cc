#include "common/unix_socket.h"
#include "lab/peers/peer_link.h"
#include "lab/peers/peer_stream.h"

#include <algorithm>
#include <event2/listener.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr size_t max_connections = 256;  // further ones are closed at once
static constexpr mode_t everybody = 0777;

struct t_peer_session {
    t_peer_server *p_server;
    peer_stream_ptr stream;
    uint8_t module;  // 0 before the register frame
    int pid;
};

using session_ptr = std::unique_ptr<t_peer_session>;

struct t_peer_server {
    event_base *p_base;
    std::string path;
    uint8_t module;
    const t_peer_server_ops *p_ops;
    void *p_user;
    evconnlistener *p_listener;
    std::vector<session_ptr> sessions;  // connections without a register frame among them
};

// ---- Sessions ----

// It leaves the list first, so that `down` may close it again and sees only those that are left. Nothing
// happens for one that is gone already.
static void session_end(t_peer_server *p_server, const t_peer_session *p_session)
{
    auto place = std::find_if(p_server->sessions.begin(), p_server->sessions.end(),
                              [p_session](const session_ptr &item) { return item.get() == p_session; });
    if (place == p_server->sessions.end())
        return;
    session_ptr session = std::move(*place);
    p_server->sessions.erase(place);
    if (session->module != 0)
        p_server->p_ops->down(p_server->p_user, session.get());
}

static void fail(t_peer_session *p_session, const std::string &reason)
{
    t_peer_server *p_server = p_session->p_server;
    if (p_server->p_ops->bad != nullptr)
        p_server->p_ops->bad(p_server->p_user, p_session->module != 0 ? p_session : nullptr, reason);
    session_end(p_server, p_session);
}

static void register_take(t_peer_session *p_session, const t_peer_frame &frame)
{
    t_peer_server *p_server = p_session->p_server;
    if (frame.type != PEER_FRAME_REGISTER || frame.target != p_server->module || frame.source == 0)
        return fail(p_session, "no register frame for module " + std::to_string(p_server->module));
    auto same = std::find_if(p_server->sessions.begin(), p_server->sessions.end(),
                             [&frame](const session_ptr &item) { return item->module == frame.source; });
    if (same != p_server->sessions.end())
        session_end(p_server, same->get());
    p_session->module = frame.source;
    p_server->p_ops->up(p_server->p_user, p_session);
}

static void on_frame(void *p_user, const t_peer_frame &frame)
{
    t_peer_session *p_session = static_cast<t_peer_session *>(p_user);
    t_peer_server *p_server = p_session->p_server;
    if (p_session->module == 0)
        return register_take(p_session, frame);
    if (frame.type != PEER_FRAME_MESSAGE)
        return fail(p_session, "second register frame");
    if (frame.source != p_session->module || frame.target != p_server->module)
        return fail(p_session, "message from module " + std::to_string(frame.source) + " to module " +
                                   std::to_string(frame.target));
    p_server->p_ops->message(p_server->p_user, p_session, frame.body);
}

static void on_ended(void *p_user, const std::string &fault)
{
    t_peer_session *p_session = static_cast<t_peer_session *>(p_user);
    if (!fault.empty())
        return fail(p_session, fault);
    session_end(p_session->p_server, p_session);
}

static constexpr t_peer_stream_ops stream_ops = {.frame = on_frame, .ended = on_ended};

static int socket_pid(int fd)
{
    ucred credentials = {};
    socklen_t size = sizeof(credentials);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 ? credentials.pid : 0;
}

static void on_accept(evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *p_arg)
{
    t_peer_server *p_server = static_cast<t_peer_server *>(p_arg);
    if (p_server->sessions.size() >= max_connections) {
        close(fd);
        return;
    }
    auto session = std::make_unique<t_peer_session>();
    session->p_server = p_server;
    session->pid = socket_pid(fd);
    session->stream = peer_stream_open(p_server->p_base, fd, &stream_ops, session.get());
    if (session->stream != nullptr)
        p_server->sessions.push_back(std::move(session));
}

// ---- Server ----

peer_server_ptr peer_server_open(event_base *p_base, const std::string &path, uint8_t module,
                                 const t_peer_server_ops *p_ops, void *p_user, std::string *p_error)
{
    int fd = unix_socket_bind(path, everybody, p_error);
    if (fd < 0)
        return nullptr;
    peer_server_ptr server(new t_peer_server{.p_base = p_base,
                                             .path = path,
                                             .module = module,
                                             .p_ops = p_ops,
                                             .p_user = p_user,
                                             .p_listener = nullptr,
                                             .sessions = {}});
    server->p_listener = evconnlistener_new(p_base, on_accept, server.get(),
                                            LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, -1, fd);
    if (server->p_listener != nullptr)
        return server;
    close(fd);
    *p_error = path + ": no listener";
    return nullptr;
}

std::vector<t_peer_session *> peer_server_sessions(const t_peer_server *p_server)
{
    std::vector<t_peer_session *> sessions;
    for (const session_ptr &session : p_server->sessions) {
        if (session->module != 0)
            sessions.push_back(session.get());
    }
    return sessions;
}

uint8_t peer_session_module(const t_peer_session *p_session)
{
    return p_session->module;
}

int peer_session_pid(const t_peer_session *p_session)
{
    return p_session->pid;
}

bool peer_session_send(t_peer_session *p_session, t_peer_bytes body)
{
    return peer_stream_send(p_session->stream.get(), {.type = PEER_FRAME_MESSAGE,
                                                      .source = p_session->p_server->module,
                                                      .target = p_session->module,
                                                      .body = body});
}

void peer_session_close(t_peer_session *p_session)
{
    session_end(p_session->p_server, p_session);
}

void t_peer_server_deleter::operator()(t_peer_server *p_server) const
{
    p_server->sessions.clear();
    if (p_server->p_listener != nullptr)
        evconnlistener_free(p_server->p_listener);
    unlink(p_server->path.c_str());
    delete p_server;
}
