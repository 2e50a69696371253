// What sessions do on the owner's thread.

#include "common/lum_log.h"
#include "mgmtd/netconf/netconf_private.h"

#include <charconv>
#include <cstring>
#include <ctime>
#include <libyang/libyang.h>

// ---- Getting there ----

struct t_errand {
    std::mutex lock;
    std::condition_variable changed;
    bool is_done = false;
};

static std::shared_ptr<t_errand> errand_post(t_mgmt_engine *p_engine, std::function<void()> fn)
{
    auto errand = std::make_shared<t_errand>();
    mgmt_engine_post(p_engine, [errand, fn = std::move(fn)] {
        fn();
        std::lock_guard guard(errand->lock);
        errand->is_done = true;
        errand->changed.notify_one();
    });
    return errand;
}

bool netconf_owner_try(t_mgmt_engine *p_engine, std::function<void()> fn, int timeout_ms)
{
    std::shared_ptr<t_errand> errand = errand_post(p_engine, std::move(fn));
    std::unique_lock guard(errand->lock);
    return errand->changed.wait_for(guard, std::chrono::milliseconds(timeout_ms),
                                    [&errand] { return errand->is_done; });
}

void netconf_owner_run(t_mgmt_engine *p_engine, std::function<void()> fn)
{
    std::shared_ptr<t_errand> errand = errand_post(p_engine, std::move(fn));
    std::unique_lock guard(errand->lock);
    errand->changed.wait(guard, [&errand] { return errand->is_done; });
}

// ---- Sessions ----

static std::string time_text(time_t now)
{
    tm parts = {};
    char text[32];
    gmtime_r(&now, &parts);
    size_t size = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {text, size};
}

// A subscriber that is far behind loses its session, so that it knows that it has missed something.
static void notification_post(const netconf_link_ptr &link, lyd_ptr tree, const std::string &time)
{
    bool is_full = false;
    {
        std::lock_guard guard(link->mailbox.lock);
        is_full = link->mailbox.notifications.size() >= link->p_netconf->options.max_notifications;
        if (!is_full && !link->mailbox.is_end)
            link->mailbox.notifications.push_back({.tree = std::move(tree), .time = time});
    }
    link->mailbox.bell.ring();
    if (!is_full || link->is_ending)
        return;
    LUM_LOG(LUM_LOG_NOTICE, "NETCONF session %u of user %s ends: it does not take its notifications",
            link->session_id.load(), netconf_log_name(link->user).c_str());
    netconf_link_end(link.get());
}

void netconf_owner_open(const netconf_link_ptr &link, uint32_t session_id)
{
    t_mgmt_netconf *p_netconf = link->p_netconf;
    t_mgmt_rpc_stream stream = {.notify = [link](lyd_ptr tree, const std::string &time) {
        notification_post(link, std::move(tree), time);
    }};
    t_netconf_owned owned = {link, mgmt_rpc_session_open(p_netconf->p_engine, link->user, link->is_recovery,
                                                         session_id, std::move(stream))};
    mgmt_rpc_session_join(owned.rpc.get(), p_netconf->rpc_server);
    p_netconf->owned.emplace(session_id, std::move(owned));
    p_netconf->monitor.in_sessions++;
    p_netconf->monitor.sessions[session_id] = {.user = link->user,
                                               .host = link->host,
                                               .is_ssh = link->is_ssh,
                                               .login_time = time_text(time(nullptr)),
                                               .counters = link->counters};
}

void netconf_owner_close(t_mgmt_netconf *p_netconf, uint32_t session_id, bool is_orderly)
{
    if (p_netconf->owned.erase(session_id) == 0)
        return;  // another has killed it
    p_netconf->monitor.sessions.erase(session_id);
    if (!is_orderly)
        p_netconf->monitor.dropped_sessions++;
}

// ---- Killing ----

static t_mgmt_rpc_reply kill_refusal(const char *message)
{
    t_mgmt_rpc_reply reply;
    reply.kind = MGMT_RPC_ERRORS;
    t_mgmt_rpc_error error;
    error.type = "protocol";
    error.tag = "invalid-value";
    error.message = message;
    reply.errors.push_back(std::move(error));
    return reply;
}

static uint32_t session_id_of(const lyd_node *p_rpc)
{
    uint32_t id = 0;
    for (const lyd_node *p_node = lyd_child(p_rpc); p_node != nullptr; p_node = p_node->next) {
        const char *text = lyd_get_value(p_node);
        if (p_node->schema != nullptr && strcmp(p_node->schema->name, "session-id") == 0 && text != nullptr)
            std::from_chars(text, text + strlen(text), id);
    }
    return id;
}

// What the other session holds is free when the killer has its answer.
t_mgmt_rpc_reply netconf_owner_kill(t_mgmt_netconf *p_netconf, uint32_t killer, const lyd_node *p_rpc)
{
    t_mgmt_rpc_reply reply;
    auto by = p_netconf->owned.find(killer);
    if (by == p_netconf->owned.end())
        return kill_refusal("the session has ended");
    if (!mgmt_rpc_may(by->second.rpc.get(), p_rpc, &reply))
        return reply;
    uint32_t id = session_id_of(p_rpc);
    if (id == killer)
        return kill_refusal("session-id is that of this session, which close-session ends");
    auto other = p_netconf->owned.find(id);
    if (other == p_netconf->owned.end())
        return kill_refusal("there is no session of this session-id");
    LUM_LOG(LUM_LOG_NOTICE, "NETCONF session %u is killed by session %u of user %s", id, killer,
            netconf_log_name(by->second.link->user).c_str());
    netconf_link_ptr link = other->second.link;
    netconf_owner_close(p_netconf, id, false);
    netconf_link_end(link.get());
    return {};
}
