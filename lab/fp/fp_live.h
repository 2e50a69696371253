// Live mode: the plane of fp_live_plane.h on the ports of the box, driven by the process's event loop.
//
// Of the simulated SDK it uses the port table and the rings: a ring's socket is an event, a turn of the loop
// takes one batch (CVMX_RING_BATCH frames) from each port that has some, and what the batch sends leaves
// before the turn ends. So requests on the control socket are served between batches however much comes in,
// and frames are rewritten in the buffers that they arrived in. It doesn't use buffer pools, work entries and
// work queues: those hand packets between processes, and here one thread takes a packet from port to port;
// at some microseconds for each allocation and each submission they would cost more than the forwarding.
// Tap devices come with the ports, but nothing is read from them or written to them: the addresses here are
// the plane's own.
//
// A port whose interface isn't there, or goes away, is looked for each second. The chassis block must be
// there when live mode opens.
#pragma once

#include "lab/fp/fp_live_config.h"
#include "lab/fp/fp_service.h"

#include <memory>
#include <string>

struct event_base;
struct t_fp_live;

struct t_fp_live_deleter {
    void operator()(t_fp_live *p_live) const;
};
using fp_live_ptr = std::unique_ptr<t_fp_live, t_fp_live_deleter>;

// Brings the ports up and answers the service's request "live". Null with the reason: no chassis block, or it
// has no such port. Base and service must outlive it. One a process.
fp_live_ptr fp_live_open(event_base *p_base, t_fp_service *p_service, const t_fp_live_config &config,
                         std::string *p_error);
