// The daemons' port: connections, their handshake, and every request that a client may send.
//
// Listens on loopback only. A client first proves that it can read the access file; until then it may send a
// few small frames and must be quick. What does not decode, an operation that its kind of connection does not
// have, or a request while another is unanswered ends a connection, and nothing else. A client that does not
// take its replies is not read from any more, and dropped in the end. Each request becomes a call of
// the engine (mgmt_link.h); the engine's own requests to daemons go out by its table.
//
// Owner's thread only. The process ignores SIGPIPE.
#pragma once

#include "mgmtd/engine/mgmt_link.h"

struct t_ipc_server;

struct t_ipc_server_deleter {
    void operator()(t_ipc_server *p_server) const;
};
using ipc_server_ptr = std::unique_ptr<t_ipc_server, t_ipc_server_deleter>;

inline constexpr size_t IPC_SERVER_MAX_CONNECTIONS = 1000;  // further ones are closed at once
inline constexpr size_t IPC_SERVER_MAX_STRANGERS = 64;      // of them that have not proved themselves
inline constexpr int64_t IPC_SERVER_HANDSHAKE_TIMEOUT_MS = 10000;

struct t_ipc_server_options {
    uint16_t port = IPC_DEFAULT_PORT;  // 0: any that is free
    std::string secret;                // empty: no proof is demanded
};

// Begins to listen. Base and engine must outlive the server; its end closes all connections. Null with the
// reason in *p_error.
[[nodiscard]] ipc_server_ptr ipc_server_open(event_base *p_base, t_mgmt_engine *p_engine,
                                             const t_ipc_server_options &options, std::string *p_error);

uint16_t ipc_server_port(const t_ipc_server &server);
size_t ipc_server_connections(const t_ipc_server &server);
