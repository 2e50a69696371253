// The control socket: the management daemon as the command line on the same machine sees it.
//
// A UNIX stream socket with the frames of control_frame.h and the requests of control_request.h. Each
// connection is a session of the engine. Who may connect tells control_peer.h; others get one refusal and are
// dropped.
//
// A connection has one request under way at a time; what comes meanwhile waits, within bounds. A client that
// does not take its answers is not served until it has; one that monitors and does not take what it is told
// is told no more. A frame with sizes outside the limits ends the connection after an answer with the id 0. A
// client that goes, or shuts down its sending side, ends its session: its lock and its uncommitted edits
// under the lock go with it, and requests that have not begun are forgotten.
//
// Owner's thread only. The process ignores SIGPIPE.
#pragma once

#include "mgmtd/control/control_peer.h"
#include "mgmtd/engine/mgmt_engine.h"

struct t_mgmt_control_options {
    std::string path;
    gid_t group = CONTROL_NO_GROUP;  // members may connect, as administrators
};

inline constexpr size_t MGMT_CONTROL_MAX_SESSIONS = 32;  // further ones are refused

struct t_mgmt_control;

struct t_mgmt_control_deleter {
    void operator()(t_mgmt_control *p_control) const;
};
using mgmt_control_ptr = std::unique_ptr<t_mgmt_control, t_mgmt_control_deleter>;

// Listens at the path; a socket that nobody serves any more is replaced. Null with the reason. Base and
// engine must outlive the control; its end closes all connections and removes the socket.
[[nodiscard]] mgmt_control_ptr mgmt_control_open(event_base *p_base, t_mgmt_engine *p_engine,
                                                 const t_mgmt_control_options &options, std::string *p_error);
