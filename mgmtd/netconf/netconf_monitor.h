// What is known about NETCONF sessions, for ietf-netconf-monitoring.
//
// One record, in the hands of the owner's thread; only the counters are counted by the sessions' own threads.
// The transport fills it, the operations read it.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct t_netconf_counters {
    std::atomic<uint32_t> in_rpcs = 0;
    std::atomic<uint32_t> in_bad_rpcs = 0;
    std::atomic<uint32_t> out_rpc_errors = 0;
    std::atomic<uint32_t> out_notifications = 0;
};

struct t_netconf_session_info {
    std::string user;
    std::string host;        // address without port; empty for the local socket
    bool is_ssh = true;      // false: the local socket
    std::string login_time;  // "2024-01-15T10:00:00Z"
    std::shared_ptr<const t_netconf_counters> counters;
};

struct t_netconf_monitor {
    std::string start_time;
    std::vector<std::string> capabilities;                // URIs, as in the server's hello
    std::map<uint32_t, t_netconf_session_info> sessions;  // those logged in, by session-id
    uint32_t in_bad_hellos = 0;
    uint32_t in_sessions = 0;
    uint32_t dropped_sessions = 0;  // lost, or ended by the server
    std::shared_ptr<t_netconf_counters> totals = std::make_shared<t_netconf_counters>();  // of all sessions
};
