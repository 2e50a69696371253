// Running a policer in place: a token bucket whose tokens are clock ticks.
//
// The bucket fills by one tick for each tick of the clock, up to `burst`. A packet of n bytes costs n * rate
// ticks and is in bounds when the bucket holds them; otherwise it takes none, and is counted in the active
// element of oob_pkts and oob_bytes. A packet that costs more than `burst` is never in bounds. A rate of 0
// never limits and leaves the bucket alone.
//
// last_sent_ticks 0 stands for a policer that has seen no packet: its bucket is full. Elapsed time is the
// difference modulo 2^64, so the clock may wrap; a clock that jumped back fills the bucket once.
//
// The daemon may write rate, burst and oob_action, and flip `version`, at any time; each is read once a
// packet. All else belongs to the forwarding plane, one thread.
#pragma once

#include "fp_api/fp_policer.h"

#include <cstdint>

enum e_fp_police {
    FP_POLICE_IN_BOUNDS,
    FP_POLICE_MARK,  // out of bounds: loss priority becomes high
    FP_POLICE_DROP,  // out of bounds
};

// now is in clock ticks. The policer lies on a multiple of 8.
e_fp_police fp_policer_run(t_fp_policer *p_policer, uint64_t now, uint32_t bytes);

// Adds one packet to the element of a double counter that `version` selects, which is read here, once for
// both. Also serves t_tarn_counter.
void fp_active_element_count(const uint8_t *p_version, int64_t *p_pkts, int64_t *p_bytes, uint32_t bytes);
