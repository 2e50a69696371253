// NETCONF's operations, without the wire: an rpc's data tree in, a reply's data tree out.
//
// One session stands for one login. Everything runs on the owner's thread and nothing waits: an rpc ends by
// its callback, before or after mgmt_rpc_run has returned, exactly once, unless the session is closed before.
// Rights are asked here, at one place, for every operation, its data, and every notification.
//
// Sessions of one server share a record: what netconf-state tells, whom a lock's error names, and the rights,
// which are compiled once for each running configuration.
//
// The transport (mgmtd/netconf) limits depth and size of the rpc, parses it, hands it over, and sends what
// comes back; it serves close-session and kill-session itself after mgmt_rpc_may. get-schema is served here.
#pragma once

#include "mgmtd/engine/mgmt_engine.h"
#include "mgmtd/rights/mgmt_rights.h"

struct t_mgmt_rpc_session;
struct t_netconf_monitor;  // mgmtd/netconf/netconf_monitor.h
struct t_mgmt_rpc_server;
using mgmt_rpc_server_ptr = std::shared_ptr<t_mgmt_rpc_server>;

struct t_mgmt_rpc_session_deleter {
    void operator()(t_mgmt_rpc_session *p_session) const;
};
using mgmt_rpc_session_ptr = std::unique_ptr<t_mgmt_rpc_session, t_mgmt_rpc_session_deleter>;

// One entry of an rpc-error (RFC 6241, 4.3). Empty texts are left out.
struct t_mgmt_rpc_error {
    std::string type = "application";  // transport, rpc, protocol, application
    std::string tag = "operation-failed";
    std::string app_tag;
    std::string path;     // XPath of the node: "/lumora-policy:policy/zone[name='a']"
    std::string message;  // a sentence that names the object and the reason
    std::vector<std::pair<std::string, std::string>> info;  // element and value: bad-element, session-id...
};

struct t_lyd_deleter {
    void operator()(lyd_node *p_node) const;  // lyd_free_all
};
using lyd_ptr = std::unique_ptr<lyd_node, t_lyd_deleter>;

enum e_mgmt_rpc_reply { MGMT_RPC_OK, MGMT_RPC_DATA, MGMT_RPC_ERRORS };

// What goes back. data: the operation's node with its output below, as nc_server_reply_data takes it; with
// the with-defaults mode that it is to be printed in (an NC_WD_MODE's number; 0: none asked).
struct t_mgmt_rpc_reply {
    e_mgmt_rpc_reply kind = MGMT_RPC_OK;
    lyd_ptr data;
    int with_defaults = 0;
    std::vector<t_mgmt_rpc_error> errors;
};

using f_mgmt_rpc_done = std::function<void(t_mgmt_rpc_reply)>;

// How a session's notifications leave: called on the owner's thread with the notification's tree (the
// receiver's own) and its event time; replayComplete and notificationComplete come the same way.
struct t_mgmt_rpc_stream {
    std::function<void(lyd_ptr notification, const std::string &time)> notify;
};

// Opens a session, also one of the engine's. netconf_id is the session's number on the wire, which errors
// name (lock-denied) and kill-session takes. stream may have a null function: no subscriptions then.
mgmt_rpc_session_ptr mgmt_rpc_session_open(t_mgmt_engine *p_engine, const std::string &user, bool is_recovery,
                                           uint32_t netconf_id, t_mgmt_rpc_stream stream);

// ---- The server as a whole ----

// One for a server, made before its first session. The transport's record (null: none) is what netconf-state
// shows of sessions and counters; it must outlive the sessions.
mgmt_rpc_server_ptr mgmt_rpc_server_new(const t_netconf_monitor *p_monitor);

// Makes a fresh session one of the server's. A session that joins none is its own server's only one.
void mgmt_rpc_session_join(t_mgmt_rpc_session *p_session, const mgmt_rpc_server_ptr &server);

// ---- Operations ----

// Runs one rpc. p_rpc is the operation's node (for an action the top of its data, as the library has parsed
// it) and must stay until done. Groups of the user are looked up anew for each.
void mgmt_rpc_run(t_mgmt_rpc_session *p_session, const lyd_node *p_rpc, f_mgmt_rpc_done done);

// Whether the session's user may call the operation: for operations that the transport serves itself. On
// denial *p_reply is the error's reply.
[[nodiscard]] bool mgmt_rpc_may(t_mgmt_rpc_session *p_session, const lyd_node *p_rpc,
                                t_mgmt_rpc_reply *p_reply);

// The error entry that stands for an engine's or store's error.
t_mgmt_rpc_error mgmt_rpc_error_of(const t_mgmt_engine &engine, const t_mgmt_error &error);
