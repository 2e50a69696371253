// Inside of the server: connections, and the requests by kind of connection.
#pragma once

#include "mgmtd/ipc/ipc_server.h"
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_dp.h"

#include <optional>
#include <set>
#include <span>

struct bufferevent;
struct evconnlistener;

enum e_ipc_state {
    IPC_STATE_HELLO,
    IPC_STATE_PROOF,
    IPC_STATE_OPEN,
    IPC_STATE_LEAVING,  // ends when its last answer has gone out
    IPC_STATE_ENDING,
};

// A session of a data connection.
struct t_ipc_session {
    cdb_db_type db;
    bool notify;         // its writes tell subscribers
    mgmt_tree_ptr tree;  // of the operational store the living one, else as the session began
    t_mgmt_path place;
};

// The place of a walk over a list, so that the next key costs no search.
struct t_ipc_walk {
    std::string path;
    size_t position;  // of the entry given last
};

struct t_ipc_connection {
    t_ipc_server *p_server;
    uint32_t id;
    bufferevent *p_stream;
    IpcAssembler assembler;
    e_ipc_state state = IPC_STATE_HELLO;
    t_ipc_hello hello = {};
    std::string challenge;
    t_mgmt_timer handshake;
    uint32_t pending = 0;    // id of the request that will be answered later
    bool is_paused = false;  // not read from, for its replies pile up

    std::optional<t_ipc_session> session;  // data
    bool is_ready = false;                 // control: has registered; subscription: has subscribed
    std::set<uint32_t> attached;           // MAAPI: transactions
    t_ipc_walk walk = {};                  // MAAPI
    uint32_t event_mask = 0;               // events
    t_mgmt_timer heartbeat;
    t_mgmt_timer health_check;
};

struct t_ipc_server {
    event_base *p_base = nullptr;
    t_mgmt_engine *p_engine = nullptr;
    evconnlistener *p_listener = nullptr;
    std::string secret;
    uint32_t last_id = 0;
    std::map<uint32_t, std::unique_ptr<t_ipc_connection>> connections;
    std::vector<uint8_t> schema_body;  // made at the first request
};

// ---- Answers ----

// Serves one request. False: it does not decode, the connection is to be dropped.
using f_ipc_serve = bool (*)(t_ipc_connection *p_connection, const t_ipc_frame &frame);

struct t_ipc_row {
    uint16_t op;
    f_ipc_serve serve;
};

// What each kind of connection may request.
extern const std::span<const t_ipc_row> g_ipc_data_rows;
extern const std::span<const t_ipc_row> g_ipc_subscription_rows;
extern const std::span<const t_ipc_row> g_ipc_control_rows;
extern const std::span<const t_ipc_row> g_ipc_maapi_rows;
extern const std::span<const t_ipc_row> g_ipc_event_rows;
extern const std::span<const t_ipc_row> g_ipc_schema_rows;

void ipc_send(t_ipc_connection *p_connection, const t_ipc_frame &frame);
void ipc_reply(t_ipc_connection *p_connection, const t_ipc_frame &request, std::vector<uint8_t> body);
void ipc_refuse(t_ipc_connection *p_connection, const t_ipc_frame &request, const t_mgmt_error &error);
void ipc_refuse_with(t_ipc_connection *p_connection, const t_ipc_frame &request, confd_errcode code,
                     const std::string &reason);

// An empty reply or a refusal.
inline void ipc_finish(t_ipc_connection *p_connection, const t_ipc_frame &request, const t_mgmt_error &error)
{
    if (error.code == MGMT_OK)
        ipc_reply(p_connection, request, {});
    else
        ipc_refuse(p_connection, request, error);
}

// Marks a request as one that is answered later, and gives what answers it, if the connection still stands.
f_mgmt_done ipc_answer_later(t_ipc_connection *p_connection, const t_ipc_frame &request);

// Reads a path of a request, from a place or, when p_base is null, from the top.
[[nodiscard]] inline bool ipc_path_take(const t_ipc_connection &connection, const t_mgmt_path *p_base,
                                        const std::string &text, t_mgmt_path *p_path, t_mgmt_error *p_error)
{
    return mgmt_path_read(mgmt_engine_schema(*connection.p_server->p_engine), p_base, text, p_path, p_error);
}

// The value at a path, of a leaf or of a leaf-list as a whole.
[[nodiscard]] bool ipc_value_at(const t_mgmt_tree &tree, const t_mgmt_path &path, IpcValue *p_value,
                                t_mgmt_error *p_error);

// Ends a connection soon; what is queued for it is not sent any more.
void ipc_drop(t_ipc_connection *p_connection, const std::string &reason);

// Sends an event to the connections that have asked for it.
void ipc_event_send(t_ipc_server *p_server, const t_ipc_event &event);

// The model as clients get it.
t_ipc_schema ipc_schema_of(const t_schema_index &index);
