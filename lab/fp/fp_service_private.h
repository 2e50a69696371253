// Shared by the sources of the service: counting, and counts as JSON.
#pragma once

#include "lab/fp/fp_service.h"

fp_json fp_counts_json(const t_fp_filter_stats &stats);
fp_json fp_frames_json(const t_fp_frame_stats &frames);
