// Actions: what the records that a packet met make of it.
//
// A treatment gathers the actions of all records on a packet's way, in their order. Of two actions of one
// kind the later one holds, so that a data policy has the last word; mirrors and log entries add up. Marks of
// policers and the rewritten fields (class, DSCP, traffic class) are carried on: fp_treatment_rewrite puts
// them into the fields with which the packet meets what comes next. Values are copied out of the records,
// whose owner may change them at any time.
//
// A packet of a flow always takes the same locator of a list: entry (hash modulo 16), whatever stands there.
// The hash is FNV-1a in 64 bits over 17 bytes, source address (4), destination address (4), source port (2),
// destination port (2), protocol (1) and VPN (4), each in network order, with the upper half folded onto the
// lower one. IPv6 addresses are no fields and stand as 0.
//
// There is no routing behind this: a locator is what the daemon resolved or it is not, next hops are always
// there. A packet whose locator is unresolved has nowhere to go unless a record allows to fall back; it is
// shown and counted, and its verdict stays.
#pragma once

#include "lab/fp/fp_engine.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <vector>

// A locator that was chosen.
struct t_fp_locator {
    bool is_from_list;
    uint32_t entry;       // in the list
    t_tarn_hw_tloc tloc;  // the entry; all zero when the list is empty
};

// Values count only if `seen` has the action's bit.
struct t_fp_treatment {
    uint32_t seen;  // bit n: an action of value n was met
    bool plp_high;  // the packet came so, or a policer marked it
    bool dropped;
    int32_t forwarding_class;
    uint8_t dscp;
    uint8_t traffic_class;
    uint8_t svc_type;
    uint16_t nat_vrid;
    uint32_t nat_pool_id;
    uint32_t backup_preferred_color;
    t_fp_ipaddr next_hop;
    t_fp_ipaddr redirect_dns;
    t_tarn_sla_class_info sla_class;
    t_tarn_hw_tloc_color_encap color_encap;
    t_tarn_hw_local_tloc_list local_tlocs;
    t_fp_locator locator;
    uint32_t num_logs;
    std::vector<t_tarn_mirror_info> mirrors;
};

// Where the packet goes.
enum e_fp_path {
    FP_PATH_ROUTING,  // where the routing table says
    FP_PATH_DROPPED,
    FP_PATH_LOCAL_SERVICE,
    FP_PATH_LOCATOR,
    FP_PATH_FALLBACK,    // an unresolved locator, so routing after all
    FP_PATH_UNRESOLVED,  // an unresolved locator and nothing to fall back to
    FP_PATH_NEXT_HOP,
    FP_PATH_NAT,
};

// ---- Treating ----

uint32_t fp_flow_hash(const t_fp_header &header, uint32_t vpn);

// Nothing was met yet; the packet comes with these fields.
t_fp_treatment fp_treatment_begin(const t_fp_header &header);

// Adds what an engine run did. hash is the flow's.
void fp_treatment_add(t_fp_treatment *p_treatment, const t_fp_outcome &outcome, uint32_t hash);

// Sets the fields that the actions rewrite.
void fp_treatment_rewrite(const t_fp_treatment &treatment, t_fp_header *p_header);

bool fp_treatment_has(const t_fp_treatment &treatment, e_tarn_filter_action action);
e_fp_path fp_treatment_path(const t_fp_treatment &treatment);

// How often the packet is copied for a mirror: once to its interface, once to its tunnel.
uint32_t fp_mirror_copies(const t_tarn_mirror_info &mirror);
uint32_t fp_treatment_copies(const t_fp_treatment &treatment);

// ---- Counting ----

struct t_fp_treatment_stats {
    uint64_t logged;  // log actions
    uint64_t copies;  // for mirrors
    uint64_t locators;
    uint64_t unresolved;
    uint64_t fallbacks;
};

void fp_treatment_count(t_fp_treatment_stats *p_stats, const t_fp_treatment &treatment);

// ---- JSON ----

// {"path": "locator", "class": 3, "locator": {...}, ...}: "path" and a member for each kind of action that
// the packet met, but count and police; see docs/fpd.md.
nlohmann::ordered_json fp_treatment_json(const t_fp_treatment &treatment);
nlohmann::ordered_json fp_treatment_stats_json(const t_fp_treatment_stats &stats);
