// NETCONF's transport: SSH and a local socket, logins, sessions, messages in and out.
//
// The operations are those of mgmtd/rpc, on the owner's thread; here is everything before and behind them.
// libnetconf2 gets plain descriptors (nc_accept_inout) and does hello, parsing of rpcs and printing of
// replies and notifications. SSH is libssh's, without libnetconf2 in between. Its own accepting
// (nc_accept) blocks for each peer, tells neither size nor depth of what comes in before it is parsed, and
// keeps the sessions' descriptors to itself, so that waiting for them means looking every 100 us.
//
// Threads. One listens: it accepts, keeps peers that are silent in a waiting room without a thread, and hands
// on those that have sent their identification line. Each of these has a thread that runs SSH's key exchange
// and login, and then carries bytes between the peer and the library, through a guard that frames and limits
// messages (netconf_guard.h). Once logged in a session has a second thread, which alone calls the library for
// it and waits for the owner's answers: a session that waits keeps nobody else waiting. Numbers of both are
// bounded.
//
// Nobody is kept out by peers that don't log in: when the waiting room or the places for logins are full, who
// has got least far gives way, its own address's first; see NETCONF_WAITING and those below.
//
// All functions are for the owner's thread. One transport at a time in a process: the library keeps its state
// for itself.
#pragma once

#include "mgmtd/engine/mgmt_engine.h"
#include "mgmtd/netconf/netconf_monitor.h"

#include <sys/types.h>

struct ly_ctx;

inline constexpr const char *NETCONF_SOCKET = "/var/run/mgmtd-netconf.sock";
inline constexpr const char *NETCONF_ADDRESS = "0.0.0.0";
inline constexpr uint16_t NETCONF_PORT = 830;

// Peers that have not sent their identification line, and those at their key exchange or login; in all and of
// one address (IPv6: of one /64).
inline constexpr size_t NETCONF_WAITING = 512;
inline constexpr size_t NETCONF_WAITING_ADDRESS = 128;
inline constexpr size_t NETCONF_LOGINS = 64;
inline constexpr size_t NETCONF_LOGINS_ADDRESS = 32;
inline constexpr int NETCONF_IDENT_MS = 10 * 1000;  // for the identification line
inline constexpr int NETCONF_LOGIN_MS = 30 * 1000;  // from there to the opened session
inline constexpr int NETCONF_HELLO_MS = 30 * 1000;  // for the hello, and then for each message that has begun
inline constexpr int NETCONF_MESSAGE_MS = 120 * 1000;

inline constexpr size_t NETCONF_SESSIONS = 64;
inline constexpr size_t NETCONF_SESSIONS_USER = 16;
inline constexpr size_t NETCONF_SESSIONS_RECOVERY = 8;  // of root on the local socket, beside the others

inline constexpr int NETCONF_PASSWORDS = 3;             // wrong ones on one connection
inline constexpr int NETCONF_LOGIN_REQUESTS = 20;       // of any kind, on one connection
inline constexpr int NETCONF_RPC_MS = 3600 * 1000;      // for an answer; commits wait for subscribers
inline constexpr size_t NETCONF_NOTIFICATIONS = 12000;  // waiting for one session; more end it

struct t_mgmt_netconf;

struct t_mgmt_netconf_options {
    std::string address = NETCONF_ADDRESS;
    int port = NETCONF_PORT;  // 0: any; -1: no SSH
    std::string host_key;     // file; made if missing
    std::string socket;       // path of the local socket; empty: none
    gid_t group;              // whose members may connect there, beside root; CONTROL_NO_GROUP: nobody
    size_t max_notifications = NETCONF_NOTIFICATIONS;
};

// Frees; after the start only when it has stopped.
struct t_mgmt_netconf_deleter {
    void operator()(t_mgmt_netconf *p_netconf) const;
};
using mgmt_netconf_ptr = std::unique_ptr<t_mgmt_netconf, t_mgmt_netconf_deleter>;

// Binds port and socket, reads or makes the host key. No threads yet. The context has the modules of
// netconf_modules.h; context and engine must outlive the transport. Null with the reason.
[[nodiscard]] mgmt_netconf_ptr mgmt_netconf_open(t_mgmt_engine *p_engine, ly_ctx *p_context,
                                                 const t_mgmt_netconf_options &options, std::string *p_error);

// Starts the threads: after the process has gone to the background, before or in the loop.
[[nodiscard]] bool mgmt_netconf_start(t_mgmt_netconf *p_netconf, std::string *p_error);

// Ends all sessions and threads. The loop must go on until `stopped`, which is called from it: sessions that
// end still ask the owner's thread. Once, after the start.
void mgmt_netconf_stop(t_mgmt_netconf *p_netconf, std::function<void()> stopped);

// The port of SSH; 0 without.
uint16_t mgmt_netconf_port(const t_mgmt_netconf &netconf);

// Lives as long as the transport.
const t_netconf_monitor *mgmt_netconf_monitor(const t_mgmt_netconf &netconf);
