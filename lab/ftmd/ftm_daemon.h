// The forwarding table manager on an event loop: a client of the policy daemon, a client of the forwarding
// plane and a control socket around what ftm_service.h knows.
//
// The policy daemon is tried every 500 ms, the forwarding plane likewise; neither has to be there. The
// process ignores SIGPIPE.
#pragma once

#include <memory>
#include <string>

struct event_base;

struct t_ftm_daemon_places {
    std::string tarnd = "/var/run/.tarnd";
    std::string fpd = "/var/run/fpd.sock";
    std::string control = "/var/run/ftmd.sock";
};

struct t_ftm_daemon;

struct t_ftm_daemon_deleter {
    void operator()(t_ftm_daemon *p_daemon) const;
};
using ftm_daemon_ptr = std::unique_ptr<t_ftm_daemon, t_ftm_daemon_deleter>;

// Null with the reason when the own control socket can't be had, or a path is none.
ftm_daemon_ptr ftm_daemon_open(event_base *p_base, const t_ftm_daemon_places &places, std::string *p_error);
