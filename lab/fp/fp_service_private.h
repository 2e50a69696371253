// Shared by the sources of the service: counting, counts as JSON, and a packet's way through what is bound.
#pragma once

#include "lab/fp/fp_service.h"

#include <functional>

fp_json fp_counts_json(const t_fp_filter_stats &stats);
fp_json fp_frames_json(const t_fp_frame_stats &frames);

// ---- Forwarding ----

// How a packet ended.
struct t_fp_fate {
    uint32_t num_stages;  // that it met
    e_fp_stage last;      // of them, if there is any
    bool rejected;
    bool policer_drop;  // by the last one, which doesn't reject it
    bool plp_high;      // a policer of any marked it
};

// What a stage did. Both are good during the call.
using f_fp_stage_seen = std::function<void(const t_fp_stage &stage, const t_fp_outcome &outcome)>;

// Sends a packet through what is bound at the place and counts it in the service; use.filter_id isn't looked
// at.
t_fp_fate fp_forward_run(t_fp_service *p_service, const t_fp_place &place, t_fp_use use,
                         const f_fp_stage_seen &seen);

// Adds one packet to the counts but those of the stages.
void fp_forward_count(t_fp_forward_stats *p_stats, const t_fp_fate &fate, uint32_t bytes);

// The counts but those of the stages.
fp_json fp_forward_counts_json(const t_fp_forward_stats &stats);

fp_json fp_forward_stats_json(const t_fp_forward_stats &stats);

// Without the family, which is the packet's.
fp_json fp_place_json(const t_fp_place &place);

fp_json fp_forward_answer(t_fp_service *p_service, const t_fp_request &request);
