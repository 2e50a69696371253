// The control socket: requests of fp_request.h over a local stream socket.
//
// Answers come in the order of a connection's requests, in JSON on one line, or in text with an empty line
// behind it; a text that begins with "error:" is a refusal. Replays, and requests that come in heaps, are
// worked off in slices, so other connections are served meanwhile. A client that reads slowly is not read
// from until it has taken its answers; one that sends a line of more than 4 MiB is told so and dropped. What
// a client sends before it shuts down its sending side is still answered; one that closes takes its replay
// with it.
//
// Runs on the event base's thread. The process ignores SIGPIPE. Only the owner may connect.
#pragma once

#include "lab/fp/fp_service.h"

#include <memory>
#include <string>

struct event_base;

inline constexpr char FP_CONTROL_SOCKET[] = "/var/run/fpd.sock";

struct t_fp_control;

struct t_fp_control_deleter {
    void operator()(t_fp_control *p_control) const;
};
using fp_control_ptr = std::unique_ptr<t_fp_control, t_fp_control_deleter>;

// Makes sure that no other process serves the path and removes a socket that one left. False with the reason.
// For asking before anything is changed that another process may be using.
bool fp_control_path_clear(const std::string &path, std::string *p_error);

// Listens at the path; a socket that nobody serves any more is replaced. Null with the reason. Base and
// service must outlive the control; its end closes all connections and removes the socket.
fp_control_ptr fp_control_open(event_base *p_base, t_fp_service *p_service, const std::string &path,
                               std::string *p_error);
