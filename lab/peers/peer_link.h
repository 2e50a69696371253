// Connections between a lab peer and the daemons: one end listens, the other connects and says who it is.
//
// A client (t_peer_client) connects to a path, every 500 ms until it succeeds and again after a loss, and
// sends its register frame first. A server (t_peer_server) takes any number of connections; the first frame
// of each must be a register frame for its module, which makes the connection a session. A second connection
// of the same module ends the first one. Nothing is kept over a loss: `up` is the place to send what the
// other side must know.
//
// Bytes that are no frame, a frame that was cut by the connection's end, and a wrong or missing register
// frame are told by `bad`; then the connection is closed, since what follows can't be trusted.
//
// All on the event base's thread. Callbacks may send, close sessions and drop connections, but not end the
// client or server that calls. The process ignores SIGPIPE.
#pragma once

#include "lab/peers/peer_frame.h"

#include <memory>
#include <string>
#include <vector>

struct event_base;

// ---- Client ----

struct t_peer_client;

// All set, but `bad` may be null.
struct t_peer_client_ops {
    void (*up)(void *p_user);    // the register frame is on its way
    void (*down)(void *p_user);  // follows each up, but not at the client's end
    void (*message)(void *p_user, t_peer_bytes body);
    void (*bad)(void *p_user, const std::string &reason);
};

struct t_peer_client_place {
    std::string path;
    uint8_t source;  // the own module
    uint8_t target;  // the server's
};

struct t_peer_client_deleter {
    void operator()(t_peer_client *p_client) const;
};
using peer_client_ptr = std::unique_ptr<t_peer_client, t_peer_client_deleter>;

// The first attempt is made in the loop's next turn. Null with the reason when the path is no path for a
// socket or memory is out. ops must outlive the client.
peer_client_ptr peer_client_open(event_base *p_base, const t_peer_client_place &place,
                                 const t_peer_client_ops *p_ops, void *p_user, std::string *p_error);

[[nodiscard]] bool peer_client_is_up(const t_peer_client *p_client);

// Queues a message. False when the client is down, the body is empty or too long, or the other side leaves
// too much unread.
bool peer_client_send(t_peer_client *p_client, t_peer_bytes body);

// Closes the connection, with `down` before it returns; the next attempt follows in 500 ms. Does nothing
// while down.
void peer_client_drop(t_peer_client *p_client);

// ---- Server ----

struct t_peer_server;
struct t_peer_session;  // good from its up until its down has returned

// All set, but `bad` may be null. `bad` comes with a null session for a connection that is none yet.
struct t_peer_server_ops {
    void (*up)(void *p_user, t_peer_session *p_session);
    void (*down)(void *p_user, t_peer_session *p_session);  // follows each up, but not at the server's end
    void (*message)(void *p_user, t_peer_session *p_session, t_peer_bytes body);
    void (*bad)(void *p_user, t_peer_session *p_session, const std::string &reason);
};

struct t_peer_server_deleter {
    void operator()(t_peer_server *p_server) const;
};
using peer_server_ptr = std::unique_ptr<t_peer_server, t_peer_server_deleter>;

// Listens at the path, which everybody may connect to; a socket that nobody serves any more is replaced. Null
// with the reason. ops must outlive the server; the server's end closes all and removes the socket.
peer_server_ptr peer_server_open(event_base *p_base, const std::string &path, uint8_t module,
                                 const t_peer_server_ops *p_ops, void *p_user, std::string *p_error);

// The sessions, oldest first.
std::vector<t_peer_session *> peer_server_sessions(const t_peer_server *p_server);

// The client's module.
[[nodiscard]] uint8_t peer_session_module(const t_peer_session *p_session);

// The process that connected, as the kernel tells it; 0 when it doesn't.
[[nodiscard]] int peer_session_pid(const t_peer_session *p_session);

// As peer_client_send.
bool peer_session_send(t_peer_session *p_session, t_peer_bytes body);

// Ends the session, with `down` before it returns.
void peer_session_close(t_peer_session *p_session);
