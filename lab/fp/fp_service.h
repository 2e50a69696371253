// What the process offers, without sockets: requests in, answers out.
//
// Answers are those of lab_answer.h; "request" repeats the request's name. A replay may be long, so it runs
// in steps: start it, step until it is done, then take its answer. Dropping it half way is fine; what it
// counted stays. Replays may run side by side. One thread; a replay must not outlive its service.
//
// A packet with a place meets the filters bound there, in the order ingress list, application-route, data
// policy, zones, egress list. Class, DSCP, traffic class and loss priority are met as the stages before have
// rewritten them, all other fields as the packet came with them. A stage that rejects it, or polices it away,
// is the last. A replay looks the table up for each packet, so it follows a change.
//
// Zones need the VPN that the packet goes to. It is the place's, if that is told, else the one of a NAT
// action met so far, else the packet's own. A packet whose VPNs and ends are those of an inspected flow,
// changed over, meets no filter of zones, as long as the flow's zones still have a pair. A flow is opened
// when the packet has passed the egress list, too.
#pragma once

#include "lab/control/lab_answer.h"
#include "lab/fp/fp_actions.h"
#include "lab/fp/fp_applications.h"
#include "lab/fp/fp_clock.h"
#include "lab/fp/fp_engine.h"
#include "lab/fp/fp_flows.h"
#include "lab/fp/fp_mirror.h"
#include "lab/fp/fp_request.h"
#include "lab/fp/fp_verdict.h"
#include "lab/fp/fp_zones.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Frames of capture files.
struct t_fp_frame_stats {
    uint64_t frames;
    uint64_t not_ip;
    uint64_t truncated;
    uint64_t malformed;
    uint64_t fragments;  // among those classified
};

// Packets sent through the filters bound at a place. Each is counted once in one of accepted, rejected and
// policer_drops.
struct t_fp_forward_stats {
    uint64_t packets;
    uint64_t bytes;
    uint64_t accepted;  // went on, also without a program
    uint64_t rejected;
    uint64_t policer_drops;
    uint64_t unbound;                                 // among the accepted: nothing is bound there
    std::array<t_fp_filter_stats, FP_STAGES> stages;  // by e_fp_stage
};

struct t_fp_service {
    fp_engine_ptr engine;
    t_fp_clock clock;
    t_fp_frame_stats frames;
    t_fp_bindings bindings = {};
    t_fp_forward_stats forwarding = {};
    t_fp_treatment_stats treatments = {};
    t_fp_applications applications = {};  // of live mode, and replays without a table of their own
    fp_mirror_ptr mirror = nullptr;       // the same for copies; null: they are only counted
    t_fp_zone_tables zones = {};
    t_fp_zone_stats zone_stats = {};
    t_fp_flows flows = {};
    std::function<fp_json()> live = nullptr;  // answers for live mode, while there is any
};

// All requests but replays.
fp_json fp_service_answer(t_fp_service *p_service, const t_fp_request &request);

// ---- Replays ----

struct t_fp_replay;

struct t_fp_replay_deleter {
    void operator()(t_fp_replay *p_replay) const;
};
using fp_replay_ptr = std::unique_ptr<t_fp_replay, t_fp_replay_deleter>;

// Opens the files of the request. Null with the reason.
fp_replay_ptr fp_replay_start(t_fp_service *p_service, const t_fp_request &request, std::string *p_error);

// Sends up to max_frames frames through the filter, or the filters. False when the end, or an error, has been
// reached.
bool fp_replay_step(t_fp_replay *p_replay, uint32_t max_frames);

// The answer of a replay that has ended. After an error in a file it holds what came before, too.
fp_json fp_replay_answer(const t_fp_replay *p_replay);
