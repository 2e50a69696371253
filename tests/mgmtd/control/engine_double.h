// Stands in for the engine below the control socket: keeps what it is asked, and answers from a script.
#pragma once

#include "mgmtd/engine/mgmt_engine.h"

#include <mutex>
#include <string>
#include <vector>

struct t_mgmt_engine {
    event_base *p_base = nullptr;
    const t_schema_index *p_schema = nullptr;
    const ly_ctx *p_context = nullptr;

    // What it answers. Set before the server runs.
    t_mgmt_error edit_error;
    t_mgmt_commit_result commit_result;
    bool holds_commits = false;  // never answers them
    std::string running_json = "{}";
    std::string action_output;
    std::vector<t_mgmt_commit_info> commits;
    std::vector<t_mgmt_notification> stored;  // all are replayed

    // What it was asked, as lines.
    std::mutex lock;
    std::vector<std::string> log;
    std::vector<uint32_t> closed;  // sessions
    uint32_t last_session = 0;
    uint32_t last_subscription = 0;
    std::vector<std::string> alarms = {"commit-7.json: bad"};
};

// Waits until the log has this line. False after ten seconds.
bool engine_double_waits_for(t_mgmt_engine *p_engine, const std::string &line);
