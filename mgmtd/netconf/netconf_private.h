// Inside of the transport: the records, and what the sources call of each other.
//
// A link is one connection, from its accepting to its end. It is made on the listening thread and has a
// thread of its own from there; a second one, the session's, once it is logged in. Links are counted
// pointers, because the owner's thread tells them notifications.
//
// Two descriptors lead from the link's thread to the session's: bytes for the library go through a pair of
// sockets, everything else through the mailbox.
#pragma once

#include "mgmtd/netconf/mgmt_netconf.h"
#include "mgmtd/netconf/netconf_guard.h"
#include "mgmtd/netconf/netconf_host_key.h"
#include "mgmtd/rights/mgmt_users.h"
#include "mgmtd/rpc/mgmt_rpc.h"

#include <chrono>
#include <condition_variable>
#include <libssh/server.h>
#include <list>
#include <mutex>
#include <thread>

struct event;
struct evconnlistener;
struct t_netconf_link;
using netconf_link_ptr = std::shared_ptr<t_netconf_link>;
using netconf_clock = std::chrono::steady_clock;

// An eventfd by which a thread is woken from poll.
struct t_netconf_bell {
    t_netconf_bell();
    ~t_netconf_bell();
    t_netconf_bell(const t_netconf_bell &) = delete;
    t_netconf_bell &operator=(const t_netconf_bell &) = delete;

    void ring() const;
    void quiet() const;  // until the next ring

    int fd;  // -1: the system is out of descriptors
};

// ---- Mail for a session's thread ----

struct t_netconf_notification {
    lyd_ptr tree;
    std::string time;
};

struct t_netconf_refused {
    e_netconf_refusal reason;
    std::string message_id;
};

struct t_netconf_mailbox {
    t_netconf_bell bell;
    std::mutex lock;  // for what follows
    std::deque<t_netconf_notification> notifications;
    std::optional<t_netconf_refused> refused;
    std::optional<t_mgmt_rpc_reply> reply;
    bool is_end = false;  // the session is to end
};

// ---- Links ----

// How far a connection has got. It only grows.
enum e_netconf_stage {
    NETCONF_STAGE_IDENT,    // the identification line has come
    NETCONF_STAGE_KEYS,     // keys are exchanged
    NETCONF_STAGE_LOGIN,    // logged in
    NETCONF_STAGE_SESSION,  // has a place among the sessions
};

struct t_netconf_link {
    ~t_netconf_link();  // closes the descriptors that are left

    t_mgmt_netconf *p_netconf;
    int fd;
    bool is_ssh;
    std::string host;         // address as a text; empty on the local socket
    std::string address_key;  // what the limits of one address count: of IPv6 a /64
    std::thread thread;

    // Known once logged in.
    std::string user;
    bool is_recovery = false;

    // Between the threads.
    t_netconf_bell bell;  // for the link's thread
    std::atomic<e_netconf_stage> stage = NETCONF_STAGE_IDENT;
    std::atomic<int64_t> stage_ms;          // when it was reached, of netconf_clock
    std::atomic<bool> is_ending = false;    // shut down from outside
    std::atomic<bool> is_finished = false;  // the thread is to be joined
    std::atomic<int> version = -1;          // after the hello: 0 for base:1.0, 1 for base:1.1
    std::atomic<uint32_t> served = 0;       // messages that the library is done with
    std::atomic<uint32_t> session_id = 0;   // NETCONF's
    t_netconf_mailbox mailbox;
    int library_fds[2] = {-1, -1};  // the link's end, the library's end
    std::shared_ptr<t_netconf_counters> counters = std::make_shared<t_netconf_counters>();
    std::thread session_thread;
};

// A session as the owner's thread knows it.
struct t_netconf_owned {
    netconf_link_ptr link;
    mgmt_rpc_session_ptr rpc;
};

// ---- The whole ----

struct t_netconf_waiter {  // a silent peer
    int fd;
    std::string host;
    std::string address_key;
    netconf_clock::time_point since;
    bool is_identified = false;
    event *p_event = nullptr;
    t_mgmt_netconf *p_netconf;
};

struct t_netconf_failures {
    unsigned int count;
    netconf_clock::time_point last;
};

struct t_ssh_bind_deleter {
    void operator()(ssh_bind p_bind) const;
};

struct t_mgmt_netconf {
    t_mgmt_engine *p_engine;
    ly_ctx *p_context;
    t_mgmt_netconf_options options;

    // Set at opening.
    int ssh_fd = -1;
    int socket_fd = -1;
    uint16_t port = 0;
    ssh_key_ptr host_key;
    std::unique_ptr<ssh_bind_struct, t_ssh_bind_deleter> bind;
    std::mutex bind_lock;  // for accepting by the bind
    bool is_library_ready = false;

    // The listening thread's.
    event_base *p_base = nullptr;
    evconnlistener *p_ssh_listener = nullptr;
    evconnlistener *p_socket_listener = nullptr;
    event *p_bell_event = nullptr;
    event *p_tick_event = nullptr;
    std::list<t_netconf_waiter> waiters;  // oldest first
    std::list<netconf_link_ptr> links;    // oldest first
    std::thread thread;
    t_netconf_bell bell;  // for that thread: a link has finished, or all is to stop
    std::atomic<bool> is_stopping = false;
    std::function<void()> stopped;

    // The owner's thread's.
    std::map<uint32_t, t_netconf_owned> owned;  // by session-id
    t_netconf_monitor monitor;
    mgmt_rpc_server_ptr rpc_server;

    // Everybody's.
    std::atomic<size_t> budget = 0;
    std::mutex lock;  // for what follows
    std::map<std::string, size_t> user_sessions;
    size_t session_count = 0;  // without recovery's
    size_t recovery_count = 0;
    std::map<std::string, t_netconf_failures> failures;  // by address
    std::mutex password_lock;                            // one hash at a time
};

int64_t netconf_now_ms();

// ---- Listening (netconf_listen.cc) ----

[[nodiscard]] bool netconf_listen_prepare(t_mgmt_netconf *p_netconf, std::string *p_error);
void netconf_listen_run(t_mgmt_netconf *p_netconf);  // the thread
void netconf_listen_free(t_mgmt_netconf *p_netconf);

// ---- Links (netconf_link.cc) ----

// The thread of a link, from the identification line on, or of a local one.
void netconf_link_run(netconf_link_ptr link);

// Ends it, from any thread.
void netconf_link_end(t_netconf_link *p_link);
void netconf_link_advance(t_netconf_link *p_link, e_netconf_stage stage);

// A place among the sessions. False when there is none, which is logged.
[[nodiscard]] bool netconf_place_take(t_netconf_link *p_link);
void netconf_place_leave(t_netconf_link *p_link);

// ---- Logins (netconf_login.cc) ----
//
// On the link's thread; they wait for the owner's.

[[nodiscard]] bool netconf_login_password(t_netconf_link *p_link, const std::string &user,
                                          const std::string &password);
[[nodiscard]] bool netconf_login_key(t_netconf_link *p_link, const std::string &user, ssh_key p_key);

// The user behind a local peer. False, and logged, for those who may not.
[[nodiscard]] bool netconf_login_local(t_netconf_link *p_link);

// A user's name as a log may have it.
std::string netconf_log_name(const std::string &name);

// ---- Sessions (netconf_session.cc) ----

// The thread of a session: hello, rpcs, notifications, until its end.
void netconf_session_run(netconf_link_ptr link);

// Makes the library call for rpcs. Before it is initialised.
void netconf_callbacks_set(const ly_ctx *p_context);

// Tells a session to end; mail that has not been read is dropped.
void netconf_mail_end(t_netconf_link *p_link);

// The library's reply of an operation's reply.
struct nc_server_reply *netconf_reply_make(const ly_ctx *p_context, t_mgmt_rpc_reply reply);

// An error that is written past the library, unframed: an rpc that it has not seen.
std::string netconf_refusal_text(const t_netconf_refused &refused);

// ---- The owner's thread (netconf_owner.cc) ----

// Runs fn there. With a time: false when it has not run by then; it may run still, so it holds what it needs.
// Without: waits as long as it takes.
[[nodiscard]] bool netconf_owner_try(t_mgmt_engine *p_engine, std::function<void()> fn, int timeout_ms);
void netconf_owner_run(t_mgmt_engine *p_engine, std::function<void()> fn);

// These run there: sessions come, are closed for good, are killed by another.
void netconf_owner_open(const netconf_link_ptr &link, uint32_t session_id);
void netconf_owner_close(t_mgmt_netconf *p_netconf, uint32_t session_id, bool is_orderly);
t_mgmt_rpc_reply netconf_owner_kill(t_mgmt_netconf *p_netconf, uint32_t killer, const lyd_node *p_rpc);
