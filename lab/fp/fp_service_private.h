// Shared by the sources of the service: counting, counts as JSON, and a packet's way through one filter or
// through what is bound.
#pragma once

#include "lab/fp/fp_service.h"

#include <functional>

fp_json fp_counts_json(const t_fp_filter_stats &stats);
fp_json fp_frames_json(const t_fp_frame_stats &frames);

// ---- One filter ----

// A packet after its filter. Good until the engine's next call.
struct t_fp_treated {
    t_fp_outcome outcome;
    t_fp_treatment treatment;
};

// Sends a packet through a filter and counts it in the service.
t_fp_treated fp_filter_run(t_fp_service *p_service, const t_fp_use &use);

fp_json fp_treated_json(const t_fp_treated &treated);

// ---- Forwarding ----

// How a packet ended.
struct t_fp_fate {
    uint32_t num_stages;  // that it met
    e_fp_stage last;      // of them, if there is any
    bool rejected;
    bool policer_drop;  // by the last one, which doesn't reject it
    t_fp_treatment treatment;
};

// What a stage did. All is good during the call.
struct t_fp_seen {
    t_fp_stage stage;
    const t_fp_outcome *p_outcome;  // null when zones needed no filter
    const t_fp_zone_case *p_zone;   // of zones, else null
};

using f_fp_stage_seen = std::function<void(const t_fp_seen &seen)>;

// Sends a packet through what is bound at the place and through the zones, each stage with the fields that
// the ones before it have rewritten, and counts it in the service; use.filter_id isn't looked at.
t_fp_fate fp_forward_run(t_fp_service *p_service, const t_fp_place &place, const t_fp_use &use,
                         const f_fp_stage_seen &seen);

fp_json fp_stage_json(const t_fp_seen &seen);

// The verdict on a packet, with the JSON of the stages that it met.
fp_json fp_fate_json(const t_fp_fate &fate, const fp_json &stages);

// Adds one packet to the counts but those of the stages.
void fp_forward_count(t_fp_forward_stats *p_stats, const t_fp_fate &fate, uint32_t bytes);

// The counts but those of the stages.
fp_json fp_forward_counts_json(const t_fp_forward_stats &stats);

fp_json fp_forward_stats_json(const t_fp_forward_stats &stats);

// Without the family, which is the packet's.
fp_json fp_place_json(const t_fp_place &place);

fp_json fp_forward_answer(t_fp_service *p_service, const t_fp_request &request);
