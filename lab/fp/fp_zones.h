// Zones: whether traffic between two VPNs may pass, by the two tables that the daemon keeps in the shared
// block (fp_api/fp_zbf.h).
//
// A VPN is looked up by the low 16 bits of its number; its zone and the other VPN's are looked up as a pair,
// source first. Of several records with one key the first of the chain holds. Then, by the first that fits:
//
//   zones are off, or neither VPN is in a zone    zones say nothing about the packet
//   both are in zones that have a pair            the pair's filter decides, also for a zone with itself
//   both are in one zone                          passes
//   one is in no zone and is the internet         passes, unless the daemon has set zone_no_zone_inet
//   else                                          is dropped
//
// The internet is VPN 0. What can't be told is dropped: a pair's filter lets a packet pass only with accept
// or inspect, so a pair whose filter has no program drops. Return traffic of inspected flows is fp_flows.h's.
//
// The daemon changes the tables beside the reader, without a lock. It sets a record's is_valid last and
// clears it first, so a reader looks at the bit before and after it has read a record, and takes the record
// only if it was set both times. A walk that has met an invalid record may have lost the rest of its chain;
// it is repeated a few times before it says that there is none. Chains and indices may hold anything.
#pragma once

#include "fp_api/fp_global_ctrl.h"
#include "fp_api/fp_zbf.h"

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <vector>

// Where the tables lie; they outlive whoever looks up.
struct t_fp_zone_tables {
    std::span<const t_fp_vpn_zone_record> vpns;
    std::span<const uint32_t> vpn_heads;  // a power of two of them
    std::span<const t_fp_zbf_pair_record> pairs;
    std::span<const uint32_t> pair_heads;  // the same
    const t_fp_global_ctrl *p_ctrl;        // null: zones are off
};

struct t_fp_zone_pair {
    uint32_t pair_id;
    uint32_t filter_id;
};

// ---- Looking up ----

bool fp_zones_enabled(const t_fp_zone_tables &tables);
bool fp_zones_deny_internet(const t_fp_zone_tables &tables);

std::optional<uint16_t> fp_zone_of(const t_fp_zone_tables &tables, uint32_t vpn);
std::optional<t_fp_zone_pair> fp_zone_pair_of(const t_fp_zone_tables &tables, uint16_t src_zone,
                                              uint16_t dst_zone);

// ---- Judging ----

enum e_fp_zone_ruling {
    FP_ZONE_NOT_MET,
    FP_ZONE_PAIR,  // the pair's filter decides
    FP_ZONE_FLOW,  // passes as return traffic, whatever its own pair says
    FP_ZONE_SAME,
    FP_ZONE_INTERNET_ALLOWED,
    FP_ZONE_INTERNET_DENIED,
    FP_ZONE_NO_PAIR,
    FP_ZONE_RULINGS,
};

struct t_fp_zone_case {
    uint32_t src_vpn;
    uint32_t dst_vpn;
    std::optional<uint16_t> src_zone;
    std::optional<uint16_t> dst_zone;
    std::optional<t_fp_zone_pair> pair;    // source to destination
    e_fp_zone_ruling ruling;               // never FP_ZONE_FLOW as it is judged
    std::optional<uint32_t> flow_pair_id;  // of FP_ZONE_FLOW: the pair under which the flow was opened
    bool is_passed;                        // of FP_ZONE_PAIR: told by the filter
};

t_fp_zone_case fp_zone_judge(const t_fp_zone_tables &tables, uint32_t src_vpn, uint32_t dst_vpn);

// ---- Counting ----

// Packets that zones said something about.
struct t_fp_zone_stats {
    std::array<uint64_t, FP_ZONE_RULINGS> by_ruling;
    uint64_t pair_drops;  // among FP_ZONE_PAIR
};

void fp_zone_count(t_fp_zone_stats *p_stats, const t_fp_zone_case &zone);

// ---- JSON ----

// {"source-vpn": 10, "destination-vpn": 0, "source-zone": 1, "destination-zone": "none", "ruling":
// "internet-denied"}; with a pair or flow also "pair", the number.
nlohmann::ordered_json fp_zone_case_json(const t_fp_zone_case &zone);
nlohmann::ordered_json fp_zone_stats_json(const t_fp_zone_stats &stats);

// {"enabled": true, "internet": "allow", "vpns": [{"vpn": 10, "zone": 1}], "pairs": [{"pair": 2,
// "source-zone": 1, "destination-zone": 4, "filter": 3}]} in the order of VPNs and of zones; of rows with one
// key the first holds.
nlohmann::ordered_json fp_zones_json(const t_fp_zone_tables &tables);
