// What the files of the control socket share: connections, and the answers to their requests.
#pragma once

#include "mgmtd/control/control_request.h"
#include "mgmtd/control/mgmt_control.h"

struct bufferevent;
struct event;
struct evconnlistener;

struct t_control_connection {
    t_mgmt_control *p_control;
    bufferevent *p_bev;
    event *p_step;     // goes on with requests in the loop's next turn
    uint32_t session;  // of the engine; 0 where the peer was refused
    std::string user;
    int64_t request_id = 0;  // of the request under way; 0 for none
    uint32_t monitor = 0;    // its subscription to notifications; 0 for none
    bool is_behind = false;  // has not taken what the monitor told; the monitor is to end
    bool is_ending = false;  // goes when its output is written, and nothing more is read
};

struct t_mgmt_control {
    event_base *p_base;
    t_mgmt_engine *p_engine;
    t_mgmt_control_options options;
    evconnlistener *p_listener;
    std::vector<std::unique_ptr<t_control_connection>> connections;
};

// Begins a request. Each ends with one answer, now or by a callback of the engine's, which does not come any
// more once the session is closed.
void control_serve(t_control_connection *p_connection, const t_control_request &request);

// ---- Answers to the request under way ----

struct t_control_result {
    std::string body;  // a JSON object, or empty
    std::vector<std::string> warnings;
};

// Ends the request. The result counts only without an error.
void control_answer(t_control_connection *p_connection, const t_mgmt_error &error,
                    const t_control_result &result = {});

// Bytes that were answered or told and that the client has not taken yet.
size_t control_unread(const t_control_connection &connection);

void control_monitor_serve(t_control_connection *p_connection, const t_control_request &request);

// Ends a monitor whose client is behind. For the loop, not for a callback of the engine's.
void control_monitor_end(t_control_connection *p_connection);

// Goes on with the connection in the loop's next turn.
void control_schedule(t_control_connection *p_connection);

// A piece of output, a line of progress.
void control_output(t_control_connection *p_connection, std::string_view text);
void control_progress(t_control_connection *p_connection, const std::string &line);
