// A session's thread: it alone calls the library for its session.

#include "common/lum_log.h"
#include "mgmtd/netconf/netconf_private.h"

#include <algorithm>
#include <cstring>
#include <libyang/libyang.h>
#include <nc_server.h>
#include <poll.h>
#include <sys/socket.h>

static constexpr int step_ms = 1000;  // the library's waiting for what has already come

// ---- Mail ----

void netconf_mail_end(t_netconf_link *p_link)
{
    std::deque<t_netconf_notification> dropped;
    {
        std::lock_guard guard(p_link->mailbox.lock);
        p_link->mailbox.is_end = true;
        dropped.swap(p_link->mailbox.notifications);
    }
    p_link->mailbox.bell.ring();
}

static bool mail_is_end(t_netconf_link *p_link)
{
    std::lock_guard guard(p_link->mailbox.lock);
    return p_link->mailbox.is_end;
}

template <typename Item>
static std::optional<Item> mail_take(t_netconf_link *p_link, std::optional<Item> *p_place)
{
    std::lock_guard guard(p_link->mailbox.lock);
    return std::exchange(*p_place, std::nullopt);
}

// ---- Notifications ----

static bool notification_take(t_netconf_link *p_link, t_netconf_notification *p_notification)
{
    std::lock_guard guard(p_link->mailbox.lock);
    if (p_link->mailbox.notifications.empty())
        return false;
    *p_notification = std::move(p_link->mailbox.notifications.front());
    p_link->mailbox.notifications.pop_front();
    return true;
}

static void notifications_send(t_netconf_link *p_link, nc_session *p_session)
{
    t_netconf_notification notification;
    while (notification_take(p_link, &notification)) {
        nc_server_notif *p_notif = nc_server_notif_new(notification.tree.release(),
                                                       strdup(notification.time.c_str()), NC_PARAMTYPE_FREE);
        if (nc_server_notif_send(p_session, p_notif, step_ms) == NC_MSG_NOTIF) {
            p_link->counters->out_notifications++;
            p_link->p_netconf->monitor.totals->out_notifications++;
        }
        nc_server_notif_free(p_notif);
    }
}

// ---- Rpcs ----

static t_mgmt_rpc_reply reply_failed(const char *message)
{
    t_mgmt_rpc_reply reply;
    reply.kind = MGMT_RPC_ERRORS;
    reply.errors.emplace_back().message = message;
    return reply;
}

static void reply_post(const netconf_link_ptr &link, t_mgmt_rpc_reply reply)
{
    std::lock_guard guard(link->mailbox.lock);
    link->mailbox.reply = std::move(reply);
    link->mailbox.bell.ring();
}

// On the owner's thread. A session that has been killed meanwhile answers nothing: its mail says so.
static void rpc_begin(const netconf_link_ptr &link, const lyd_node *p_rpc)
{
    auto owned = link->p_netconf->owned.find(link->session_id);
    if (owned == link->p_netconf->owned.end())
        return;
    if (strcmp(p_rpc->schema->name, "kill-session") == 0)
        return reply_post(link, netconf_owner_kill(link->p_netconf, link->session_id, p_rpc));
    mgmt_rpc_run(owned->second.rpc.get(), p_rpc,
                 [link](t_mgmt_rpc_reply reply) { reply_post(link, std::move(reply)); });
}

// Other mail is served meanwhile; but a subscription's notifications come behind its reply.
static t_mgmt_rpc_reply rpc_await(t_netconf_link *p_link, nc_session *p_session, bool is_subscription)
{
    auto deadline = netconf_clock::now() + std::chrono::milliseconds(NETCONF_RPC_MS);
    pollfd bell = {.fd = p_link->mailbox.bell.fd, .events = POLLIN, .revents = 0};
    while (!mail_is_end(p_link)) {
        std::optional<t_mgmt_rpc_reply> reply = mail_take(p_link, &p_link->mailbox.reply);
        if (reply.has_value())
            return std::move(*reply);
        if (netconf_clock::now() >= deadline)
            break;
        if (!is_subscription)
            notifications_send(p_link, p_session);
        poll(&bell, 1, step_ms);
        p_link->mailbox.bell.quiet();
    }
    if (!mail_is_end(p_link))
        LUM_LOG(LUM_LOG_ERROR, "NETCONF session %u ends: no answer in %d s", p_link->session_id.load(),
                NETCONF_RPC_MS / 1000);
    netconf_mail_end(p_link);
    return reply_failed("the session ends before the operation does");
}

// Closes the session for the owner, so that the rpc's nodes are not looked at any more.
static void session_close(t_netconf_link *p_link, bool is_orderly)
{
    t_mgmt_netconf *p_netconf = p_link->p_netconf;
    uint32_t id = p_link->session_id;
    netconf_owner_run(p_netconf->p_engine,
                      [p_netconf, id, is_orderly] { netconf_owner_close(p_netconf, id, is_orderly); });
}

// What the library calls for each rpc but close-session.
static nc_server_reply *on_rpc(lyd_node *p_rpc, nc_session *p_session)
{
    netconf_link_ptr link = *static_cast<netconf_link_ptr *>(nc_session_get_data(p_session));
    while (lyd_parent(p_rpc) != nullptr)
        p_rpc = lyd_parent(p_rpc);
    mgmt_engine_post(link->p_netconf->p_engine, [link, p_rpc] { rpc_begin(link, p_rpc); });
    bool is_subscription = strcmp(p_rpc->schema->name, "create-subscription") == 0;
    t_mgmt_rpc_reply reply = rpc_await(link.get(), p_session, is_subscription);
    if (is_subscription && reply.kind == MGMT_RPC_OK)
        nc_session_inc_notif_status(p_session);  // else the library sends none
    if (mail_is_end(link.get()))
        session_close(link.get(), false);
    if (reply.kind == MGMT_RPC_ERRORS) {
        link->counters->out_rpc_errors++;
        link->p_netconf->monitor.totals->out_rpc_errors++;
    }
    return netconf_reply_make(nc_session_get_ctx(p_session), std::move(reply));
}

void netconf_callbacks_set(const ly_ctx *p_context)
{
    nc_set_global_rpc_clb(on_rpc);
    // The library's own get-schema frees its text twice, and is taken where nothing else is set.
    const lysc_node *p_node = lys_find_path(p_context, nullptr, "/ietf-netconf-monitoring:get-schema", 0);
    if (p_node != nullptr)
        const_cast<lysc_node *>(p_node)->priv = reinterpret_cast<void *>(on_rpc);
}

// ---- Messages ----

static bool all_send(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        ssize_t size = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(size));
    }
    return true;
}

static void message_count(t_netconf_link *p_link, bool is_good)
{
    t_netconf_counters *p_totals = p_link->p_netconf->monitor.totals.get();
    (is_good ? p_link->counters->in_rpcs : p_link->counters->in_bad_rpcs)++;
    (is_good ? p_totals->in_rpcs : p_totals->in_bad_rpcs)++;
}

static void message_served(t_netconf_link *p_link)
{
    p_link->served++;
    p_link->bell.ring();
}

static void refusal_answer(t_netconf_link *p_link, nc_session *p_session)
{
    std::optional<t_netconf_refused> refused = mail_take(p_link, &p_link->mailbox.refused);
    if (!refused.has_value())
        return;
    std::string text = netconf_refusal_text(*refused);
    if (nc_session_get_version(p_session) == 0)
        text += "]]>]]>";
    else
        text = "\n#" + std::to_string(text.size()) + "\n" + text + "\n##\n";
    all_send(p_link->library_fds[1], text);
    LUM_LOG(LUM_LOG_NOTICE, "NETCONF session %u of user %s: an rpc beyond the limits is refused",
            p_link->session_id.load(), netconf_log_name(p_link->user).c_str());
    message_count(p_link, false);
    message_served(p_link);
}

// False when the session is over.
static bool message_serve(t_netconf_link *p_link, nc_pollsession *p_poll)
{
    int result = nc_ps_poll(p_poll, step_ms, nullptr);
    if (result & (NC_PSPOLL_RPC | NC_PSPOLL_BAD_RPC)) {
        message_count(p_link, (result & NC_PSPOLL_RPC) != 0);
        message_served(p_link);
    }
    return (result & (NC_PSPOLL_SESSION_TERM | NC_PSPOLL_SESSION_ERROR | NC_PSPOLL_ERROR)) == 0;
}

static void messages_serve(t_netconf_link *p_link, nc_session *p_session, nc_pollsession *p_poll)
{
    pollfd fds[] = {{.fd = p_link->library_fds[1], .events = POLLIN, .revents = 0},
                    {.fd = p_link->mailbox.bell.fd, .events = POLLIN, .revents = 0}};
    while (!mail_is_end(p_link)) {
        notifications_send(p_link, p_session);
        refusal_answer(p_link, p_session);
        poll(fds, 2, -1);
        if (fds[1].revents != 0)
            p_link->mailbox.bell.quiet();
        if (fds[0].revents != 0 && !message_serve(p_link, p_poll))
            return;
    }
}

// ---- The thread ----

static nc_session *hello_exchange(t_netconf_link *p_link)
{
    int fd = p_link->library_fds[1];
    nc_session *p_session = nullptr;
    NC_MSG_TYPE result = nc_accept_inout(fd, fd, p_link->user.c_str(), &p_session);
    if (result == NC_MSG_HELLO)
        return p_session;
    LUM_LOG(LUM_LOG_NOTICE, "NETCONF: user %s from %s did not send a proper hello",
            netconf_log_name(p_link->user).c_str(), p_link->host.c_str());
    t_mgmt_netconf *p_netconf = p_link->p_netconf;
    mgmt_engine_post(p_netconf->p_engine, [p_netconf] { p_netconf->monitor.in_bad_hellos++; });
    return nullptr;
}

static void session_serve(netconf_link_ptr link, nc_session *p_session)
{
    uint32_t id = nc_session_get_id(p_session);
    LUM_LOG(LUM_LOG_INFO, "NETCONF session %u: user %s from %s", id, netconf_log_name(link->user).c_str(),
            link->host.empty() ? "the local socket" : link->host.c_str());
    nc_session_set_data(p_session, &link);
    link->session_id = id;
    netconf_owner_run(link->p_netconf->p_engine, [link, id] { netconf_owner_open(link, id); });
    link->version = nc_session_get_version(p_session);
    message_served(link.get());
    nc_pollsession *p_poll = nc_ps_new();
    if (p_poll != nullptr && nc_ps_add_session(p_poll, p_session) == 0)
        messages_serve(link.get(), p_session, p_poll);
    bool is_orderly = nc_session_get_term_reason(p_session) == NC_SESSION_TERM_CLOSED;
    session_close(link.get(), is_orderly);
    nc_ps_free(p_poll);
    LUM_LOG(LUM_LOG_INFO, "NETCONF session %u has ended", id);
}

void netconf_session_run(netconf_link_ptr link)
{
    nc_session *p_session = hello_exchange(link.get());
    if (p_session != nullptr) {
        session_serve(link, p_session);
        nc_session_free(p_session, nullptr);
    }
    shutdown(link->library_fds[1], SHUT_RDWR);
}
