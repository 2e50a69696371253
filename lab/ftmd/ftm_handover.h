// Hands the table of bindings to the forwarding plane by its control socket, whole each time.
//
// A change is sent some milliseconds after it was told, so that a burst of messages is one handover, and only
// after the answer to the one before. The forwarding plane may come and go: the socket is tried every 500 ms,
// and a new connection gets the table at once.
//
// Runs on the event base's thread. The process ignores SIGPIPE.
#pragma once

#include "lab/fp/fp_bindings.h"

#include <cstdint>
#include <memory>
#include <string>

struct event_base;

struct t_ftm_handover_stats {
    bool is_connected;
    uint64_t connections;
    uint64_t sent;
    uint64_t refused;  // of those sent
};

using f_ftm_bindings = t_fp_bindings (*)(void *p_user);

struct t_ftm_handover;

struct t_ftm_handover_deleter {
    void operator()(t_ftm_handover *p_handover) const;
};
using ftm_handover_ptr = std::unique_ptr<t_ftm_handover, t_ftm_handover_deleter>;

// Tries to connect in the loop's next turn. `bindings` gives the table as it is when it is sent. Null when
// memory is out.
ftm_handover_ptr ftm_handover_open(event_base *p_base, const std::string &path, f_ftm_bindings bindings,
                                   void *p_user);

// The table has changed.
void ftm_handover_change(t_ftm_handover *p_handover);

t_ftm_handover_stats ftm_handover_stats(const t_ftm_handover *p_handover);
