// What the server tells of itself: netconf-state (RFC 6022), the streams (RFC 5277), the YANG library.

#include "mgmtd/netconf/netconf_monitor.h"
#include "mgmtd/rpc/mgmt_rpc_private.h"

#include <algorithm>

static constexpr const char *monitoring = "ietf-netconf-monitoring";

// A node below another, by its path from there. Values that the model refuses are left out.
static void put(lyd_node *p_top, const std::string &path, const std::string &value)
{
    lyd_new_path(p_top, nullptr, path.c_str(), value.c_str(), LYD_NEW_PATH_UPDATE, nullptr);
}

static void put(lyd_node *p_top, const std::string &path, uint32_t value)
{
    put(p_top, path, std::to_string(value));
}

static lyd_node *top_new(const ly_ctx *p_context, const char *path)
{
    lyd_node *p_top = nullptr;
    lyd_new_path(nullptr, p_context, path, nullptr, 0, &p_top);
    return p_top;
}

// ---- netconf-state ----

static void datastores_put(t_mgmt_rpc_session *p_session, lyd_node *p_top)
{
    for (e_mgmt_datastore datastore : {MGMT_DS_RUNNING, MGMT_DS_CANDIDATE}) {
        std::string path = std::string("datastores/datastore[name='") +
                           (datastore == MGMT_DS_RUNNING ? "running" : "candidate") + "']";
        lyd_new_path(p_top, nullptr, path.c_str(), nullptr, 0, nullptr);
        uint32_t holder = mgmt_lock_holder(*p_session->p_engine, datastore);
        if (holder == 0)
            continue;
        t_mgmt_rpc_server::t_lock &lock = p_session->server->locks[datastore];
        if (lock.holder != holder)
            lock = {holder, rpc_time_text(rpc_now_us())};
        put(p_top, path + "/locks/global-lock/locked-by-session", rpc_lock_holder(*p_session, datastore));
        put(p_top, path + "/locks/global-lock/locked-time", lock.since);
    }
}

static void schema_put(lyd_node *p_top, const char *name, const char *revision, const char *ns)
{
    std::string path = std::string("schemas/schema[identifier='") + name + "'][version='" +
                       (revision != nullptr ? revision : "") + "'][format='" + monitoring + ":yang']";
    put(p_top, path + "/namespace", ns);
    put(p_top, path + "/location", "NETCONF");
}

static void schemas_put(const ly_ctx *p_context, lyd_node *p_top)
{
    uint32_t position = 0;
    while (const lys_module *p_module = ly_ctx_get_module_iter(p_context, &position)) {
        schema_put(p_top, p_module->name, p_module->revision, p_module->ns);
        LY_ARRAY_COUNT_TYPE i;
        LY_ARRAY_FOR(p_module->parsed->includes, i)
        {
            const lysp_submodule *p_submodule = p_module->parsed->includes[i].submodule;
            const char *revision = p_submodule->revs != nullptr ? p_submodule->revs[0].date : nullptr;
            schema_put(p_top, p_submodule->name, revision, p_module->ns);
        }
    }
}

static void counters_put(lyd_node *p_top, const std::string &path, const t_netconf_counters &counters)
{
    put(p_top, path + "/in-rpcs", counters.in_rpcs);
    put(p_top, path + "/in-bad-rpcs", counters.in_bad_rpcs);
    put(p_top, path + "/out-rpc-errors", counters.out_rpc_errors);
    put(p_top, path + "/out-notifications", counters.out_notifications);
}

// A session of the local socket has no transport that the standard knows, so it shows none.
static void session_put(lyd_node *p_top, uint32_t id, const t_netconf_session_info &info)
{
    std::string path = "sessions/session[session-id='" + std::to_string(id) + "']";
    if (info.is_ssh)
        put(p_top, path + "/transport", std::string(monitoring) + ":netconf-ssh");
    put(p_top, path + "/username", info.user);
    if (!info.host.empty())
        put(p_top, path + "/source-host", info.host);
    put(p_top, path + "/login-time", info.login_time);
    if (info.counters != nullptr)
        counters_put(p_top, path, *info.counters);
}

static void monitor_put(const t_netconf_monitor &monitor, lyd_node *p_top)
{
    for (const std::string &capability : monitor.capabilities)
        put(p_top, "capabilities/capability", capability);
    for (const auto &[id, info] : monitor.sessions)
        session_put(p_top, id, info);
    put(p_top, "statistics/netconf-start-time", monitor.start_time);
    put(p_top, "statistics/in-bad-hellos", monitor.in_bad_hellos);
    put(p_top, "statistics/in-sessions", monitor.in_sessions);
    put(p_top, "statistics/dropped-sessions", monitor.dropped_sessions);
    if (monitor.totals != nullptr)
        counters_put(p_top, "statistics", *monitor.totals);
}

// ---- Streams ----

static void streams_put(const t_mgmt_rpc_session &session, lyd_node *p_top)
{
    static constexpr std::pair<const char *, const char *> streams[] = {
        {"NETCONF", "All events."}, {MGMT_STREAM, "All events, by the stream's own name."}};
    const auto &stored = mgmt_notifications(*session.p_engine);
    int64_t since_us = stored.empty() ? rpc_now_us() : stored.front().time_us;
    for (const auto &[name, description] : streams) {
        std::string path = std::string("streams/stream[name='") + name + "']";
        put(p_top, path + "/description", description);
        put(p_top, path + "/replaySupport", "true");
        put(p_top, path + "/replayLogCreationTime", rpc_time_text(since_us));
    }
}

// ---- All ----

lyd_ptr rpc_own_state(t_mgmt_rpc_session *p_session, const f_rpc_wants &wants)
{
    const ly_ctx *p_context = mgmt_engine_context(*p_session->p_engine);
    lyd_node *p_first = nullptr;
    lyd_node *p_top = nullptr;
    if (wants(monitoring, "netconf-state") &&
        (p_top = top_new(p_context, "/ietf-netconf-monitoring:netconf-state")) != nullptr) {
        datastores_put(p_session, p_top);
        schemas_put(p_context, p_top);
        if (p_session->server->p_monitor != nullptr)
            monitor_put(*p_session->server->p_monitor, p_top);
        lyd_insert_sibling(p_first, p_top, &p_first);
    }
    if (wants("nc-notifications", "netconf") &&
        (p_top = top_new(p_context, "/nc-notifications:netconf")) != nullptr) {
        streams_put(*p_session, p_top);
        lyd_insert_sibling(p_first, p_top, &p_first);
    }
    bool wants_library =
        wants("ietf-yang-library", "yang-library") || wants("ietf-yang-library", "modules-state");
    if (wants_library &&
        ly_ctx_get_yanglib_data(p_context, &p_top, "%u", ly_ctx_get_change_count(p_context)) == LY_SUCCESS)
        lyd_insert_sibling(p_first, p_top, &p_first);
    return lyd_ptr(p_first);
}
