// A policer in shared memory: a token bucket with its counters of what exceeded it.
//
// The forwarding plane owns tokens, time stamp and counters while the policer runs. The counters are double:
// `version` (0 or 1) selects the element that the forwarding plane counts into; a reader clears the other
// one after it has flipped the selector. Native byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

enum e_fp_policer_drop_action : uint32_t {
    FP_POLICER_ACTION_DROP = 0,
    FP_POLICER_ACTION_MARK_PLP_HIGH = 1,
};

inline constexpr size_t FP_POLICER_NAME_SIZE = 64;

struct t_fp_policer {
    uint8_t version;  // active element of oob_pkts and oob_bytes
    uint8_t reserved0[7];
    uint64_t rate;             // clock ticks for each byte
    uint64_t burst;            // clock ticks that the bucket holds
    uint64_t last_sent_ticks;  // clock at the last packet
    uint64_t available_tokens;
    int64_t oob_pkts[2];  // packets out of bounds
    int64_t oob_pkt_snapshot;
    int64_t oob_bytes[2];
    e_fp_policer_drop_action oob_action;
    uint8_t activity : 1;
    uint8_t record_valid : 1;
    uint8_t packet_policer : 1;
    uint8_t : 5;
    char name[FP_POLICER_NAME_SIZE];  // "sequence.name" in a program; not terminated when full
};
static_assert(sizeof(t_fp_policer) == 152);
static_assert(offsetof(t_fp_policer, rate) == 8);
static_assert(offsetof(t_fp_policer, burst) == 16);
static_assert(offsetof(t_fp_policer, last_sent_ticks) == 24);
static_assert(offsetof(t_fp_policer, available_tokens) == 32);
static_assert(offsetof(t_fp_policer, oob_pkts) == 40);
static_assert(offsetof(t_fp_policer, oob_pkt_snapshot) == 56);
static_assert(offsetof(t_fp_policer, oob_bytes) == 64);
static_assert(offsetof(t_fp_policer, oob_action) == 80);
static_assert(offsetof(t_fp_policer, name) == 85);
static_assert(std::is_standard_layout_v<t_fp_policer>);
